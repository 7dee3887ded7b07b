#include "screencapture/PixelFormat.h"
#include "support/TestProgram.h"

#include <QTest>

#include <array>
#include <initializer_list>
#include <vector>

using namespace quellora::screencapture;

namespace {

std::uint32_t convert(const PixelFormat::Layout &layout, std::initializer_list<int> bytes)
{
    std::vector<std::byte> source;
    for (const int value : bytes)
        source.push_back(static_cast<std::byte>(value));
    std::uint32_t result = 0;
    PixelFormat(layout).convertRow(source.data(), &result, 1);
    return result;
}

PixelFormat::Layout rgb565(bool mostSignificantFirst)
{
    return {16, 32, mostSignificantFirst, 0xf800, 0x7e0, 0x1f, 0};
}

} // namespace

class PixelFormatTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void converts32BitInBothByteOrders()
    {
        PixelFormat::Layout layout;
        QCOMPARE(convert(layout, {0x33, 0x22, 0x11, 0x00}), 0xff112233U);
        layout.mostSignificantByteFirst = true;
        QCOMPARE(convert(layout, {0x00, 0x11, 0x22, 0x33}), 0xff112233U);
    }

    void keepsAlphaIfVisualHasAlpha()
    {
        PixelFormat::Layout layout;
        layout.alphaMask = 0xff000000;
        QVERIFY(PixelFormat(layout).hasAlpha());
        QCOMPARE(convert(layout, {0x33, 0x22, 0x11, 0x80}), 0x80112233U);
        layout.mostSignificantByteFirst = true;
        QCOMPARE(convert(layout, {0x80, 0x11, 0x22, 0x33}), 0x80112233U);
    }

    void convertsSwappedMasks()
    {
        PixelFormat::Layout layout;
        std::swap(layout.redMask, layout.blueMask);
        QVERIFY(!PixelFormat(layout).isNative());
        QCOMPARE(convert(layout, {0x11, 0x22, 0x33, 0x00}), 0xff112233U);
    }

    void converts16Bit()
    {
        QCOMPARE(convert(rgb565(false), {0xff, 0xff}), 0xffffffffU);
        QCOMPARE(convert(rgb565(false), {0x00, 0x00}), 0xff000000U);
        QCOMPARE(convert(rgb565(false), {0x00, 0xf8}), 0xffff0000U);
        QCOMPARE(convert(rgb565(true), {0xf8, 0x00}), 0xffff0000U);
        QCOMPARE(convert(rgb565(false), {0x10, 0x84}), 0xff848284U); // 16/31, 32/63, 16/31
    }

    void converts24Bit()
    {
        const PixelFormat::Layout layout{24, 32, false, 0xff0000, 0xff00, 0xff, 0};
        QCOMPARE(convert(layout, {0x33, 0x22, 0x11}), 0xff112233U);
    }

    void converts30BitColours()
    {
        const PixelFormat::Layout layout{32, 32, false, 0x3ff00000, 0xffc00, 0x3ff, 0};
        const PixelFormat format(layout);
        QVERIFY(format.isSupported());
        QVERIFY(!format.isNative());
        const std::uint32_t word = 0x3ffU << 20 | 0x200U << 10 | 0x004U;
        QCOMPARE(
            convert(layout, {static_cast<int>(word & 0xff), static_cast<int>(word >> 8 & 0xff),
                             static_cast<int>(word >> 16 & 0xff), static_cast<int>(word >> 24)}),
            0xffff8001U);
    }

    void convertsUnalignedRows()
    {
        const std::array<std::byte, 9> source{std::byte{9},    std::byte{0},    std::byte{0xf8},
                                              std::byte{0xe0}, std::byte{0x07}, std::byte{0x1f},
                                              std::byte{0},    std::byte{9},    std::byte{9}};
        std::array<std::uint32_t, 4> target{};
        PixelFormat(rgb565(false)).convertRow(source.data() + 1, target.data(), 3); // unaligned
        QCOMPARE(target[0], 0xffff0000U);
        QCOMPARE(target[1], 0xff00ff00U);
        QCOMPARE(target[2], 0xff0000ffU);
        QCOMPARE(target[3], 0U);
    }

    void bytesPerLineIncludesPadding()
    {
        QCOMPARE(PixelFormat(rgb565(false)).bytesPerLine(3), std::size_t(8));
        QCOMPARE(PixelFormat(rgb565(false)).bytesPerLine(4), std::size_t(8));
        QCOMPARE(PixelFormat({24, 32, false, 0xff0000, 0xff00, 0xff, 0}).bytesPerLine(3),
                 std::size_t(12));
        QCOMPARE(PixelFormat({24, 8, false, 0xff0000, 0xff00, 0xff, 0}).bytesPerLine(3),
                 std::size_t(9));
        QCOMPARE(PixelFormat(PixelFormat::Layout{}).bytesPerLine(65535), std::size_t(262140));
    }

    void rejectsUnsupportedLayouts()
    {
        QVERIFY(!PixelFormat({1, 32, false, 1, 1, 1, 0}).isSupported());
        QVERIFY(!PixelFormat({8, 32, false, 0, 0, 0, 0}).isSupported());
        QVERIFY(PixelFormat({8, 32, false, 0xe0, 0x1c, 0x03, 0}).isSupported());
    }
};

QUELLORA_TEST(void, PixelFormatTest)
#include "test_pixel_format.moc"
