#include "screencapture/Canvas.h"
#include "screencapture/CursorOverlay.h"
#include "support/TestProgram.h"

#include <QTest>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace quellora::screencapture;

namespace {

constexpr std::uint32_t backgroundColour = 0xff101010;

/// A canvas that covers (10, 20) to (30, 36) of the root window, with guard words after each row.
class TestCanvas
{
public:
    TestCanvas() : m_words(24 * 16, backgroundColour) {}

    Canvas view() { return {m_words.data(), {10, 20, 20, 16}, 24}; }
    std::uint32_t at(int x, int y) const { return m_words[(y - 20) * 24 + x - 10] & 0xffffff; }
    bool guardsAreIntact() const
    {
        for (int y = 0; y < 16; ++y) {
            for (int x = 20; x < 24; ++x) {
                if (m_words[y * 24 + x] != backgroundColour)
                    return false;
            }
        }
        return true;
    }
    long count(std::uint32_t colour) const
    {
        return std::ranges::count_if(
            m_words, [=](std::uint32_t word) { return (word & 0xffffff) == colour; });
    }

private:
    std::vector<std::uint32_t> m_words;
};

/// A single-colour image in the byte order of a local X server.
class TestSource
{
public:
    TestSource(const Rect &rect, std::uint32_t colour, bool withAlpha = false)
        : m_words(static_cast<std::size_t>(rect.width * rect.height), colour)
        , m_rect(rect)
        , m_withAlpha(withAlpha)
    {}

    std::uint32_t &at(int x, int y)
    {
        return m_words[static_cast<std::size_t>((y - m_rect.y) * m_rect.width + x - m_rect.x)];
    }
    SourceImage view() const
    {
        PixelFormat::Layout layout;
        layout.mostSignificantByteFirst = std::endian::native == std::endian::big;
        layout.alphaMask = m_withAlpha ? 0xff000000 : 0;
        return {reinterpret_cast<const std::byte *>(m_words.data()),
                static_cast<std::size_t>(m_rect.width) * 4, PixelFormat(layout), m_rect};
    }

private:
    std::vector<std::uint32_t> m_words;
    Rect m_rect;
    bool m_withAlpha;
};

} // namespace

class CanvasTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void blendOverHandlesOpaqueAndTransparent()
    {
        QCOMPARE(blendOver(0xff123456, 0xffabcdef, 255), 0xffabcdefU);
        QCOMPARE(blendOver(0xff123456, 0x00000000, 255), 0xff123456U);
        QCOMPARE(blendOver(0xff123456, 0xffabcdef, 0), 0xff123456U);
    }

    void blendOverRoundsToNearest()
    {
        for (std::uint32_t alpha = 0; alpha < 256; ++alpha) {
            for (std::uint32_t back = 0; back < 256; back += 5) {
                const std::uint32_t colour = alpha / 2;
                const std::uint32_t result =
                    blendOver(0xff000000 | back * 0x010101, alpha << 24 | colour * 0x010101, 255);
                const auto expected =
                    colour + static_cast<std::uint32_t>(std::lround(back * (255 - alpha) / 255.0));
                QCOMPARE(result, 0xff000000 | expected * 0x010101);
            }
        }
    }

    void opacityScalesColourAndAlpha()
    {
        // opaque white at half opacity over black and over white
        QCOMPARE(blendOver(0xff000000, 0xffffffff, 128) & 0xffffff, 0x808080U);
        QCOMPARE(blendOver(0xffffffff, 0xffffffff, 128) & 0xffffff, 0xffffffU);
        QCOMPARE(blendOver(0xffffffff, 0xff000000, 128) & 0xffffff, 0x7f7f7fU);
    }

    void colourAboveAlphaSaturates()
    {
        QCOMPARE(blendOver(0xffffffff, 0x10ff8000, 255) & 0xffffff, 0xffffefU);
    }

    void drawOpaqueIsClipped()
    {
        TestCanvas canvas;
        const TestSource source({0, 0, 18, 25}, 0x00c81e1e);
        drawOpaque(canvas.view(), source.view(), Region(Rect{5, 22, 100, 100}));
        QCOMPARE(canvas.at(10, 22), 0xc81e1eU);
        QCOMPARE(canvas.at(17, 24), 0xc81e1eU);
        QCOMPARE(canvas.at(18, 24), 0x101010U);
        QCOMPARE(canvas.at(10, 21), 0x101010U);
        QCOMPARE(canvas.count(0xc81e1e), 8L * 3);
        QVERIFY(canvas.guardsAreIntact());
    }

    void drawOpaqueIgnoresAlpha()
    {
        TestCanvas canvas;
        const TestSource source({10, 20, 20, 16}, 0x00123456, true);
        drawOpaque(canvas.view(), source.view(), Region(Rect{10, 20, 20, 16}));
        QCOMPARE(canvas.count(0x123456), 20L * 16);
    }

    void drawBlendedUsesAlpha()
    {
        TestCanvas canvas;
        TestSource source({12, 22, 4, 4}, 0x00000000, true);
        source.at(13, 23) = 0x80008000;
        drawBlended(canvas.view(), source.view(), Region(Rect{0, 0, 100, 100}), 255);
        QCOMPARE(canvas.at(12, 22), 0x101010U);
        QCOMPARE(canvas.at(13, 23), 0x088808U);
        QVERIFY(canvas.guardsAreIntact());
    }

    void drawBlendedAppliesOpacityWithoutAlpha()
    {
        TestCanvas canvas;
        const TestSource source({12, 22, 4, 4}, 0x00ffffff);
        drawBlended(canvas.view(), source.view(), Region(Rect{0, 0, 100, 100}), 51);
        QCOMPARE(canvas.at(12, 22), 0x404040U); // 51 + 16 * 204/255
    }

    void fillRegionIsClipped()
    {
        TestCanvas canvas;
        Region clip(Rect{0, 0, 12, 100});
        clip.unite(Rect{28, 30, 50, 2});
        fillRegion(canvas.view(), clip, 0x00abcdef);
        QCOMPARE(canvas.count(0xabcdef), 2L * 16 + 2L * 2);
        QVERIFY(canvas.guardsAreIntact());
    }

    void tilesAreAnchoredAtRootOrigin()
    {
        TestCanvas canvas;
        TestSource tile({0, 0, 3, 5}, 0x00000000);
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < 3; ++x)
                tile.at(x, y) = static_cast<std::uint32_t>(0x100 * y + x + 1);
        }
        drawTiled(canvas.view(), tile.view(), Region(Rect{11, 21, 18, 14}));
        for (int y = 21; y < 35; ++y) {
            for (int x = 11; x < 29; ++x)
                QCOMPARE(canvas.at(x, y), static_cast<std::uint32_t>(0x100 * (y % 5) + x % 3 + 1));
        }
        QCOMPARE(canvas.at(10, 21), 0x101010U);
        QCOMPARE(canvas.at(29, 21), 0x101010U);
        drawTiled(canvas.view(), TestSource({0, 0, 0, 0}, 0).view(), Region(Rect{0, 0, 9, 9}));
    }

    void dominantColourIsMostFrequent()
    {
        TestCanvas canvas;
        fillRegion(canvas.view(), Region(Rect{10, 20, 16, 16}), 0x445566);
        QCOMPARE(dominantColour(canvas.view(), Region(Rect{10, 20, 20, 16})), 0x445566U);
        QCOMPARE(dominantColour(canvas.view(), Region(Rect{27, 20, 3, 3})), 0x101010U);
        QCOMPARE(dominantColour(canvas.view(), Region()), 0U);
        QCOMPARE(dominantColour(canvas.view(), Region(Rect{500, 500, 9, 9})), 0U);
    }

    void cursorIsBlendedAndClipped()
    {
        TestCanvas canvas;
        CursorPicture cursor{std::vector<std::uint32_t>(16, 0xff00ff80), {8, 18, 4, 4}};
        cursor.pixels[15] = 0x80008000; // at (11, 21)
        drawCursor(canvas.view(), cursor);
        QCOMPARE(canvas.at(10, 20), 0x00ff80U);
        QCOMPARE(canvas.at(11, 20), 0x00ff80U);
        QCOMPARE(canvas.at(11, 21), 0x088808U);
        QCOMPARE(canvas.count(0x101010), 24L * 16 - 4);

        drawCursor(canvas.view(), {std::vector<std::uint32_t>(16, 0xffffffff), {29, 35, 4, 4}});
        QCOMPARE(canvas.count(0xffffff), 1L);
        drawCursor(canvas.view(), {std::vector<std::uint32_t>(16, 0xffffffff), {300, 350, 4, 4}});
        QCOMPARE(canvas.count(0xffffff), 1L);
        QVERIFY(canvas.guardsAreIntact());
    }
};

QUELLORA_TEST(void, CanvasTest)
#include "test_canvas.moc"
