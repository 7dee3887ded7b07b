#include "../../server/base/JsonAccess.h"
#include "QtFuzz.h"
#include "base/Json.h"

using namespace quellora;
using namespace quellora::fuzz;

/// The app's and the backend's parser agree, but for what the standard leaves to them: lone
/// surrogates, numbers out of range and nesting.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    prepareQt();
    const std::string_view text = view(data, size);
    const bool appTakes = parseJsonObject(bytes(text)).has_value();
    const bool backendTakes = server::parsedObject(text).has_value();
    if (appTakes == backendTakes)
        return 0;
    const auto has = [text](std::string_view any) {
        return text.find_first_of(any) != std::string_view::npos;
    };
    const bool hasExponent = has("eE") && has("0123456789");
    constexpr std::size_t longestDouble = 300;
    const bool mayHaveHugeNumber = hasExponent || size > longestDouble;
    if (appTakes)
        require(text.find("\\u") != std::string_view::npos || mayHaveHugeNumber);
    else
        require(mayHaveHugeNumber);
    return 0;
}
