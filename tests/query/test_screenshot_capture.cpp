#include "PngSamples.h"
#include "base/WhenFinished.h"
#include "fakes/LogCapture.h"
#include "query/ScreenshotCapture.h"
#include "support/TestProgram.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QObject>
#include <QProcess>
#include <QPromise>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>
#include <optional>
#include <vector>

using namespace quellora;
using Kind = ScreenshotCapture::CaptureError::Kind;
using CaptureError = ScreenshotCapture::CaptureError;

namespace {

ScreenshotCapture::Outcome capture(const CaptureTool &tool)
{
    return ScreenshotCapture::captureInBackground(tool).result();
}

/// A screen source whose pictures the test delivers.
class FakeScreenSource : public ScreenSource
{
public:
    QFuture<Picture> take(Area area) override
    {
        areas << area;
        promises.emplace_back().start();
        return promises.back().future();
    }
    void deliver(std::size_t index, Picture picture)
    {
        promises.at(index).addResult(std::move(picture));
        promises.at(index).finish();
        // A source does not keep its promises.
        QTimer::singleShot(0, &context, [this, index] { promises.at(index) = {}; });
    }
    QObject context;

    QList<Area> areas;
    std::vector<QPromise<Picture>> promises;
};

/// Waits for an outcome while the event loop runs.
std::optional<ScreenshotCapture::Outcome> wait(const QFuture<ScreenshotCapture::Outcome> &future)
{
    if (!QTest::qWaitFor([&] { return future.isFinished(); }) || future.resultCount() == 0)
        return std::nullopt;
    return future.result();
}

QRgb testPattern(int x, int y)
{
    return qRgb(40 + x % 200, y % 256, 99);
}

} // namespace

/// Uses small shell scripts as capture tools.
class TestScreenshotCapture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void descriptions_data();
    void descriptions();

    void capturesAndScales_data();
    void capturesAndScales();
    void passesArgumentsToTool();
    void toolOutputIsDiscarded();
    void fileIsPrivate();
    void missingTool();
    void nonExecutableTool();
    void failingTool_data();
    void failingTool();
    void toolThatWritesNothing();
    void toolThatCreatesIrregularFile_data();
    void toolThatCreatesIrregularFile();
    void undecodableFile_data();
    void undecodableFile();
    void protectedContent();
    void slightlyLitFrameIsAccepted();
    void blackIsDetectedAfterScaling();
    void tooFlatImageIsSentUnscaled();
    void largestScreens_data();
    void largestScreens();
    void cancelledToolIsKilled();
    void cancelledCaptureLeavesNoFile();
    void capturesInBackground();
    void capturesInParallel();
    void pictureFromSource_data();
    void pictureFromSource();
    void sourceFailure_data();
    void sourceFailure();
    void darkPictureFromSource();
    void emptyPictureFromSource();
    void cancelledPictureFromSource();
    void sourceThatGivesUp();
    void severalPicturesFromSource();
    void noWindowInFront();
    void frozenPictureOfTool();
    void frozenPictureOfFailingTool();
    void frozenPictureOfSource();
    void frozenPictureIsCancelled();
    void partIsEncoded();
    void bitmapBecomesImage_data();
    void bitmapBecomesImage();

private:
    /// A tool that runs a shell script with the output path as $3.
    CaptureTool tool(const QByteArray &script);
    CaptureTool toolThatWrites(const QByteArray &png);
    QStringList filesLeft() const
    {
        return QDir(m_tmp->path()).entryList(QDir::Files | QDir::System | QDir::Hidden);
    }

    std::unique_ptr<QTemporaryDir> m_tools;
    std::unique_ptr<QTemporaryDir> m_tmp;
    std::unique_ptr<LogCapture> m_log;
    QByteArray m_oldTmp;
};

void TestScreenshotCapture::init()
{
    m_tools = std::make_unique<QTemporaryDir>();
    m_tmp = std::make_unique<QTemporaryDir>();
    m_log = std::make_unique<LogCapture>();
    m_oldTmp = qgetenv("TMPDIR");
    qputenv("TMPDIR", m_tmp->path().toUtf8());
    QCOMPARE(QDir::tempPath(), m_tmp->path());
}

void TestScreenshotCapture::cleanup()
{
    // No test may leave a file behind, whatever its outcome.
    const QStringList left = filesLeft();
    qputenv("TMPDIR", m_oldTmp);
    m_log.reset();
    m_tmp.reset();
    m_tools.reset();
    QCOMPARE(left, QStringList());
}

CaptureTool TestScreenshotCapture::tool(const QByteArray &script)
{
    const QString path = m_tools->filePath(QStringLiteral("tool"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        qFatal("cannot write the tool");
    file.write("#!/bin/sh\n" + script + "\n");
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return {path, {QStringLiteral("-x"), QStringLiteral("-C")}};
}

CaptureTool TestScreenshotCapture::toolThatWrites(const QByteArray &png)
{
    QFile file(m_tools->filePath(QStringLiteral("picture")));
    if (!file.open(QIODevice::WriteOnly) || file.write(png) != png.size())
        qFatal("cannot write the picture");
    return tool("cat '" + m_tools->path().toUtf8() + "/picture' > \"$3\"");
}

void TestScreenshotCapture::descriptions_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *name, Kind kind, const char *text) {
        QTest::newRow(name) << static_cast<int>(kind) << QString::fromUtf8(text);
    };
    row("launch", Kind::ProcessLaunchFailed, "Could not launch screencapture: why");
    row("exit", Kind::NonZeroExit, "screencapture exited with status -7");
    row("decode", Kind::ImageDecodeFailed, "Could not decode captured screenshot");
    row("encode", Kind::JpegEncodeFailed, "Could not encode screenshot as JPEG");
    row("protected", Kind::ProtectedContent,
        "Captured content appears to be protected (DRM) — near-uniform black frame");
    row("file", Kind::FileRead, "why");
    row("refused", Kind::Refused, "why");
    row("unavailable", Kind::Unavailable, "why");
    row("source", Kind::SourceFailed, "why");
}

void TestScreenshotCapture::descriptions()
{
    QFETCH(int, kind);
    QFETCH(QString, text);
    QCOMPARE((CaptureError{static_cast<Kind>(kind), QStringLiteral("why"), -7}).description(),
             text);
}

void TestScreenshotCapture::capturesAndScales_data()
{
    QTest::addColumn<QSize>("screen");
    QTest::addColumn<QSize>("sent");
    QTest::newRow("1280") << QSize(1280, 800) << QSize(1280, 800);
    QTest::newRow("1281") << QSize(1281, 801) << QSize(1280, 800);
    QTest::newRow("2560") << QSize(2560, 1600) << QSize(1280, 800);
    QTest::newRow("3024") << QSize(3024, 1964) << QSize(1280, 831);
}

void TestScreenshotCapture::capturesAndScales()
{
    QFETCH(QSize, screen);
    QFETCH(QSize, sent);
    const QByteArray png = writePng(screen.width(), screen.height(), testPattern);
    const auto outcome = capture(toolThatWrites(png));
    QVERIFY(outcome.has_value());
    QCOMPARE(outcome->originalSizeBytes, png.size());
    QCOMPARE(QImage::fromData(outcome->jpegData, "JPG").size(), sent);
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[ScreenshotCapture] Captured %1 bytes PNG -> %2 bytes "
                                        "JPEG (%3x%4)")
                             .arg(png.size())
                             .arg(outcome->jpegData.size())
                             .arg(sent.width())
                             .arg(sent.height())});
}

void TestScreenshotCapture::passesArgumentsToTool()
{
    const CaptureTool script = tool("for a in \"$@\"; do echo \"$a\"; done > '" +
                                    m_tools->path().toUtf8() + "/arguments'; exit 3");
    const auto outcome = capture(script);
    QVERIFY(!outcome.has_value());
    QFile file(m_tools->filePath(QStringLiteral("arguments")));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList arguments = QString::fromUtf8(file.readAll().trimmed()).split(u'\n');
    QCOMPARE(arguments.size(), 3);
    QCOMPARE(arguments.at(0), QStringLiteral("-x"));
    QCOMPARE(arguments.at(1), QStringLiteral("-C"));
    static const QRegularExpression name(QStringLiteral(
        "^/vantiro_capture_[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"
        "\\.png$"));
    QVERIFY(arguments.at(2).startsWith(m_tmp->path()));
    QVERIFY(name.match(arguments.at(2).mid(m_tmp->path().size())).hasMatch());
}

void TestScreenshotCapture::toolOutputIsDiscarded()
{
    // More output than a pipe holds: the tool must not block on it.
    const auto outcome = capture(
        tool("test -t 0 && exit 5; read line && exit 6; "
             "i=0; while [ $i -lt 3000 ]; do echo 'a long line of output of the capture tool'; "
             "echo 'and an error line' >&2; i=$((i+1)); done; exit 4"));
    QVERIFY(!outcome.has_value());
    QCOMPARE(outcome.error().exitStatus, 4);
    QCOMPARE(m_log->lines, QStringList());
}

void TestScreenshotCapture::fileIsPrivate()
{
    const auto outcome = capture(tool("umask 0000 2>/dev/null; exit 0"));
    QVERIFY(!outcome.has_value());
    const CaptureTool script =
        tool("echo x > \"$3\"; ls -l \"$3\" > '" + m_tools->path().toUtf8() + "/listing'");
    QVERIFY(!capture(script).has_value());
    QFile file(m_tools->filePath(QStringLiteral("listing")));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().startsWith("-rw-------"));
}

void TestScreenshotCapture::missingTool()
{
    const auto outcome = capture({m_tools->filePath(QStringLiteral("nothing here")), {}});
    QVERIFY(!outcome.has_value());
    QCOMPARE(outcome.error().kind, Kind::ProcessLaunchFailed);
    QVERIFY(outcome.error().detail.contains(QStringLiteral("No such file or directory")));
    QCOMPARE(outcome.error().description(),
             QStringLiteral("Could not launch screencapture: ") + outcome.error().detail);
}

void TestScreenshotCapture::nonExecutableTool()
{
    const CaptureTool script = tool("exit 0");
    QFile::setPermissions(script.program, QFile::ReadOwner);
    const auto outcome = capture(script);
    QVERIFY(!outcome.has_value());
    QCOMPARE(outcome.error().kind, Kind::ProcessLaunchFailed);
    QVERIFY(!outcome.error().detail.isEmpty());

    const auto unnamed = capture({});
    QVERIFY(!unnamed.has_value());
    QCOMPARE(unnamed.error().kind, Kind::ProcessLaunchFailed);
}

void TestScreenshotCapture::failingTool_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<int>("status");
    QTest::newRow("1") << QByteArray("exit 1") << 1;
    QTest::newRow("255") << QByteArray("exit 255") << 255;
    QTest::newRow("1 with a file") << QByteArray("echo x > \"$3\"; exit 1") << 1;
    QTest::newRow("killed") << QByteArray("kill -KILL $$") << 9;
    QTest::newRow("killed with a file") << QByteArray("echo x > \"$3\"; kill -TERM $$") << 15;
}

void TestScreenshotCapture::failingTool()
{
    QFETCH(QByteArray, script);
    QFETCH(int, status);
    const auto outcome = capture(tool(script));
    QVERIFY(!outcome.has_value());
    QCOMPARE(outcome.error(), (CaptureError{Kind::NonZeroExit, {}, status}));
    QCOMPARE(outcome.error().description(),
             QStringLiteral("screencapture exited with status %1").arg(status));
    QCOMPARE(m_log->lines, QStringList());
}

void TestScreenshotCapture::toolThatWritesNothing()
{
    const auto outcome = capture(tool("exit 0"));
    QVERIFY(!outcome.has_value());
    QCOMPARE(outcome.error().kind, Kind::FileRead);
    QCOMPARE(outcome.error().description(), QStringLiteral("No such file or directory"));
    QCOMPARE(m_log->lines, QStringList());
}

void TestScreenshotCapture::toolThatCreatesIrregularFile_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::newRow("pipe") << QByteArray("mkfifo \"$3\"");
    QTest::newRow("link") << QByteArray("ln -s /etc/passwd \"$3\"");
}

void TestScreenshotCapture::toolThatCreatesIrregularFile()
{
    QFETCH(QByteArray, script);
    const auto outcome = capture(tool(script));
    QVERIFY(!outcome.has_value());
    QCOMPARE(outcome.error().kind, Kind::FileRead);
}

void TestScreenshotCapture::undecodableFile_data()
{
    QTest::addColumn<QByteArray>("png");
    const QByteArray png = writePng(400, 300, testPattern);
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("hello");
    QTest::newRow("truncated") << png.left(png.size() / 2);
    QByteArray damaged = png;
    damaged[png.size() / 2] = static_cast<char>(damaged[png.size() / 2] ^ 0x10);
    QTest::newRow("damaged") << damaged;
}

void TestScreenshotCapture::undecodableFile()
{
    QFETCH(QByteArray, png);
    const auto outcome = capture(toolThatWrites(png));
    QVERIFY(!outcome.has_value());
    QCOMPARE(outcome.error(), (CaptureError{Kind::ImageDecodeFailed, {}, 0}));
    QCOMPARE(m_log->lines, QStringList());
}

void TestScreenshotCapture::protectedContent()
{
    const QByteArray png = writePng(1600, 900, [](int, int) { return qRgb(0, 0, 0); });
    const auto outcome = capture(toolThatWrites(png));
    QVERIFY(!outcome.has_value());
    QCOMPARE(outcome.error(), (CaptureError{Kind::ProtectedContent, {}, 0}));
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[ScreenshotCapture] Discarding near-black capture "
                                        "(protected/DRM content suspected)")});
}

void TestScreenshotCapture::slightlyLitFrameIsAccepted()
{
    // 0.2 % of the 80 x 50 sample points are lit.
    const QByteArray png = writePng(1280, 800, [](int x, int y) {
        return y == 160 && x % 160 == 0 ? qRgb(9, 0, 0) : qRgb(8, 8, 8);
    });
    QVERIFY(capture(toolThatWrites(png)).has_value());
}

void TestScreenshotCapture::blackIsDetectedAfterScaling()
{
    // Single lit pixels on the 16-pixel grid of the original frame, but not on that of the scaled
    // one.
    const QByteArray png = writePng(2560, 1600, [](int x, int y) {
        return x % 32 == 16 && y % 32 == 16 ? qRgb(255, 255, 255) : qRgb(0, 0, 0);
    });
    const auto outcome = capture(toolThatWrites(png));
    QVERIFY(!outcome.has_value());
    QCOMPARE(outcome.error().kind, Kind::ProtectedContent);
}

void TestScreenshotCapture::tooFlatImageIsSentUnscaled()
{
    // The scaled height would round to zero.
    const QByteArray png = writePng(16384, 6, testPattern);
    const auto outcome = capture(toolThatWrites(png));
    QVERIFY(outcome.has_value());
    QVERIFY(m_log->lines.constFirst().endsWith(QStringLiteral("(16384x6)")));
}

void TestScreenshotCapture::largestScreens_data()
{
    QTest::addColumn<QSize>("screen");
    QTest::addColumn<QSize>("sent");
    // The pixel to compare, on the screen and in the sent image.
    QTest::addColumn<QPoint>("from");
    QTest::addColumn<QPoint>("to");
    QTest::newRow("wide") << QSize(32767, 1080) << QSize(1280, 42) << QPoint(32000, 500)
                          << QPoint(1250, 19);
    QTest::newRow("high") << QSize(1080, 32767) << QSize(1080, 32767) << QPoint(500, 32000)
                          << QPoint(500, 32000);
}

void TestScreenshotCapture::largestScreens()
{
    QFETCH(QSize, screen);
    QFETCH(QSize, sent);
    QFETCH(QPoint, from);
    QFETCH(QPoint, to);
    // Broad bands, so that scaling and JPEG hardly change the colours.
    const auto bands = [](int x, int y) {
        return qRgb(40 + x / 4096 * 25, 40 + y / 4096 * 25, 99);
    };
    const QByteArray png = writePng(screen.width(), screen.height(), bands);
    const auto outcome = capture(toolThatWrites(png));
    QVERIFY(outcome.has_value());
    QBuffer buffer;
    buffer.setData(outcome->jpegData);
    QImageReader reader(&buffer, "JPG");
    QImageReader::setAllocationLimit(256);
    const QImage picture = reader.read();
    QCOMPARE(picture.size(), sent);
    const QRgb expected = bands(from.x(), from.y());
    const QRgb found = picture.pixel(to);
    QVERIFY2(qAbs(qRed(found) - qRed(expected)) <= 3 &&
                 qAbs(qGreen(found) - qGreen(expected)) <= 3 &&
                 qAbs(qBlue(found) - qBlue(expected)) <= 3,
             qPrintable(QColor(found).name() + u' ' + QColor(expected).name()));
}

void TestScreenshotCapture::cancelledToolIsKilled()
{
    // The tool hangs after writing part of the image.
    const CaptureTool script = tool("echo half > \"$3\"; exec sleep 1000");
    const auto hasStarted = [this] {
        return QFileInfo(m_tmp->path()).exists() && !filesLeft().isEmpty();
    };
    const QString path = m_tmp->filePath(QStringLiteral("picture.png"));
    const auto outcome = ScreenshotCapture::runScreencapture(script, path, hasStarted);
    QVERIFY(!outcome.has_value());
    QCOMPARE(outcome.error(), (CaptureError{Kind::NonZeroExit, {}, 9}));
    QVERIFY(QFile::remove(path));
}

void TestScreenshotCapture::cancelledCaptureLeavesNoFile()
{
    const QByteArray base = m_tools->path().toUtf8();
    auto future = ScreenshotCapture::captureInBackground(
        tool("echo half > \"$3\"; echo $$ > '" + base + "/pid'; exec sleep 1000"));
    QFile pid(m_tools->filePath(QStringLiteral("pid")));
    QTRY_VERIFY(pid.size() > 0 || QFileInfo(pid).size() > 0);
    QVERIFY(pid.open(QIODevice::ReadOnly));
    const QString process = QStringLiteral("/proc/") + QString::fromUtf8(pid.readAll().trimmed());
    QVERIFY(QFileInfo::exists(process));
    future.cancel();
    QTRY_VERIFY(!QFileInfo::exists(process));
    QTRY_COMPARE(filesLeft(), QStringList());
    QTRY_VERIFY(future.isFinished());
    QCOMPARE(future.resultCount(), 0);
}

void TestScreenshotCapture::capturesInBackground()
{
    // The tool waits for this thread, so the capture must run on another one.
    const QByteArray gate = m_tools->path().toUtf8() + "/gate";
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {QString::fromUtf8(gate)}), 0);
    const auto future =
        ScreenshotCapture::captureInBackground(tool("read line < '" + gate + "'; exit 8"));
    QVERIFY(!future.isFinished());
    QFile file(QString::fromUtf8(gate));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    file.write("go\n");
    QTRY_VERIFY(future.isFinished());
    QCOMPARE(future.resultCount(), 1);
    QCOMPARE(future.result().error().exitStatus, 8);
}

void TestScreenshotCapture::capturesInParallel()
{
    // Each tool waits until the other one has started.
    const QByteArray base = m_tools->path().toUtf8();
    const CaptureTool script = tool(
        "if mkdir '" + base + "/first' 2>/dev/null; then while [ ! -d '" + base +
        "/second' ]; do sleep 0.01; done; exit 11; else mkdir '" + base + "/second'; exit 12; fi");
    const auto one = ScreenshotCapture::captureInBackground(script);
    const auto two = ScreenshotCapture::captureInBackground(script);
    QTRY_VERIFY(one.isFinished() && two.isFinished());
    QList<int> statuses{one.result().error().exitStatus, two.result().error().exitStatus};
    std::sort(statuses.begin(), statuses.end());
    QCOMPARE(statuses, (QList<int>{11, 12}));
}

void TestScreenshotCapture::pictureFromSource_data()
{
    QTest::addColumn<QImage::Format>("format");
    QTest::addColumn<QSize>("screen");
    QTest::addColumn<QSize>("sent");
    QTest::addColumn<int>("pixelBytes");
    const QSize small(1280, 800);
    const QSize large(2560, 1600);
    QTest::newRow("RGB32") << QImage::Format_RGB32 << small << small << 4;
    QTest::newRow("scaled RGB32") << QImage::Format_RGB32 << large << small << 4;
    QTest::newRow("ARGB32 premultiplied")
        << QImage::Format_ARGB32_Premultiplied << large << small << 4;
    QTest::newRow("RGBX8888") << QImage::Format_RGBX8888 << large << small << 4;
    QTest::newRow("RGBA8888") << QImage::Format_RGBA8888_Premultiplied << small << small << 4;
    QTest::newRow("RGB888") << QImage::Format_RGB888 << large << small << 3;
    QTest::newRow("BGR888") << QImage::Format_BGR888 << large << small << 3;
    QTest::newRow("BGR888 of one width")
        << QImage::Format_BGR888 << QSize(999, 9) << QSize(999, 9) << 3;
    QTest::newRow("converted") << QImage::Format_RGB16 << small << small << 2;
}

void TestScreenshotCapture::pictureFromSource()
{
    QFETCH(QImage::Format, format);
    QFETCH(QSize, screen);
    QFETCH(QSize, sent);
    QFETCH(int, pixelBytes);
    FakeScreenSource source;
    const auto future =
        ScreenshotCapture::captureInBackground(source, ScreenSource::Area::AllScreens);
    QCOMPARE(source.areas, QList{ScreenSource::Area::AllScreens});
    int deliveries = 0;
    whenFinished(future, this, [&deliveries](const ScreenshotCapture::Outcome &) { ++deliveries; });
    QImage image(screen, QImage::Format_RGB32);
    // Red above blue: swapped channels would show.
    image.fill(Qt::red);
    for (int y = screen.height() / 2; y < screen.height(); ++y) {
        for (int x = 0; x < screen.width(); ++x)
            image.setPixel(x, y, qRgb(0, 0, 255));
    }
    source.deliver(0, image.convertToFormat(format));
    const auto outcome = wait(future);
    QVERIFY(outcome && outcome->has_value());
    QTRY_COMPARE(deliveries, 1);
    const qint64 bytes = qint64{screen.width()} * screen.height() * pixelBytes;
    QCOMPARE((*outcome)->originalSizeBytes, bytes);
    const QImage jpeg = QImage::fromData((*outcome)->jpegData, "JPG");
    QCOMPARE(jpeg.size(), sent);
    const QColor above = jpeg.pixelColor(sent.width() / 2, 1);
    const QColor below = jpeg.pixelColor(sent.width() / 2, sent.height() - 2);
    QVERIFY(above.red() > 240 && above.blue() < 16);
    QVERIFY(below.blue() > 240 && below.red() < 16);
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[ScreenshotCapture] Captured %1 bytes of pixels -> %2 "
                                        "bytes JPEG (%3x%4)")
                             .arg(bytes)
                             .arg((*outcome)->jpegData.size())
                             .arg(sent.width())
                             .arg(sent.height())});
}

void TestScreenshotCapture::sourceFailure_data()
{
    QTest::addColumn<int>("failure");
    QTest::addColumn<int>("kind");
    using Failure = ScreenSource::Failure::Kind;
    QTest::newRow("refused") << int(Failure::Refused) << int(Kind::Refused);
    QTest::newRow("unavailable") << int(Failure::Unavailable) << int(Kind::Unavailable);
    QTest::newRow("failed") << int(Failure::Failed) << int(Kind::SourceFailed);
}

void TestScreenshotCapture::sourceFailure()
{
    QFETCH(int, failure);
    QFETCH(int, kind);
    FakeScreenSource source;
    const auto future =
        ScreenshotCapture::captureInBackground(source, ScreenSource::Area::OneScreen);
    source.deliver(
        0, tl::unexpected(ScreenSource::Failure{static_cast<ScreenSource::Failure::Kind>(failure),
                                                QStringLiteral("why")}));
    const auto outcome = wait(future);
    QVERIFY(outcome && !outcome->has_value());
    QCOMPARE(int(outcome->error().kind), kind);
    QCOMPARE(outcome->error().description(), QStringLiteral("why"));
}

void TestScreenshotCapture::darkPictureFromSource()
{
    FakeScreenSource source;
    const auto future =
        ScreenshotCapture::captureInBackground(source, ScreenSource::Area::OneScreen);
    QImage image(640, 480, QImage::Format_RGB32);
    image.fill(Qt::black);
    source.deliver(0, image);
    const auto outcome = wait(future);
    QVERIFY(outcome && !outcome->has_value());
    QCOMPARE(outcome->error().kind, Kind::ProtectedContent);
}

void TestScreenshotCapture::emptyPictureFromSource()
{
    FakeScreenSource source;
    const auto future =
        ScreenshotCapture::captureInBackground(source, ScreenSource::Area::OneScreen);
    source.deliver(0, QImage());
    const auto outcome = wait(future);
    QVERIFY(outcome && !outcome->has_value());
    QCOMPARE(outcome->error().kind, Kind::ImageDecodeFailed);
}

void TestScreenshotCapture::cancelledPictureFromSource()
{
    FakeScreenSource source;
    auto future = ScreenshotCapture::captureInBackground(source, ScreenSource::Area::OneScreen);
    future.cancel();
    QTRY_VERIFY(source.promises.front().isCanceled());
    source.promises.front().finish();
    QTRY_VERIFY(future.isFinished());
    QCOMPARE(future.resultCount(), 0);
    QVERIFY(m_log->lines.isEmpty());
}

void TestScreenshotCapture::sourceThatGivesUp()
{
    FakeScreenSource source;
    const auto future =
        ScreenshotCapture::captureInBackground(source, ScreenSource::Area::OneScreen);
    source.promises.clear();
    QTRY_VERIFY(future.isFinished());
    QVERIFY(future.isCanceled());
}

void TestScreenshotCapture::severalPicturesFromSource()
{
    FakeScreenSource source;
    QList<QFuture<ScreenshotCapture::Outcome>> futures;
    for (int i = 0; i < 3; ++i)
        futures << ScreenshotCapture::captureInBackground(source, ScreenSource::Area::OneScreen);
    for (int i : {2, 0, 1}) {
        QImage image(100 + i, 50, QImage::Format_RGB32);
        image.fill(Qt::white);
        source.deliver(static_cast<std::size_t>(i), image);
    }
    for (int i = 0; i < 3; ++i) {
        const auto outcome = wait(futures.at(i));
        QVERIFY(outcome && outcome->has_value());
        QCOMPARE(QImage::fromData((*outcome)->jpegData, "JPG").width(), 100 + i);
    }
}

void TestScreenshotCapture::noWindowInFront()
{
    CaptureTool failing = tool("exit 16");
    QCOMPARE(capture(failing).error().kind, Kind::NonZeroExit);
    failing.noWindowStatus = 16;
    QCOMPARE(capture(failing).error().kind, Kind::Unavailable);
    QCOMPARE(capture(failing).error().description(), "No window is in front");
    failing.noWindowStatus = 15;
    QCOMPARE(capture(failing).error().kind, Kind::NonZeroExit);
}

void TestScreenshotCapture::frozenPictureOfTool()
{
    QImage image(1500, 3, QImage::Format_RGB888);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, testPattern(x, y));
    }
    QByteArray png;
    QBuffer buffer(&png);
    QVERIFY(buffer.open(QIODevice::WriteOnly) && image.save(&buffer, "PNG"));
    CaptureTool writing = toolThatWrites(png);
    // The path is the third argument.
    writing.choiceArguments = {"one", "two"};
    writing.arguments = {"wrong"};
    const auto frozen = ScreenshotCapture::freezeInBackground(writing).result();
    QVERIFY(frozen);
    // Neither scaled nor compressed.
    QCOMPARE(frozen->size(), image.size());
    QCOMPARE(frozen->format(), QImage::Format_RGB32);
    QCOMPARE(*frozen, image.convertToFormat(QImage::Format_RGB32));
}

void TestScreenshotCapture::frozenPictureOfFailingTool()
{
    CaptureTool failing = tool("exit 3");
    failing.choiceArguments = failing.arguments;
    QCOMPARE(ScreenshotCapture::freezeInBackground(failing).result().error(),
             (CaptureError{Kind::NonZeroExit, {}, 3}));
    CaptureTool damaged = toolThatWrites("no picture");
    damaged.choiceArguments = damaged.arguments;
    QCOMPARE(ScreenshotCapture::freezeInBackground(damaged).result().error().kind,
             Kind::ImageDecodeFailed);
}

void TestScreenshotCapture::frozenPictureOfSource()
{
    FakeScreenSource source;
    const auto future = ScreenshotCapture::freezeInBackground(source);
    QCOMPARE(source.areas, QList{ScreenSource::Area::AllScreensForChoice});
    QImage image(2000, 3, QImage::Format_RGB32);
    image.fill(Qt::red);
    source.deliver(0, image);
    QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
    QCOMPARE(*future.result(), image);

    const auto refused = ScreenshotCapture::freezeInBackground(source);
    source.deliver(1, tl::unexpected(ScreenSource::Failure{ScreenSource::Failure::Kind::Refused,
                                                           QStringLiteral("no")}));
    QVERIFY(QTest::qWaitFor([&] { return refused.isFinished(); }));
    QCOMPARE(refused.result().error(), (CaptureError{Kind::Refused, QStringLiteral("no"), 0}));
}

void TestScreenshotCapture::frozenPictureIsCancelled()
{
    FakeScreenSource source;
    auto future = ScreenshotCapture::freezeInBackground(source);
    future.cancel();
    QTRY_VERIFY(source.promises.front().isCanceled());
    source.promises.front().finish();
    QTRY_VERIFY(future.isFinished());
    QCOMPARE(future.resultCount(), 0);
}

void TestScreenshotCapture::partIsEncoded()
{
    QImage part(300, 200, QImage::Format_RGB32);
    part.fill(Qt::black);
    QCOMPARE(ScreenshotCapture::encodeInBackground(part).result().error().kind,
             Kind::ProtectedContent);
    // A single line of text would be overlooked on the grid of a screen.
    for (int x = 1; x < part.width(); x += 2) {
        if (x % 16 != 0)
            part.setPixel(x, 5, qRgb(220, 220, 220));
    }
    const auto encoded = ScreenshotCapture::encodeInBackground(part).result();
    QVERIFY(encoded);
    QVERIFY(!encoded->isForLater);
    QCOMPARE(encoded->originalSizeBytes, qint64{300} * 200 * 4);
    QCOMPARE(QImage::fromData(encoded->jpegData).size(), part.size());
    QCOMPARE(ScreenshotCapture::encodeInBackground(QImage()).result().error().kind,
             Kind::ImageDecodeFailed);
}

void TestScreenshotCapture::bitmapBecomesImage_data()
{
    QTest::addColumn<QImage::Format>("format");
    QTest::newRow("RGB32") << QImage::Format_RGB32;
    QTest::newRow("RGBA8888") << QImage::Format_RGBA8888;
    QTest::newRow("RGB888") << QImage::Format_RGB888;
    QTest::newRow("BGR888") << QImage::Format_BGR888;
}

void TestScreenshotCapture::bitmapBecomesImage()
{
    QFETCH(QImage::Format, format);
    QImage image(5, 3, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qRgb(x * 50, y * 90, 7));
    }
    QCOMPARE(Bitmap::fromImage(image.convertToFormat(format)).toImage(), image);
    QVERIFY(Bitmap().toImage().isNull());
}

QUELLORA_TEST(QCoreApplication, TestScreenshotCapture)
#include "test_screenshot_capture.moc"
