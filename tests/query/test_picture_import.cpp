// Tests importing pictures that the user pastes or drops.

#include "query/PictureImport.h"
#include "support/TestProgram.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QImageWriter>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace quellora;

namespace {

const QString tooLarge = QStringLiteral("The picture is larger than 20 MB.");
const QString tooManyPixels = QStringLiteral("The picture has more than 64 megapixels.");
const QString damaged = QStringLiteral("The picture is damaged.");

QImage picture(int width, int height, const QColor &color = Qt::red)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(color);
    return image;
}

QByteArray
encoded(const QImage &image, const char *format,
        QImageIOHandler::Transformations transformation = QImageIOHandler::TransformationNone)
{
    QBuffer buffer;
    QImageWriter writer(&buffer, format);
    writer.setTransformation(transformation);
    if (!writer.write(image))
        qFatal("the test picture cannot be written: %s", qPrintable(writer.errorString()));
    return buffer.data();
}

/// A JPEG whose header names another size.
QByteArray jpegOfSize(int width, int height)
{
    QByteArray jpeg = encoded(picture(16, 16), "jpeg");
    const qsizetype frame = jpeg.indexOf("\xff\xc0");
    jpeg[frame + 5] = char(height >> 8);
    jpeg[frame + 6] = char(height);
    jpeg[frame + 7] = char(width >> 8);
    jpeg[frame + 8] = char(width);
    return jpeg;
}

QString problem(const QByteArray &bytes)
{
    const auto outcome = PictureImport::convert({bytes, {}});
    return outcome ? QString() : outcome.error();
}

} // namespace

class TestPictureImport : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void formats_data()
    {
        QTest::addColumn<QByteArray>("format");
        for (const char *format : {"png", "jpeg", "webp"})
            QTest::newRow(format) << QByteArray(format);
    }
    void formats()
    {
        QFETCH(QByteArray, format);
        const auto outcome =
            PictureImport::convert({encoded(picture(300, 200), format.constData()), {}});
        QVERIFY2(outcome, outcome ? "" : qPrintable(outcome.error()));
        QVERIFY(outcome->startsWith("\xff\xd8\xff"));
        const QImage image = QImage::fromData(*outcome);
        QCOMPARE(image.size(), QSize(300, 200));
        QVERIFY(qRed(image.pixel(150, 100)) > 240 && qBlue(image.pixel(150, 100)) < 15);
    }

    void widePicturesAreReducedAsCapturesAre_data() { formats_data(); }
    void widePicturesAreReducedAsCapturesAre()
    {
        QFETCH(QByteArray, format);
        for (const QSize &size : {QSize(1281, 100), QSize(2600, 1300), QSize(6000, 1)}) {
            const auto outcome = PictureImport::convert(
                {encoded(picture(size.width(), size.height()), format.constData()), {}});
            QVERIFY(outcome);
            const QSize reduced = QImage::fromData(*outcome).size();
            QCOMPARE(reduced.width(), 1280);
            QVERIFY(std::abs(reduced.height() - 1280.0 * size.height() / size.width()) <= 1);
        }
    }

    void transparencyBecomesWhite()
    {
        const auto outcome =
            PictureImport::convert({encoded(picture(40, 40, QColor(0, 0, 0, 0)), "png"), {}});
        QVERIFY(outcome);
        QCOMPARE(QImage::fromData(*outcome).pixel(20, 20), qRgb(255, 255, 255));
    }

    void rotatedPhotosAreUpright()
    {
        const auto outcome = PictureImport::convert(
            {encoded(picture(300, 200), "jpeg", QImageIOHandler::TransformationRotate90), {}});
        QVERIFY(outcome);
        QCOMPARE(QImage::fromData(*outcome).size(), QSize(200, 300));
    }

    void otherFormatsAreRefused_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("text") << QByteArray("picture");
        QTest::newRow("bmp") << encoded(picture(4, 4), "bmp");
        QTest::newRow("gif") << QByteArray("GIF89a\1\0\1\0\0\0\0;", 14);
        QTest::newRow("svg") << QByteArray("<svg xmlns='http://www.w3.org/2000/svg'/>");
        QTest::newRow("sound") << QByteArray("RIFF\0\0\0\0WAVEfmt ", 16);
        QTest::newRow("cut signature") << QByteArray("\x89PNG\r\n");
    }
    void otherFormatsAreRefused()
    {
        QFETCH(QByteArray, bytes);
        QCOMPARE(problem(bytes), PictureImport::formatProblem());
    }

    void damagedPicturesAreRefused_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const QByteArray png = encoded(picture(300, 200), "png");
        QTest::newRow("signature") << png.left(8);
        QTest::newRow("half a PNG") << png.left(png.size() / 2);
        QTest::newRow("garbled PNG") << png.left(40) + QByteArray(png.size() - 40, 'x');
        QTest::newRow("PNG without its end") << png.left(png.size() - 12);
        QTest::newRow("start of a JPEG") << QByteArray("\xff\xd8\xff\xe0");
        QTest::newRow("JPEG without a side") << jpegOfSize(0, 100);
        QTest::newRow("head of a WebP") << QByteArray("RIFF\4\0\0\0WEBP", 12);
        const QByteArray webp = encoded(picture(300, 200), "webp");
        QTest::newRow("half a WebP") << webp.left(webp.size() / 2);
    }
    void damagedPicturesAreRefused()
    {
        QFETCH(QByteArray, bytes);
        QCOMPARE(problem(bytes), damaged);
    }

    /// A file of 57 bytes, one chunk of which claims to have a gigabyte.
    void chunksThatAreLongerThanTheFileReserveNoMemory()
    {
        const auto peak = [] {
            QFile status(QStringLiteral("/proc/self/status"));
            if (!status.open(QIODevice::ReadOnly))
                return -1;
            const QByteArray text = status.readAll();
            const qsizetype at = text.indexOf("VmHWM:") + 6;
            return text.mid(at, text.indexOf("kB", at) - at).trimmed().toInt();
        };
        const int before = peak();
        QCOMPARE(problem(QByteArray::fromBase64("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABAQMAAAAl21bKP"
                                                "////2lUWHQp1YOAAAAAAElFTkSuQmCC")),
                 damaged);
        if (before < 0)
            QSKIP("This system does not tell how much memory was used");
        QVERIFY(peak() - before < 200'000);
    }

    void sizesAreLimited()
    {
        QCOMPARE(problem(jpegOfSize(8000, 8001)), tooManyPixels);
        QCOMPARE(problem(jpegOfSize(65500, 65500)), tooManyPixels);
        QVERIFY(problem(jpegOfSize(8000, 8000)) != tooManyPixels);
        QCOMPARE(problem(jpegOfSize(32768, 10)),
                 QStringLiteral("The picture is too wide or too high."));
        QCOMPARE(problem(jpegOfSize(10, 32768)),
                 QStringLiteral("The picture is too wide or too high."));
        QByteArray padded = encoded(picture(4, 4), "png");
        padded.resize(PictureImport::maximumBytes, 'x');
        QVERIFY(PictureImport::convert({padded, {}}));
        QCOMPARE(problem(padded + 'x'), tooLarge);
    }

    void filesAreRead()
    {
        const QByteArray png = encoded(picture(30, 20), "png");
        const QString path = write(QStringLiteral("name.txt"), png);
        const QString link = m_folder.filePath(QStringLiteral("link.png"));
        QVERIFY(QFile::link(path, link));
        for (const QString &each : {path, link}) {
            const auto outcome = PictureImport::convert({{}, each});
            QVERIFY2(outcome, outcome ? "" : qPrintable(outcome.error()));
            QCOMPARE(QImage::fromData(*outcome).size(), QSize(30, 20));
        }
    }

    void unreadableFilesAreReported()
    {
        const auto reason = [](const QString &path) {
            const auto outcome = PictureImport::convert({{}, path});
            return outcome ? QString() : outcome.error();
        };
        const QString start = QStringLiteral("The picture can't be read: ");
        QCOMPARE(reason(m_folder.filePath(QStringLiteral("none.png"))),
                 start + QStringLiteral("the file is gone"));
        QCOMPARE(reason(m_folder.path()), start + QStringLiteral("it is not a file"));
        const QString pipe = m_folder.filePath(QStringLiteral("pipe.png"));
        QCOMPARE(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        QCOMPARE(reason(pipe), start + QStringLiteral("it is not a file"));
        const QString large = write(QStringLiteral("large.png"), {});
        QVERIFY(QFile::resize(large, PictureImport::maximumBytes + 1));
        QCOMPARE(reason(large), tooLarge);
        QCOMPARE(reason(write(QStringLiteral("a.png"), "GIF89a")), PictureImport::formatProblem());
    }

    void importsInOrder()
    {
        const auto first =
            PictureImport::importInBackground({encoded(picture(3000, 2000), "png"), {}});
        const auto second = PictureImport::importInBackground({"no picture", {}});
        QVERIFY(!second.result());
        QVERIFY(first.isFinished());
        QCOMPARE(QImage::fromData(*first.result()).width(), 1280);
    }

private:
    QString write(const QString &name, const QByteArray &content)
    {
        const QString path = m_folder.filePath(name);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("the test file cannot be written");
        return path;
    }

    QTemporaryDir m_folder;
};

QUELLORA_TEST(QCoreApplication, TestPictureImport)
#include "test_picture_import.moc"
