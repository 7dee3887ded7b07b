#include "query/PromptConfig.h"

#include "base/UserDefaults.h"

namespace quellora {

QString PromptConfig::current(const UserDefaults &defaults,
                              const std::optional<AppConfigResponse> &config)
{
    const auto own = defaults.stringValue(QLatin1String(DefaultsKey::userPrompt));
    if (own && !own->isEmpty())
        return *own;
    return config ? config->defaultPrompt : builtIn();
}

QString PromptConfig::builtIn()
{
    return QStringLiteral(
        "You are a silent vantiro assistant.\n"
        "The user will send you a screenshot of content.\n"
        "\n"
        "Respond in this EXACT format, very concise:\n"
        "\n"
        "## Approach\n"
        "- [3 bullet points max, one line each, what to do step by step]\n"
        "\n"
        "## Solution\n"
        "- [3 bullet possible solutions or ideas]\n"
        "- Output the full code solution. \n"
        "    Display in the desired language as a md code block so it's easy to read.\n"
        "\n"
        "Be extremely terse. The user needs to read this at a glance under time pressure.\n"
        "Do not add explanations outside this format.");
}

} // namespace quellora
