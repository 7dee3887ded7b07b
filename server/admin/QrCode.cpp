#include "admin/QrCode.h"

#include "base/Text.h"

#include <qrencode.h>

#include <cstdlib>
#include <memory>

namespace quellora::server {
namespace {

/// The light border that readers need, in dots.
constexpr int quiet = 4;

/// The dots of a code.
class Dots
{
public:
    explicit Dots(const std::string &text)
        : m_code(QRcode_encodeString8bit(text.c_str(), 0, QR_ECLEVEL_M), &QRcode_free)
    {
        // Fails only for texts longer than any code, which no caller has, or without memory.
        if (!m_code)
            std::abort();
    }
    /// With the border, in dots.
    int width() const { return m_code->width + 2 * quiet; }
    bool isDark(int column, int row) const
    {
        const int x = column - quiet;
        const int y = row - quiet;
        return x >= 0 && y >= 0 && x < m_code->width && y < m_code->width &&
               (m_code->data[y * m_code->width + x] & 1U) != 0;
    }

private:
    std::unique_ptr<QRcode, decltype(&QRcode_free)> m_code;
};

} // namespace

std::string qrSvg(const std::string &text, const std::string &label)
{
    const Dots dots(text);
    const std::string width = std::to_string(dots.width());
    std::string path;
    for (int row = 0; row < dots.width(); ++row) {
        for (int column = 0; column < dots.width();) {
            int end = column;
            while (dots.isDark(end, row))
                ++end;
            if (end > column) {
                const std::string length = std::to_string(end - column);
                path.append("M").append(std::to_string(column)).append(" ");
                path.append(std::to_string(row)).append("h").append(length);
                path.append("v1h-").append(length).append("z");
            }
            column = end + 1;
        }
    }
    return "<svg class=\"qr\" role=\"img\" aria-label=\"" + htmlEscaped(label) +
           "\" viewBox=\"0 0 " + width + " " + width +
           "\" shape-rendering=\"crispEdges\"><rect width=\"100%\" height=\"100%\" "
           "fill=\"#fff\"/><path fill=\"#000\" d=\"" +
           path + "\"/></svg>\n";
}

std::string qrText(const std::string &text)
{
    const Dots dots(text);
    std::string lines;
    for (int row = 0; row < dots.width(); row += 2) {
        // Black on white whatever the terminal's colours are.
        lines += "\x1b[30;107m";
        for (int column = 0; column < dots.width(); ++column) {
            const bool upper = dots.isDark(column, row);
            const bool lower = dots.isDark(column, row + 1);
            lines += upper ? (lower ? "█" : "▀") : (lower ? "▄" : " ");
        }
        lines += "\x1b[0m\n";
    }
    return lines;
}

} // namespace quellora::server
