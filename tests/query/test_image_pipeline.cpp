#include "PngSamples.h"
#include "query/JpegEncoder.h"
#include "query/LanczosResampler.h"
#include "query/ScreenshotCapture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QImage>
#include <QObject>
#include <QRandomGenerator>
#include <QTest>

#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

using namespace quellora;

namespace {

double lanczos(double x)
{
    if (x == 0.0)
        return 1.0;
    if (std::abs(x) >= 3.0)
        return 0.0;
    const double angle = std::numbers::pi * x;
    return 3.0 * std::sin(angle) * std::sin(angle / 3.0) / (angle * angle);
}

/// Scales one axis in double precision, directly from the definition of the filter.
std::vector<double> scaleAxis(const std::vector<double> &in, int target)
{
    const double scale = static_cast<double>(in.size()) / target;
    std::vector<double> out;
    for (int i = 0; i < target; ++i) {
        const double centre = (i + 0.5) * scale - 0.5;
        double sum = 0;
        double weights = 0;
        for (std::size_t s = 0; s < in.size(); ++s) {
            const double weight = lanczos((static_cast<double>(s) - centre) / scale);
            sum += weight * in[s];
            weights += weight;
        }
        out.push_back(sum / weights);
    }
    return out;
}

QByteArray referenceLanczos(const Bitmap &source, int width, int height)
{
    QByteArray result(qsizetype{width} * height * 3, Qt::Uninitialized);
    for (int c = 0; c < 3; ++c) {
        std::vector<std::vector<double>> columns;
        for (int x = 0; x < source.width; ++x) {
            std::vector<double> column;
            for (const std::uint8_t *row : source.rows)
                column.push_back(row[x * source.channels + c]);
            columns.push_back(scaleAxis(column, height));
        }
        for (int y = 0; y < height; ++y) {
            std::vector<double> row;
            row.reserve(columns.size());
            for (const auto &column : columns)
                row.push_back(column[static_cast<std::size_t>(y)]);
            const std::vector<double> scaled = scaleAxis(row, width);
            for (int x = 0; x < width; ++x)
                result[(qsizetype{y} * width + x) * 3 + c] = static_cast<char>(
                    std::lround(std::clamp(scaled[static_cast<std::size_t>(x)], 0.0, 255.0)));
        }
    }
    return result;
}

QRgb testPattern(int x, int y)
{
    const auto hash =
        static_cast<quint32>(x / 3) * 73856093U ^ static_cast<quint32>(y / 2) * 19349663U;
    return (x / 20 + y / 15) % 3 == 0 ? qRgb(255, 255, 255)
                                      : qRgb(static_cast<int>(hash % 256),
                                             static_cast<int>(hash / 256 % 256), (x * 2 + y) % 256);
}

int largestDifference(const QByteArray &a, const QByteArray &b)
{
    int largest = a.size() == b.size() ? 0 : 256;
    for (qsizetype i = 0; i < std::min(a.size(), b.size()); ++i)
        largest = std::max(
            largest, std::abs(static_cast<unsigned char>(a[i]) - static_cast<unsigned char>(b[i])));
    return largest;
}

} // namespace

class TestImagePipeline : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void weightsAddUpToOne_data();
    void weightsAddUpToOne();
    void kernelsProduceIdenticalResults_data();
    void kernelsProduceIdenticalResults();
    void resamplingMatchesReference_data();
    void resamplingMatchesReference();
    void resultIsIndependentOfThreadCount();
    void uniformColourIsPreserved();
    void resizedDimensions_data();
    void resizedDimensions();
    void narrowBitmapIsNotResized();
    void bitmapTooFlatToScaleIsNotResized();
    void nearBlack_data();
    void nearBlack();
    void emptyBitmapIsNotNearBlack();
    void encodesJpeg_data();
    void encodesJpeg();
    void encodesNonContiguousRows();
    void jpegRejectsInvalidSizes();
};

void TestImagePipeline::weightsAddUpToOne_data()
{
    QTest::addColumn<int>("source");
    QTest::addColumn<int>("target");
    for (const auto &[source, target] : std::vector<std::pair<int, int>>{{1281, 1280},
                                                                         {1920, 1280},
                                                                         {3840, 1280},
                                                                         {16384, 1280},
                                                                         {1964, 831},
                                                                         {5, 5},
                                                                         {2, 1},
                                                                         {1, 1},
                                                                         {7, 2}})
        QTest::addRow("%d to %d", source, target) << source << target;
}

void TestImagePipeline::weightsAddUpToOne()
{
    QFETCH(int, source);
    QFETCH(int, target);
    const auto table = LanczosTable::create(source, target, 4);
    QCOMPARE(table.taps % 4, 0);
    QCOMPARE(table.starts.size(), static_cast<std::size_t>(target));
    QCOMPARE(table.weights.size(), static_cast<std::size_t>(target * table.taps));
    for (int i = 0; i < target; ++i) {
        const auto first = table.weights.begin() + i * table.taps;
        QCOMPARE(std::accumulate(first, first + table.taps, 0), 1 << LanczosTable::fractionBits);
        const int start = table.starts[static_cast<std::size_t>(i)];
        QVERIFY(start >= 0);
        for (int t = 0; t < table.taps; ++t)
            QVERIFY(start + t < source || first[t] == 0);
    }
}

void TestImagePipeline::kernelsProduceIdenticalResults_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("channels");
    for (const int width : {1, 3, 10, 11, 64, 100, 1281})
        for (const int channels : {3, 4})
            QTest::addRow("%d pixels, %d channels", width, channels) << width << channels;
}

void TestImagePipeline::kernelsProduceIdenticalResults()
{
    QFETCH(int, width);
    QFETCH(int, channels);
    const int target = std::max(1, width * 2 / 3);
    QRandomGenerator random(5);
    const int samples = width * channels;
    std::vector<std::vector<std::uint8_t>> rows(10);
    std::vector<const std::uint8_t *> pointers;
    for (auto &row : rows) {
        for (int i = 0; i < samples; ++i)
            row.push_back(static_cast<std::uint8_t>(random.bounded(2) ? 255 : random.bounded(256)));
        pointers.push_back(row.data());
    }
    const auto vertical = LanczosTable::create(10, 4, LanczosKernels::verticalMultiple);
    const auto horizontal = LanczosTable::create(width, target, LanczosKernels::horizontalMultiple);
    const auto &portable = LanczosKernels::portable();
    const auto &best = LanczosKernels::best();
    const auto capacity =
        static_cast<std::size_t>(qsizetype{samples} + horizontal.taps * qsizetype{channels} + 64);
    std::vector<std::int16_t> middle(capacity);
    std::vector<std::int16_t> bestMiddle(capacity);
    portable.vertical(pointers.data(), vertical.weights.data(), 10, samples, middle.data());
    best.vertical(pointers.data(), vertical.weights.data(), 10, samples, bestMiddle.data());
    QCOMPARE(bestMiddle, middle);
    // The extra byte detects writes beyond the row.
    std::vector<std::uint8_t> out(static_cast<std::size_t>(target * 3 + 1), 0x77);
    std::vector<std::uint8_t> bestOut = out;
    portable.horizontal(middle.data(), channels, horizontal, target, out.data());
    best.horizontal(middle.data(), channels, horizontal, target, bestOut.data());
    QCOMPARE(bestOut, out);
    QCOMPARE(int{out.back()}, 0x77);
}

void TestImagePipeline::resamplingMatchesReference_data()
{
    QTest::addColumn<QSize>("from");
    QTest::addColumn<QSize>("to");
    QTest::newRow("half") << QSize(120, 80) << QSize(60, 40);
    QTest::newRow("third") << QSize(150, 90) << QSize(50, 30);
    QTest::newRow("odd") << QSize(131, 77) << QSize(100, 59);
    QTest::newRow("one pixel narrower") << QSize(101, 50) << QSize(100, 50);
    QTest::newRow("to one row") << QSize(90, 3) << QSize(40, 1);
    QTest::newRow("to one pixel") << QSize(9, 9) << QSize(1, 1);
    QTest::newRow("from one row") << QSize(90, 1) << QSize(40, 1);
}

void TestImagePipeline::resamplingMatchesReference()
{
    QFETCH(QSize, from);
    QFETCH(QSize, to);
    for (const int channels : {3, 4}) {
        const Bitmap source = bitmapOf(from.width(), from.height(), testPattern, channels);
        const Bitmap scaled = resampleLanczos(source, to.width(), to.height(), 1);
        QCOMPARE(scaled.channels, 3);
        QVERIFY(largestDifference(rgbOf(scaled),
                                  referenceLanczos(source, to.width(), to.height())) <= 1);
    }
}

void TestImagePipeline::resultIsIndependentOfThreadCount()
{
    const Bitmap source = bitmapOf(200, 150, testPattern);
    const QByteArray expected = rgbOf(resampleLanczos(source, 90, 70, 1));
    for (const int threads : {2, 3, 4, 70, 1000})
        QCOMPARE(rgbOf(resampleLanczos(source, 90, 70, threads)), expected);
}

void TestImagePipeline::uniformColourIsPreserved()
{
    for (const int level : {0, 1, 8, 127, 254, 255}) {
        const Bitmap source =
            bitmapOf(300, 200, [level](int, int) { return qRgb(level, level, level); });
        QCOMPARE(rgbOf(resampleLanczos(source, 128, 85, 2)),
                 QByteArray(128 * 85 * 3, static_cast<char>(level)));
    }
}

void TestImagePipeline::resizedDimensions_data()
{
    QTest::addColumn<QSize>("from");
    QTest::addColumn<QSize>("to");
    QTest::newRow("1280") << QSize(1280, 800) << QSize(1280, 800);
    QTest::newRow("narrow and high") << QSize(600, 3000) << QSize(600, 3000);
    QTest::newRow("1281") << QSize(1281, 800) << QSize(1280, 799);
    QTest::newRow("1920") << QSize(1920, 1080) << QSize(1280, 720);
    QTest::newRow("2560") << QSize(2560, 1600) << QSize(1280, 800);
    QTest::newRow("3024") << QSize(3024, 1964) << QSize(1280, 831);
    QTest::newRow("3840") << QSize(3840, 2160) << QSize(1280, 720);
    QTest::newRow("half rounds up") << QSize(2560, 3) << QSize(1280, 2);
    QTest::newRow("smallest height") << QSize(2560, 1) << QSize(1280, 1);
}

void TestImagePipeline::resizedDimensions()
{
    QFETCH(QSize, from);
    QFETCH(QSize, to);
    const Bitmap resized = ScreenshotCapture::resizeIfNeeded(
        bitmapOf(from.width(), from.height(), [](int, int) { return qRgb(1, 2, 3); }));
    QCOMPARE(QSize(resized.width, resized.height), to);
    QCOMPARE(resized.rows.size(), static_cast<std::size_t>(to.height()));
}

void TestImagePipeline::narrowBitmapIsNotResized()
{
    Bitmap bitmap = bitmapOf(1280, 3, testPattern, 4);
    const std::uint8_t *first = bitmap.rows.front();
    const Bitmap resized = ScreenshotCapture::resizeIfNeeded(std::move(bitmap));
    QCOMPARE(resized.rows.front(), first);
    QCOMPARE(resized.channels, 4);
}

void TestImagePipeline::bitmapTooFlatToScaleIsNotResized()
{
    // The scaled height of 0.47 rows would round to zero.
    const Bitmap resized = ScreenshotCapture::resizeIfNeeded(
        bitmapOf(16384, 6, [](int, int) { return qRgb(1, 2, 3); }));
    QCOMPARE(QSize(resized.width, resized.height), QSize(16384, 6));
}

void TestImagePipeline::nearBlack_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QList<QPoint>>("lit");
    QTest::addColumn<QColor>("background");
    QTest::addColumn<QColor>("litColour");
    QTest::addColumn<bool>("expected");

    const QColor black(0, 0, 0);
    const QColor white(255, 255, 255);
    const QList<QPoint> none;
    QTest::newRow("black") << QSize(320, 160) << none << black << white << true;
    QTest::newRow("white") << QSize(320, 160) << none << white << white << false;
    QTest::newRow("8 of 255") << QSize(320, 160) << none << QColor(8, 8, 8) << white << true;
    QTest::newRow("red 9") << QSize(320, 160) << none << QColor(9, 0, 0) << white << false;
    QTest::newRow("green 9") << QSize(320, 160) << none << QColor(0, 9, 0) << white << false;
    QTest::newRow("blue 9") << QSize(320, 160) << none << QColor(0, 0, 9) << white << false;
    QTest::newRow("lit between sample points")
        << QSize(320, 160) << QList<QPoint>{{1, 0}, {15, 15}, {17, 16}, {16, 17}, {319, 159}}
        << black << white << true;
    // 40 x 25 sample points: exactly 99.9 % are dark with one lit, 99.8 % with two.
    QTest::newRow("one of 1000") << QSize(640, 400) << QList<QPoint>{{16, 32}} << black << white
                                 << true;
    QTest::newRow("two of 1000") << QSize(640, 400) << QList<QPoint>{{0, 0}, {624, 384}} << black
                                 << white << false;
    QTest::newRow("two above threshold") << QSize(640, 400) << QList<QPoint>{{0, 0}, {624, 384}}
                                         << black << QColor(8, 9, 8) << false;
    QTest::newRow("two at threshold")
        << QSize(640, 400) << QList<QPoint>{{0, 0}, {624, 384}} << black << QColor(8, 8, 8) << true;
    QTest::newRow("one pixel, black") << QSize(1, 1) << none << black << white << true;
    QTest::newRow("one pixel, lit")
        << QSize(1, 1) << QList<QPoint>{{0, 0}} << black << white << false;
    QTest::newRow("last column on the grid")
        << QSize(17, 1) << QList<QPoint>{{16, 0}} << black << white << false;
    QTest::newRow("last column off the grid")
        << QSize(16, 1) << QList<QPoint>{{15, 0}} << black << white << true;
}

void TestImagePipeline::nearBlack()
{
    QFETCH(QSize, size);
    QFETCH(QList<QPoint>, lit);
    QFETCH(QColor, background);
    QFETCH(QColor, litColour);
    QFETCH(bool, expected);
    for (const int channels : {3, 4}) {
        const Bitmap bitmap = bitmapOf(
            size.width(), size.height(),
            [&](int x, int y) {
                return lit.contains(QPoint(x, y)) ? litColour.rgb() : background.rgb();
            },
            channels);
        QCOMPARE(ScreenshotCapture::isNearBlackFrame(bitmap), expected);
    }
}

void TestImagePipeline::emptyBitmapIsNotNearBlack()
{
    QVERIFY(!ScreenshotCapture::isNearBlackFrame(Bitmap()));
}

void TestImagePipeline::encodesJpeg_data()
{
    QTest::addColumn<int>("channels");
    QTest::newRow("RGB") << 3;
    QTest::newRow("RGBX") << 4;
}

void TestImagePipeline::encodesJpeg()
{
    QFETCH(int, channels);
    const auto smooth = [](int x, int y) { return qRgb(x % 256, y, 128); };
    const Bitmap bitmap = bitmapOf(321, 200, smooth, channels);
    const QByteArray jpeg = encodeJpeg(bitmap, 85);
    QVERIFY(jpeg.startsWith("\xff\xd8\xff"));
    QVERIFY(jpeg.endsWith("\xff\xd9"));
    const QImage image = QImage::fromData(jpeg, "JPG");
    QCOMPARE(image.size(), QSize(321, 200));
    for (int y = 0; y < 200; y += 7) {
        for (int x = 0; x < 250; x += 7) {
            const QRgb actual = image.pixel(x, y);
            const QRgb expected = smooth(x, y);
            QVERIFY(std::abs(qRed(actual) - qRed(expected)) < 12);
            QVERIFY(std::abs(qGreen(actual) - qGreen(expected)) < 12);
            QVERIFY(std::abs(qBlue(actual) - qBlue(expected)) < 12);
        }
    }
    // The first luminance quantiser for quality 85, derived from the standard table.
    const qsizetype table = jpeg.indexOf("\xff\xdb");
    QCOMPARE(int{jpeg[table + 5]}, (16 * 30 + 50) / 100);
}

void TestImagePipeline::encodesNonContiguousRows()
{
    const Bitmap contiguous = bitmapOf(50, 40, testPattern);
    Bitmap scattered = bitmapOf(50, 80, [](int x, int y) { return testPattern(x, y / 2); });
    for (std::size_t y = 0; y < 40; ++y)
        scattered.rows[y] = scattered.rows[y * 2];
    scattered.rows.resize(40);
    scattered.height = 40;
    QCOMPARE(encodeJpeg(scattered, 85), encodeJpeg(contiguous, 85));
}

void TestImagePipeline::jpegRejectsInvalidSizes()
{
    QVERIFY(encodeJpeg(Bitmap(), 85).isEmpty());
    const Bitmap tooHigh = bitmapOf(1, 70'000, [](int, int) { return qRgb(1, 2, 3); });
    QVERIFY(encodeJpeg(tooHigh, 85).isEmpty());
}

QUELLORA_TEST(QCoreApplication, TestImagePipeline)
#include "test_image_pipeline.moc"
