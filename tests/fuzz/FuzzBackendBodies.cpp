#include "Fuzz.h"
#include "base/JsonAccess.h"
#include "base/Text.h"

using namespace quellora::server;
using namespace quellora::fuzz;

namespace {

/// A text of a request on its way through what is done with such texts.
void pass(const std::string &text)
{
    require(isUtf8(text));
    const auto email = normalizedEmail(text);
    require(!email || normalizedEmail(*email) == email);
    const std::string escaped = htmlEscaped(text);
    require(escaped.find_first_of("<>\"'") == std::string::npos);
    require(formFields("a=" + urlEncoded(text)).at("a") == text);
    if (const auto bytes = base64Decoded(text))
        require(base64Encoded(*bytes) == text);
    require(compareVersions(text, "1.0.0") == -compareVersions("1.0.0", text));
    const auto count = parseCount(text);
    require(!count || *count >= 0);
}

} // namespace

/// The input as the body of a request: as JSON and as a form.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view body = view(data, size);
    if (const auto record = parsedObject(body)) {
        for (const char *key : {"email", "password", "prompt", "imageBase64", "model"})
            pass(textOf(*record, key).value_or(""));
        require(parsedObject(compactJson(*record)) == record);
    }
    for (const auto &[name, value] : formFields(body)) {
        pass(name);
        pass(value);
    }
    return 0;
}
