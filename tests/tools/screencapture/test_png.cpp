#include "screencapture/PngWriter.h"
#include "support/TestProgram.h"

#include <QImage>
#include <QTest>

#include <cstdint>
#include <vector>

using namespace quellora::screencapture;

namespace {

std::vector<std::uint32_t> noise(std::size_t count)
{
    std::vector<std::uint32_t> words(count);
    std::uint32_t state = 12345;
    for (std::uint32_t &word : words) {
        state = state * 1664525U + 1013904223U;
        word = state;
    }
    return words;
}

struct ByteCollector
{
    QByteArray bytes;
    std::size_t largestChunk = 0;

    ByteSink sink()
    {
        return [this](std::span<const std::byte> chunk) -> tl::expected<void, Failure> {
            bytes.append(reinterpret_cast<const char *>(chunk.data()),
                         static_cast<qsizetype>(chunk.size()));
            largestChunk = std::max(largestChunk, chunk.size());
            return {};
        };
    }
};

} // namespace

class PngTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void imagesRoundTrip_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::newRow("one pixel") << 1 << 1;
        QTest::newRow("one line") << 1000 << 1;
        QTest::newRow("one column") << 1 << 1000;
        QTest::newRow("one block exactly") << 4 << 5041;             // 13 * 5041 = 65533
        QTest::newRow("two bytes into the next block") << 7 << 2979; // 22 * 2979 = 65538
        QTest::newRow("whole blocks") << 43688 << 2; // 2 * (1 + 3 * 43688) = 4 * 65535 - 10
        QTest::newRow("lines longer than a block") << 30000 << 3;
        QTest::newRow("several chunks") << 801 << 601;
    }

    void imagesRoundTrip()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        const std::size_t stride = static_cast<std::size_t>(width) + 3;
        std::vector<std::uint32_t> words = noise(stride * static_cast<std::size_t>(height));
        ByteCollector file;
        QVERIFY(writePng({words.data(), {100, 50, width, height}, stride}, file.sink()));
        const QImage image = QImage::fromData(file.bytes, "PNG");
        QCOMPARE(image.size(), QSize(width, height));
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const std::uint32_t word =
                    words[static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x)];
                if ((image.pixel(x, y) & 0xffffff) != (word & 0xffffff))
                    QFAIL(qPrintable(QStringLiteral("pixel %1,%2").arg(x).arg(y)));
            }
        }
        QVERIFY(file.largestChunk <= std::size_t(1024 * 1024));
    }

    void packsRowsOfEveryLength()
    {
        const std::vector<std::uint32_t> words = noise(67);
        for (int count = 0; count <= 67; ++count) {
            std::vector<std::byte> target(3 * 67 + 1, std::byte{0x5a});
            packRgb(words.data(), target.data(), count);
            for (int i = 0; i < count; ++i) {
                const std::uint32_t word = words[static_cast<std::size_t>(i)];
                const std::size_t offset = 3 * static_cast<std::size_t>(i);
                QCOMPARE(target[offset], static_cast<std::byte>(word >> 16));
                QCOMPARE(target[offset + 1], static_cast<std::byte>(word >> 8));
                QCOMPARE(target[offset + 2], static_cast<std::byte>(word));
            }
            // Nothing is written past the end.
            QCOMPARE(target[3 * static_cast<std::size_t>(count)], std::byte{0x5a});
        }
    }

    void sinkFailureStopsWriting()
    {
        std::vector<std::uint32_t> words = noise(1000 * 1000);
        int calls = 0;
        const auto result = writePng(
            {words.data(), {0, 0, 1000, 1000}, 1000}, [&](auto) -> tl::expected<void, Failure> {
                ++calls;
                if (calls < 3)
                    return {};
                return tl::unexpected(Failure{ExitStatus::DiskFull, "no space"});
            });
        QVERIFY(!result);
        QCOMPARE(result.error().status, ExitStatus::DiskFull);
        QCOMPARE(result.error().message, std::string("no space"));
        QCOMPARE(calls, 3);
    }

    void rejectsTooLargeImages()
    {
        QVERIFY(checkImageSize(26000, 26000));
        QVERIFY(checkImageSize(65535, 10000));
        for (const auto &[width, height] : {std::pair(27000, 27000), std::pair(65535, 65535)}) {
            const auto result = checkImageSize(width, height);
            QVERIFY(!result);
            QCOMPARE(result.error().status, ExitStatus::ImageTooLarge);
        }
        ByteCollector file;
        QVERIFY(!writePng({nullptr, {0, 0, 65535, 65535}, 65535}, file.sink()));
        QVERIFY(file.bytes.isEmpty());
    }
};

QUELLORA_TEST(void, PngTest)
#include "test_png.moc"
