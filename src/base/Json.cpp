#include "base/Json.h"

#include <QJsonDocument>

#include <string_view>

namespace quellora {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// Removes leading digits and returns how many there were.
std::size_t takeDigits(std::string_view &text)
{
    std::size_t count = 0;
    while (count < text.size() && isDigit(text[count]))
        ++count;
    text.remove_prefix(count);
    return count;
}

bool take(std::string_view &text, std::string_view anyOf)
{
    if (text.empty() || anyOf.find(text.front()) == std::string_view::npos)
        return false;
    text.remove_prefix(1);
    return true;
}

/// Removes a number from the beginning; whether it is one.
bool takeNumber(std::string_view &text)
{
    take(text, "-");
    if (!take(text, "0") && takeDigits(text) == 0)
        return false;
    if (take(text, ".") && takeDigits(text) == 0)
        return false;
    if (!take(text, "eE"))
        return true;
    take(text, "+-");
    return takeDigits(text) > 0;
}

/// Removes a string after its opening quote; whether its characters and escapes are permitted.
bool takeString(std::string_view &text)
{
    while (!text.empty()) {
        const char c = text.front();
        text.remove_prefix(1);
        if (c == '"')
            return true;
        if (static_cast<unsigned char>(c) < 0x20)
            return false;
        if (c == '\\' && !take(text, "\"\\/bfnrtu"))
            return false;
    }
    return false;
}

/// Whether all numbers and strings of a text that QJsonDocument takes are written as the standard
/// demands.
bool isStrict(std::string_view text)
{
    while (!text.empty()) {
        const char c = text.front();
        if (c == '-' || c == '.' || isDigit(c)) {
            if (!takeNumber(text))
                return false;
            continue;
        }
        text.remove_prefix(1);
        if (c == '"' && !takeString(text))
            return false;
    }
    return true;
}

} // namespace

tl::expected<QJsonObject, QString> parseJsonObject(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        return tl::unexpected(error.errorString());
    if (!isStrict({json.constData(), static_cast<std::size_t>(json.size())}))
        return tl::unexpected(QStringLiteral("a number or a string is not valid JSON"));
    if (!document.isObject())
        return tl::unexpected(QStringLiteral("not a JSON object"));
    return document.object();
}

} // namespace quellora
