#include "PngSamples.h"
#include "query/PngDecoder.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QObject>
#include <QRandomGenerator>
#include <QTest>

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

/// An uncompressed zlib stream in blocks of @p blockSize bytes.
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

/// An uncompressed PNG whose rows all have the given filter type.
QByteArray storedFile(int width, int height, int filter, qsizetype blockSize, int colour = 2)
{
    QRandomGenerator random(9);
    QByteArray rows;
    for (int y = 0; y < height; ++y) {
        rows += static_cast<char>(filter);
        for (int i = 0; i < width * (colour == 2 ? 3 : 4); ++i)
            rows += static_cast<char>(random.bounded(256));
    }
    return signature +
           header(static_cast<quint32>(width), static_cast<quint32>(height), 8, colour) +
           chunk("IDAT", stored(rows, blockSize)) + chunk("IEND", {});
}

} // namespace

class TestPngDecoder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void decodesAllColourTypes_data();
    void decodesAllColourTypes();
    void decodesAllFilters_data();
    void decodesAllFilters();
    void decodesUncompressedRows_data();
    void decodesUncompressedRows();
    void usesUncompressedRowsInPlace();
    void rejectsTruncatedFiles_data();
    void rejectsTruncatedFiles();
    void detectsBitFlips();
    void rejectsWrongChecksum();
    void rejectsInvalidSizes_data();
    void rejectsInvalidSizes();
    void rejectsInvalidData_data();
    void rejectsInvalidData();
};

void TestPngDecoder::decodesAllColourTypes_data()
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

void TestPngDecoder::decodesAllColourTypes()
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

void TestPngDecoder::decodesAllFilters_data()
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

void TestPngDecoder::decodesAllFilters()
{
    QFETCH(int, colour);
    QFETCH(int, filters);
    QFETCH(int, level);
    for (const int chunkSize : {100, 8192, 1 << 20}) {
        PngSample sample{211, 97, 8, colour, false, level, filters, chunkSize};
        const QByteArray file = writePng(sample, static_cast<quint32>(filters + level));
        const auto bitmap = decodePng(file);
        QVERIFY(bitmap.has_value());
        QCOMPARE(rgbOf(*bitmap), readWithLibpng(file));
    }
}

void TestPngDecoder::decodesUncompressedRows_data()
{
    QTest::addColumn<int>("blockSize");
    for (const int size : {1, 2, 3, 91, 92, 93, 1000, 65535})
        QTest::addRow("%d", size) << size;
}

void TestPngDecoder::decodesUncompressedRows()
{
    QFETCH(int, blockSize);
    for (const int filter : {0, 1, 2, 3, 4}) {
        const QByteArray file = storedFile(30, 40, filter, blockSize);
        const auto bitmap = decodePng(file);
        QVERIFY(bitmap.has_value());
        QCOMPARE(rgbOf(*bitmap), readWithLibpng(file));
    }
}

void TestPngDecoder::usesUncompressedRowsInPlace()
{
    for (const int colour : {2, 6}) {
        const QByteArray file = storedFile(30, 40, 0, 65535, colour);
        const auto bitmap = decodePng(file);
        QVERIFY(bitmap.has_value());
        QCOMPARE(rgbOf(*bitmap), readWithLibpng(file));
        const auto *begin =
            static_cast<const std::uint8_t *>(static_cast<const void *>(file.data()));
        for (const std::uint8_t *row : bitmap->rows)
            QVERIFY(row >= begin && row + bitmap->rowBytes() <= begin + file.size());
    }
}

void TestPngDecoder::rejectsTruncatedFiles_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("stored") << storedFile(12, 9, 0, 100);
    QTest::newRow("compressed") << writePng({20, 12});
    QTest::newRow("interlaced") << writePng({20, 12, 8, 2, true});
    QTest::newRow("palette") << writePng({20, 12, 4, 3});
}

void TestPngDecoder::rejectsTruncatedFiles()
{
    QFETCH(QByteArray, file);
    QVERIFY(decodePng(file).has_value());
    // The image is complete before the checksum of IEND, which has no data.
    const qsizetype dataEnd = file.size() - 12 - 4;
    for (qsizetype size = 0; size < dataEnd; ++size)
        QVERIFY2(!decodePng(file.left(size)).has_value(), qPrintable(QString::number(size)));
}

void TestPngDecoder::detectsBitFlips()
{
    for (const QByteArray &file : {storedFile(12, 9, 4, 100), writePng({20, 12, 8, 6})}) {
        const QByteArray expected = rgbOf(*decodePng(file));
        for (qsizetype i = 0; i < file.size() * 8; ++i) {
            QByteArray damaged = file;
            damaged[i / 8] = static_cast<char>(damaged[i / 8] ^ (1 << (i % 8)));
            // A bit flip is either detected or does not change the image.
            const auto bitmap = decodePng(damaged);
            QVERIFY2(!bitmap || rgbOf(*bitmap) == expected, qPrintable(QString::number(i)));
        }
    }
}

void TestPngDecoder::rejectsWrongChecksum()
{
    // The chunk checksums are correct, but that of the zlib stream is wrong.
    QByteArray rows(10 * 31, '\0');
    QByteArray stream = stored(rows, 100);
    stream.back() = static_cast<char>(stream.back() ^ 1);
    const QByteArray file = signature + header(10, 10) + chunk("IDAT", stream) + chunk("IEND", {});
    QVERIFY(!decodePng(file).has_value());
}

void TestPngDecoder::rejectsInvalidSizes_data()
{
    QTest::addColumn<quint32>("width");
    QTest::addColumn<quint32>("height");
    QTest::newRow("zero width") << 0u << 10u;
    QTest::newRow("zero height") << 10u << 0u;
    QTest::newRow("too wide") << 32768u << 1u;
    QTest::newRow("too high") << 1u << 32768u;
    QTest::newRow("too many pixels") << 16384u << 16384u;
    QTest::newRow("maximum values") << 0xffffffffu << 0xffffffffu;
    QTest::newRow("less data than declared") << 8000u << 8000u;
}

void TestPngDecoder::rejectsInvalidSizes()
{
    QFETCH(quint32, width);
    QFETCH(quint32, height);
    for (const int colour : {2, 6, 0}) {
        const QByteArray file = signature + header(width, height, 8, colour) +
                                chunk("IDAT", stored(QByteArray(32768 * 4 + 1, '\0'), 65535)) +
                                chunk("IEND", {});
        QVERIFY(!decodePng(file).has_value());
    }
}

void TestPngDecoder::rejectsInvalidData_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("not a picture");
    QTest::newRow("signature only") << signature;
    QTest::newRow("no data") << signature + header(1, 1) + chunk("IEND", {});
    QTest::newRow("JPEG") << QByteArray("\xff\xd8\xff\xe0 more", 9);
    QTest::newRow("chunk longer than the file")
        << signature + header(1, 1) + QByteArray("\xff\xff\xff\xffIDATxxxx", 12);
    QTest::newRow("unknown critical chunk") << signature + header(1, 1) + chunk("ABCD", {}) +
                                                   chunk("IDAT", stored(QByteArray(4, '\0'), 10)) +
                                                   chunk("IEND", {});
    QTest::newRow("unknown filter") << signature + header(1, 1) +
                                           chunk("IDAT", stored(QByteArray("\x05\1\2\3", 4), 10)) +
                                           chunk("IEND", {});
}

void TestPngDecoder::rejectsInvalidData()
{
    QFETCH(QByteArray, file);
    QVERIFY(!decodePng(file).has_value());
}

QUELLORA_TEST(QCoreApplication, TestPngDecoder)
#include "test_png_decoder.moc"
