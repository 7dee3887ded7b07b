#include "query/PromptConfig.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using namespace quellora;

class TestPromptConfig : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void promptPrecedence()
    {
        QCOMPARE(PromptConfig::current(std::nullopt, std::nullopt), PromptConfig::builtIn());
        AppConfigResponse config;
        QCOMPARE(PromptConfig::current(std::nullopt, config), QString());
        config.defaultPrompt = "server";
        QCOMPARE(PromptConfig::current(std::nullopt, config), "server");
        QCOMPARE(PromptConfig::current("", config), "server");
        QCOMPARE(PromptConfig::current("   ", config), "   ");
    }

    void builtInPromptIsExact()
    {
        const QStringList lines{
            "You are a silent vantiro assistant.",
            "The user will send you a screenshot of content.",
            "",
            "Respond in this EXACT format, very concise:",
            "",
            "## Approach",
            "- [3 bullet points max, one line each, what to do step by step]",
            "",
            "## Solution",
            "- [3 bullet possible solutions or ideas]",
            "- Output the full code solution. ",
            "    Display in the desired language as a md code block so it's easy to read.",
            "",
            "Be extremely terse. The user needs to read this at a glance under time pressure.",
            "Do not add explanations outside this format.",
        };
        QCOMPARE(PromptConfig::builtIn().split('\n'), lines);
    }
};

QUELLORA_TEST(QCoreApplication, TestPromptConfig)
#include "test_prompt_config.moc"
