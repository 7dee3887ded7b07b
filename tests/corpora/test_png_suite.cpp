#include "fakes/LogCapture.h"
#include "query/PngDecoder.h"
#include "query/PngSamples.h"
#include "query/ScreenshotCapture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTest>

using namespace quellora;
using Kind = ScreenshotCapture::CaptureError::Kind;

namespace {

const QString folder = QStringLiteral(QUELLORA_CORPORA "/png");

QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// What the reference reads although it is no valid PNG: its chunks beside the picture are empty.
const QStringList refusedOnly{QStringLiteral("testpngs-crashers-empty_ancillary_chunks")};

} // namespace

/// PngSuite, and files that have crashed PNG readers, as what the capture tool has written.
class TestPngSuite : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void decodesLikeTheReference_data();
    void decodesLikeTheReference();
    void capturesOrTellsWhy_data() { decodesLikeTheReference_data(); }
    void capturesOrTellsWhy();
};

void TestPngSuite::initTestCase()
{
    const QByteArray missing = bytesOf(folder + QStringLiteral("/missing"));
    if (!missing.isEmpty())
        QSKIP(missing.trimmed().constData());
    QCOMPARE(QDir(folder).entryList({QStringLiteral("*.png")}).size(), 189);
}

void TestPngSuite::decodesLikeTheReference_data()
{
    QTest::addColumn<QString>("path");
    const QFileInfoList files = QDir(folder).entryInfoList({QStringLiteral("*.png")});
    for (const QFileInfo &file : files)
        QTest::newRow(qPrintable(file.completeBaseName())) << file.filePath();
}

void TestPngSuite::decodesLikeTheReference()
{
    QFETCH(QString, path);
    const QByteArray file = bytesOf(path);
    const QByteArray reference = readWithLibpng(file);
    const auto bitmap = decodePng(file);
    const bool isRefused =
        reference.isEmpty() || refusedOnly.contains(QFileInfo(path).completeBaseName());
    QCOMPARE(!bitmap.has_value(), isRefused);
    if (bitmap)
        QCOMPARE(rgbOf(*bitmap), reference);
}

void TestPngSuite::capturesOrTellsWhy()
{
    QFETCH(QString, path);
    LogCapture log;
    const auto bitmap = decodePng(bytesOf(path));
    const auto outcome =
        ScreenshotCapture::captureInBackground({QStringLiteral("/bin/cp"), {path}}).result();
    if (outcome)
        QVERIFY(bitmap && outcome->jpegData.startsWith("\xff\xd8\xff"));
    else if (bitmap)
        QCOMPARE(outcome.error().kind, Kind::ProtectedContent);
    else
        QCOMPARE(outcome.error().kind, Kind::ImageDecodeFailed);
}

QUELLORA_TEST(QCoreApplication, TestPngSuite)
#include "test_png_suite.moc"
