#include "PngSamples.h"
#include "query/JpegEncoder.h"
#include "query/LanczosResampler.h"
#include "query/PngDecoder.h"
#include "query/PngFilters.h"
#include "query/ScreenshotCapture.h"

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

quint32 crc(const QByteArray &bytes)
{
    quint32 sum = 0xffffffff;
    for (const char c : bytes) {
        sum ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            sum = (sum >> 1) ^ ((sum & 1) != 0 ? 0xedb88320 : 0);
    }
    return ~sum;
}

QByteArray bigEndian(quint32 value)
{
    QByteArray bytes(4, '\0');
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<char>(value >> (24 - 8 * i));
    return bytes;
}

QByteArray chunk(const QByteArray &type, const QByteArray &body)
{
    return bigEndian(static_cast<quint32>(body.size())) + type + body + bigEndian(crc(type + body));
}

QByteArray header(quint32 width, quint32 height, int depth = 8, int colour = 2)
{
    return chunk("IHDR", bigEndian(width) + bigEndian(height) + static_cast<char>(depth) +
                             static_cast<char>(colour) + QByteArray(3, '\0'));
}

const QByteArray signature("\x89PNG\r\n\x1a\n", 8);

/// A zlib stream without compression, in blocks of @p blockSize.
QByteArray stored(const QByteArray &bytes, qsizetype blockSize)
{
    QByteArray stream("\x78\x01", 2);
    quint32 a = 1;
    quint32 b = 0;
    for (const char c : bytes) {
        a = (a + static_cast<unsigned char>(c)) % 65521;
        b = (b + a) % 65521;
    }
    for (qsizetype at = 0; at < bytes.size(); at += blockSize) {
        const QByteArray block = bytes.mid(at, blockSize);
        const auto length = static_cast<quint32>(block.size());
        stream += at + blockSize >= bytes.size() ? '\1' : '\0';
        stream += static_cast<char>(length & 0xff);
        stream += static_cast<char>(length >> 8);
        stream += static_cast<char>(~length & 0xff);
        stream += static_cast<char>((~length >> 8) & 0xff);
        stream += block;
    }
    return stream + bigEndian(b << 16 | a);
}

/// Uncompressed RGB file whose rows carry the given filter.
QByteArray storedFile(int width, int height, int filter, qsizetype blockSize)
{
    QRandomGenerator random(9);
    QByteArray rows;
    for (int y = 0; y < height; ++y) {
        rows += static_cast<char>(filter);
        for (int i = 0; i < width * 3; ++i)
            rows += static_cast<char>(random.bounded(256));
    }
    return signature + header(static_cast<quint32>(width), static_cast<quint32>(height)) +
           chunk("IDAT", stored(rows, blockSize)) + chunk("IEND", {});
}

double lanczos(double x)
{
    if (x == 0.0)
        return 1.0;
    if (std::abs(x) >= 3.0)
        return 0.0;
    const double angle = std::numbers::pi * x;
    return 3.0 * std::sin(angle) * std::sin(angle / 3.0) / (angle * angle);
}

/// One axis in double precision, straight from the definition.
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

QByteArray exactLanczos(const Bitmap &source, int width, int height)
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

QRgb busy(int x, int y)
{
    const auto hash =
        static_cast<quint32>(x / 3 * 73856093) ^ static_cast<quint32>(y / 2 * 19349663);
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
    void decodesEveryKind_data();
    void decodesEveryKind();
    void decodesEveryFilter_data();
    void decodesEveryFilter();
    void decodesStoredRows_data();
    void decodesStoredRows();
    void keepsStoredRowsWhereTheyAre();
    void refusesTruncatedFiles_data();
    void refusesTruncatedFiles();
    void refusesDamagedFiles();
    void refusesWrongCheckSum();
    void refusesUnreasonableSizes_data();
    void refusesUnreasonableSizes();
    void refusesOtherData_data();
    void refusesOtherData();

    void weightsAddUpToOne_data();
    void weightsAddUpToOne();
    void kernelsAgree_data();
    void kernelsAgree();
    void resamplesLikeExactArithmetic_data();
    void resamplesLikeExactArithmetic();
    void bandsMakeNoDifference();
    void flatStaysFlat();

    void resizesToTheRightSize_data();
    void resizesToTheRightSize();
    void narrowBitmapIsUntouched();
    void bitmapTooFlatToScaleIsUntouched();

    void nearBlack_data();
    void nearBlack();
    void nothingIsNotNearBlack();

    void encodesJpeg_data();
    void encodesJpeg();
    void encodesScatteredRows();
    void jpegRefusesWhatItCannotHold();
};

void TestImagePipeline::decodesEveryKind_data()
{
    QTest::addColumn<int>("colour");
    QTest::addColumn<int>("depth");
    QTest::addColumn<bool>("interlaced");
    const std::vector<std::pair<int, std::vector<int>>> kinds{
        {0, {1, 2, 4, 8, 16}}, {2, {8, 16}}, {3, {1, 2, 4, 8}}, {4, {8, 16}}, {6, {8, 16}}};
    for (const auto &[colour, depths] : kinds) {
        for (const int depth : depths) {
            for (const bool interlaced : {false, true})
                QTest::addRow("colour %d depth %d%s", colour, depth,
                              interlaced ? " interlaced" : "")
                    << colour << depth << interlaced;
        }
    }
}

void TestImagePipeline::decodesEveryKind()
{
    QFETCH(int, colour);
    QFETCH(int, depth);
    QFETCH(bool, interlaced);
    for (const int width : {1, 2, 7, 64, 131}) {
        for (const int height : {1, 3, 40}) {
            const QByteArray file = writePng({width, height, depth, colour, interlaced});
            const auto bitmap = decodePng(file);
            QVERIFY(bitmap.has_value());
            QCOMPARE(bitmap->width, width);
            QCOMPARE(bitmap->height, height);
            QCOMPARE(rgbOf(*bitmap), readWithLibpng(file));
        }
    }
}

void TestImagePipeline::decodesEveryFilter_data()
{
    QTest::addColumn<int>("colour");
    QTest::addColumn<int>("filters");
    QTest::addColumn<int>("level");
    for (const int colour : {2, 6}) {
        for (const int filters : {0x08, 0x10, 0x20, 0x40, 0x80, 0xf8}) {
            for (const int level : {0, 1, 9})
                QTest::addRow("colour %d filters %#x level %d", colour, filters, level)
                    << colour << filters << level;
        }
    }
}

void TestImagePipeline::decodesEveryFilter()
{
    QFETCH(int, colour);
    QFETCH(int, filters);
    QFETCH(int, level);
    for (const int chunkSize : {100, 8192, 1 << 20}) {
        PngSample sample{211, 97, 8, colour, false, level, filters, chunkSize};
        const QByteArray file = writePng(sample, static_cast<quint32>(filters + level));
        const auto bitmap = decodePng(file);
        QVERIFY(bitmap.has_value());
        QCOMPARE(bitmap->channels, colour == 2 ? 3 : 4); // read by the quick way
        QCOMPARE(rgbOf(*bitmap), readWithLibpng(file));
    }
}

void TestImagePipeline::decodesStoredRows_data()
{
    QTest::addColumn<int>("blockSize");
    for (const int size : {1, 2, 3, 91, 92, 93, 1000, 65535})
        QTest::addRow("%d", size) << size;
}

void TestImagePipeline::decodesStoredRows()
{
    QFETCH(int, blockSize);
    for (const int filter : {0, 1, 2, 3, 4}) {
        const QByteArray file = storedFile(30, 40, filter, blockSize);
        const auto bitmap = decodePng(file);
        QVERIFY(bitmap.has_value());
        QCOMPARE(rgbOf(*bitmap), readWithLibpng(file));
    }
}

void TestImagePipeline::keepsStoredRowsWhereTheyAre()
{
    const QByteArray file = storedFile(30, 40, 0, 65535);
    const auto bitmap = decodePng(file);
    QVERIFY(bitmap.has_value());
    const auto *begin = static_cast<const std::uint8_t *>(static_cast<const void *>(file.data()));
    for (const std::uint8_t *row : bitmap->rows)
        QVERIFY(row >= begin && row + bitmap->rowBytes() <= begin + file.size());
}

void TestImagePipeline::refusesTruncatedFiles_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("stored") << storedFile(12, 9, 0, 100);
    QTest::newRow("compressed") << writePng({20, 12});
    QTest::newRow("interlaced") << writePng({20, 12, 8, 2, true});
    QTest::newRow("palette") << writePng({20, 12, 4, 3});
}

void TestImagePipeline::refusesTruncatedFiles()
{
    QFETCH(QByteArray, file);
    QVERIFY(decodePng(file).has_value());
    // The picture is complete before the end mark, which carries nothing.
    const qsizetype dataEnd = file.size() - 12 - 4;
    for (qsizetype size = 0; size < dataEnd; ++size)
        QVERIFY2(!decodePng(file.left(size)).has_value(), qPrintable(QString::number(size)));
}

void TestImagePipeline::refusesDamagedFiles()
{
    for (const QByteArray &file : {storedFile(12, 9, 4, 100), writePng({20, 12, 8, 6})}) {
        const QByteArray expected = rgbOf(*decodePng(file));
        for (qsizetype i = 0; i < file.size() * 8; ++i) {
            QByteArray damaged = file;
            damaged[i / 8] = static_cast<char>(damaged[i / 8] ^ (1 << (i % 8)));
            // Whatever the damage, there is no other picture.
            const auto bitmap = decodePng(damaged);
            QVERIFY2(!bitmap || rgbOf(*bitmap) == expected, qPrintable(QString::number(i)));
        }
    }
}

void TestImagePipeline::refusesWrongCheckSum()
{
    // Chunk sums are right, but the stream's own is not.
    QByteArray rows(10 * 31, '\0');
    QByteArray stream = stored(rows, 100);
    stream.back() = static_cast<char>(stream.back() ^ 1);
    const QByteArray file = signature + header(10, 10) + chunk("IDAT", stream) + chunk("IEND", {});
    QVERIFY(!decodePng(file).has_value());
}

void TestImagePipeline::refusesUnreasonableSizes_data()
{
    QTest::addColumn<quint32>("width");
    QTest::addColumn<quint32>("height");
    QTest::newRow("no width") << 0u << 10u;
    QTest::newRow("no height") << 10u << 0u;
    QTest::newRow("too wide") << 16385u << 1u;
    QTest::newRow("too high") << 1u << 16385u;
    QTest::newRow("too many pixels") << 16384u << 16384u;
    QTest::newRow("largest numbers") << 0xffffffffu << 0xffffffffu;
    QTest::newRow("less data than announced") << 8000u << 8000u;
}

void TestImagePipeline::refusesUnreasonableSizes()
{
    QFETCH(quint32, width);
    QFETCH(quint32, height);
    for (const int colour : {2, 6, 0}) {
        const QByteArray file = signature + header(width, height, 8, colour) +
                                chunk("IDAT", stored(QByteArray(16385 * 4 + 1, '\0'), 65535)) +
                                chunk("IEND", {});
        QVERIFY(!decodePng(file).has_value());
    }
}

void TestImagePipeline::refusesOtherData_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("not a picture");
    QTest::newRow("signature alone") << signature;
    QTest::newRow("no data") << signature + header(1, 1) + chunk("IEND", {});
    QTest::newRow("JPEG") << encodeJpeg(bitmapOf(8, 8, busy), 85);
    QTest::newRow("chunk longer than the file")
        << signature + header(1, 1) + QByteArray("\xff\xff\xff\xffIDATxxxx", 12);
    QTest::newRow("unknown critical chunk") << signature + header(1, 1) + chunk("ABCD", {}) +
                                                   chunk("IDAT", stored(QByteArray(4, '\0'), 10)) +
                                                   chunk("IEND", {});
    QTest::newRow("unknown filter") << signature + header(1, 1) +
                                           chunk("IDAT", stored(QByteArray("\x05\1\2\3", 4), 10)) +
                                           chunk("IEND", {});
}

void TestImagePipeline::refusesOtherData()
{
    QFETCH(QByteArray, file);
    QVERIFY(!decodePng(file).has_value());
}

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

void TestImagePipeline::kernelsAgree_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("channels");
    for (const int width : {1, 3, 10, 11, 64, 100, 1281})
        for (const int channels : {3, 4})
            QTest::addRow("%d pixels of %d", width, channels) << width << channels;
}

void TestImagePipeline::kernelsAgree()
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
    const auto &plain = LanczosKernels::portable();
    const auto &best = LanczosKernels::best();
    const auto room = static_cast<std::size_t>(samples + horizontal.taps * channels + 64);
    std::vector<std::int16_t> middle(room);
    std::vector<std::int16_t> bestMiddle(room);
    plain.vertical(pointers.data(), vertical.weights.data(), 10, samples, middle.data());
    best.vertical(pointers.data(), vertical.weights.data(), 10, samples, bestMiddle.data());
    QCOMPARE(bestMiddle, middle);
    // One byte more, to see that nobody writes behind the row.
    std::vector<std::uint8_t> out(static_cast<std::size_t>(target * 3 + 1), 0x77);
    std::vector<std::uint8_t> bestOut = out;
    plain.horizontal(middle.data(), channels, horizontal, target, out.data());
    best.horizontal(middle.data(), channels, horizontal, target, bestOut.data());
    QCOMPARE(bestOut, out);
    QCOMPARE(int{out.back()}, 0x77);
}

void TestImagePipeline::resamplesLikeExactArithmetic_data()
{
    QTest::addColumn<QSize>("from");
    QTest::addColumn<QSize>("to");
    QTest::newRow("half") << QSize(120, 80) << QSize(60, 40);
    QTest::newRow("third") << QSize(150, 90) << QSize(50, 30);
    QTest::newRow("odd") << QSize(131, 77) << QSize(100, 59);
    QTest::newRow("hardly") << QSize(101, 50) << QSize(100, 50);
    QTest::newRow("to one row") << QSize(90, 3) << QSize(40, 1);
    QTest::newRow("to one pixel") << QSize(9, 9) << QSize(1, 1);
    QTest::newRow("one row") << QSize(90, 1) << QSize(40, 1);
}

void TestImagePipeline::resamplesLikeExactArithmetic()
{
    QFETCH(QSize, from);
    QFETCH(QSize, to);
    for (const int channels : {3, 4}) {
        const Bitmap source = bitmapOf(from.width(), from.height(), busy, channels);
        const Bitmap scaled = resampleLanczos(source, to.width(), to.height(), 1);
        QCOMPARE(scaled.channels, 3);
        QVERIFY(largestDifference(rgbOf(scaled), exactLanczos(source, to.width(), to.height())) <=
                1);
    }
}

void TestImagePipeline::bandsMakeNoDifference()
{
    const Bitmap source = bitmapOf(200, 150, busy);
    const QByteArray expected = rgbOf(resampleLanczos(source, 90, 70, 1));
    for (const int threads : {2, 3, 4, 70, 1000})
        QCOMPARE(rgbOf(resampleLanczos(source, 90, 70, threads)), expected);
}

void TestImagePipeline::flatStaysFlat()
{
    for (const int level : {0, 1, 8, 127, 254, 255}) {
        const Bitmap source =
            bitmapOf(300, 200, [level](int, int) { return qRgb(level, level, level); });
        QCOMPARE(rgbOf(resampleLanczos(source, 128, 85, 2)),
                 QByteArray(128 * 85 * 3, static_cast<char>(level)));
    }
}

void TestImagePipeline::resizesToTheRightSize_data()
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

void TestImagePipeline::resizesToTheRightSize()
{
    QFETCH(QSize, from);
    QFETCH(QSize, to);
    const Bitmap resized = ScreenshotCapture::resizeIfNeeded(
        bitmapOf(from.width(), from.height(), [](int, int) { return qRgb(1, 2, 3); }));
    QCOMPARE(QSize(resized.width, resized.height), to);
    QCOMPARE(resized.rows.size(), static_cast<std::size_t>(to.height()));
}

void TestImagePipeline::narrowBitmapIsUntouched()
{
    Bitmap bitmap = bitmapOf(1280, 3, busy, 4);
    const std::uint8_t *first = bitmap.rows.front();
    const Bitmap resized = ScreenshotCapture::resizeIfNeeded(std::move(bitmap));
    QCOMPARE(resized.rows.front(), first);
    QCOMPARE(resized.channels, 4);
}

void TestImagePipeline::bitmapTooFlatToScaleIsUntouched()
{
    // 6 rows would become 0.47, and a bitmap without rows cannot be created.
    const Bitmap resized = ScreenshotCapture::resizeIfNeeded(
        bitmapOf(16384, 6, [](int, int) { return qRgb(1, 2, 3); }));
    QCOMPARE(QSize(resized.width, resized.height), QSize(16384, 6));
}

void TestImagePipeline::nearBlack_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QList<QPoint>>("lit");
    QTest::addColumn<QColor>("ground");
    QTest::addColumn<QColor>("light");
    QTest::addColumn<bool>("refused");

    const QColor black(0, 0, 0);
    const QColor white(255, 255, 255);
    const QList<QPoint> none;
    QTest::newRow("black") << QSize(320, 160) << none << black << white << true;
    QTest::newRow("white") << QSize(320, 160) << none << white << white << false;
    QTest::newRow("8 of 255") << QSize(320, 160) << none << QColor(8, 8, 8) << white << true;
    QTest::newRow("red 9") << QSize(320, 160) << none << QColor(9, 0, 0) << white << false;
    QTest::newRow("green 9") << QSize(320, 160) << none << QColor(0, 9, 0) << white << false;
    QTest::newRow("blue 9") << QSize(320, 160) << none << QColor(0, 0, 9) << white << false;
    QTest::newRow("light between the points")
        << QSize(320, 160) << QList<QPoint>{{1, 0}, {15, 15}, {17, 16}, {16, 17}, {319, 159}}
        << black << white << true;
    // 40 x 25 points: one lit leaves exactly 999 of 1000 dark, two leave 998.
    QTest::newRow("one of 1000") << QSize(640, 400) << QList<QPoint>{{16, 32}} << black << white
                                 << true;
    QTest::newRow("two of 1000") << QSize(640, 400) << QList<QPoint>{{0, 0}, {624, 384}} << black
                                 << white << false;
    QTest::newRow("two barely lit") << QSize(640, 400) << QList<QPoint>{{0, 0}, {624, 384}} << black
                                    << QColor(8, 9, 8) << false;
    QTest::newRow("two not lit enough")
        << QSize(640, 400) << QList<QPoint>{{0, 0}, {624, 384}} << black << QColor(8, 8, 8) << true;
    QTest::newRow("one pixel, black") << QSize(1, 1) << none << black << white << true;
    QTest::newRow("one pixel, lit")
        << QSize(1, 1) << QList<QPoint>{{0, 0}} << black << white << false;
    QTest::newRow("last column on a multiple")
        << QSize(17, 1) << QList<QPoint>{{16, 0}} << black << white << false;
    QTest::newRow("last column between")
        << QSize(16, 1) << QList<QPoint>{{15, 0}} << black << white << true;
}

void TestImagePipeline::nearBlack()
{
    QFETCH(QSize, size);
    QFETCH(QList<QPoint>, lit);
    QFETCH(QColor, ground);
    QFETCH(QColor, light);
    QFETCH(bool, refused);
    for (const int channels : {3, 4}) {
        const Bitmap bitmap = bitmapOf(
            size.width(), size.height(),
            [&](int x, int y) { return lit.contains(QPoint(x, y)) ? light.rgb() : ground.rgb(); },
            channels);
        QCOMPARE(ScreenshotCapture::isNearBlackFrame(bitmap), refused);
    }
}

void TestImagePipeline::nothingIsNotNearBlack()
{
    QVERIFY(!ScreenshotCapture::isNearBlackFrame(Bitmap()));
}

void TestImagePipeline::encodesJpeg_data()
{
    QTest::addColumn<int>("channels");
    QTest::newRow("RGB") << 3;
    QTest::newRow("RGB and one more") << 4;
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
            const QRgb is = image.pixel(x, y);
            const QRgb was = smooth(x, y);
            QVERIFY(std::abs(qRed(is) - qRed(was)) < 12);
            QVERIFY(std::abs(qGreen(is) - qGreen(was)) < 12);
            QVERIFY(std::abs(qBlue(is) - qBlue(was)) < 12);
        }
    }
    // The first luminance step of quality 85, by the standard's table.
    const qsizetype table = jpeg.indexOf("\xff\xdb");
    QCOMPARE(int{jpeg[table + 5]}, (16 * 30 + 50) / 100);
}

void TestImagePipeline::encodesScatteredRows()
{
    const QByteArray file = storedFile(50, 40, 0, 1000);
    const auto scattered = decodePng(file);
    QVERIFY(scattered.has_value());
    const QByteArray rgb = rgbOf(*scattered);
    const Bitmap even = bitmapOf(50, 40, [&rgb](int x, int y) {
        const auto *pixel =
            static_cast<const unsigned char *>(static_cast<const void *>(rgb.data())) +
            (y * 50 + x) * 3;
        return qRgb(pixel[0], pixel[1], pixel[2]);
    });
    QCOMPARE(encodeJpeg(*scattered, 85), encodeJpeg(even, 85));
}

void TestImagePipeline::jpegRefusesWhatItCannotHold()
{
    QVERIFY(encodeJpeg(Bitmap(), 85).isEmpty());
    const Bitmap tooHigh = bitmapOf(1, 70'000, [](int, int) { return qRgb(1, 2, 3); });
    QVERIFY(encodeJpeg(tooHigh, 85).isEmpty());
}

QTEST_GUILESS_MAIN(TestImagePipeline)
#include "test_image_pipeline.moc"
