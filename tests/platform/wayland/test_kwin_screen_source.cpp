#include "fakes/LogCapture.h"
#include "platform/linux/FakePortal.h"
#include "platform/linux/FakeVeil.h"
#include "platform/wayland/KWinScreenSource.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusUnixFileDescriptor>
#include <QPromise>
#include <QThreadPool>
#include <QtTest>

#include <unistd.h>

#include <array>
#include <memory>
#include <vector>

using namespace quellora;

using Access = ScreenSource::Access;
using Kind = ScreenSource::Failure::Kind;

namespace {

/// KWin's screenshots; answers when the test says so.
class FakeKWin : public BusService
{
public:
    explicit FakeKWin(const QString &address)
        : BusService(address, QStringLiteral("org.kde.KWin"),
                     QStringLiteral("/org/kde/KWin/ScreenShot2"))
    {}
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &) override
    {
        QVariantList arguments = message.arguments();
        pipe = arguments.takeLast().value<QDBusUnixFileDescriptor>();
        calls << Call{message.member(), arguments};
        m_pending = message;
        return true;
    }
    void refuse(const QString &error)
    {
        bus().send(m_pending.createErrorReply(error, QStringLiteral("no")));
        m_pending = {};
    }
    void answer(int width, int height, int stride, int format)
    {
        bus().send(m_pending.createReply(QVariantMap{
            {QStringLiteral("type"), QStringLiteral("raw")},
            {QStringLiteral("width"), uint(width)},
            {QStringLiteral("height"), uint(height)},
            {QStringLiteral("stride"), uint(stride)},
            {QStringLiteral("format"), uint(format)},
        }));
        // It owns the pipe, too.
        m_pending = {};
    }
    /// Writes rows of one colour and closes the pipe.
    void send(int rows, int stride, QRgb colour)
    {
        QByteArray bytes;
        for (int i = 0; i < rows * stride / 4; ++i)
            bytes.append(reinterpret_cast<const char *>(&colour), 4);
        QCOMPARE(::write(pipe.fileDescriptor(), bytes.constData(), size_t(bytes.size())),
                 ssize_t(bytes.size()));
        close();
    }
    void close() { pipe = QDBusUnixFileDescriptor(); }

    struct Call
    {
        QString member;
        QVariantList arguments;
    };
    QList<Call> calls;
    QDBusUnixFileDescriptor pipe;

private:
    QDBusMessage m_pending;

    static QDBusConnection bus() { return QDBusConnection(QStringLiteral("org.kde.KWin")); }
};

class FakeFallback : public ScreenSource
{
public:
    QFuture<Picture> take(Area) override
    {
        promises.emplace_back().start();
        return promises.back().future();
    }
    Access access() const override { return current; }
    QString advice() const override { return QStringLiteral("Advice."); }
    void onAccessChanged(std::function<void()> newHandler) override { handler = newHandler; }

    Access current = Access::NotAsked;
    std::function<void()> handler;
    std::vector<QPromise<Picture>> promises;
};

} // namespace

/// Uses a private session bus with a fake KWin.
class KWinScreenSourceTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QVERIFY(m_bus.start()); }
    void init()
    {
        m_kwin = std::make_unique<FakeKWin>(m_bus.address());
        QVERIFY(m_kwin->isServing());
        m_veil = std::make_unique<FakeVeil>();
        makeSource();
        m_log.clear();
    }
    void cleanup()
    {
        m_source.reset();
        m_veil.reset();
        m_kwin.reset();
        QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
    }

    void takesScreenWithPointer()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_kwin->calls.size(), 1);
        QVERIFY(m_veil->isGone());
        QCOMPARE(m_kwin->calls.last().member, QStringLiteral("CaptureActiveScreen"));
        m_kwin->answer(20, 10, 80, QImage::Format_ARGB32_Premultiplied);
        QTRY_VERIFY(!m_veil->isGone());
        QVERIFY(!future.isFinished());
        m_kwin->send(10, 80, 0xff00ff00);
        QTRY_VERIFY(future.isFinished());
        QVERIFY(future.result().has_value());
        QCOMPARE(future.result()->size(), QSize(20, 10));
        QCOMPARE(future.result()->pixelColor(19, 9), QColor(Qt::green));
        QCOMPARE(m_source->access(), Access::Granted);
    }

    void takesAllScreens()
    {
        const auto future = m_source->take(ScreenSource::Area::AllScreens);
        QTRY_COMPARE(m_kwin->calls.size(), 1);
        QCOMPARE(m_kwin->calls.last().member, QStringLiteral("CaptureArea"));
        const QVariantList arguments = m_kwin->calls.last().arguments;
        QCOMPARE(arguments.mid(0, 4), (QVariantList{-10, 0, 200U, 100U}));
        // Longer rows than those of an image.
        m_kwin->answer(3, 2, 64, QImage::Format_RGB32);
        m_kwin->send(2, 64, 0xff0000ff);
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result()->pixelColor(2, 1), QColor(Qt::blue));
    }

    void takesWindowInFront()
    {
        const auto future = m_source->take(ScreenSource::Area::FrontWindow);
        QTRY_COMPARE(m_kwin->calls.size(), 1);
        // KWin leaves out what is above the window.
        QVERIFY(!m_veil->isGone());
        QCOMPARE(m_kwin->calls.last().member, QStringLiteral("CaptureActiveWindow"));
        m_kwin->answer(20, 10, 80, QImage::Format_ARGB32_Premultiplied);
        m_kwin->send(10, 80, 0xff00ff00);
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result()->size(), QSize(20, 10));
    }

    void pictureForChoiceHasNoPointer()
    {
        const auto cursorIsIncluded = [this] {
            QVariantMap options;
            for (const QVariant &argument : std::as_const(m_kwin->calls.last().arguments)) {
                if (argument.canConvert<QDBusArgument>())
                    options = qdbus_cast<QVariantMap>(argument);
            }
            if (options.isEmpty())
                qFatal("no options");
            return options.value(QStringLiteral("include-cursor")).toBool();
        };
        const auto choice = m_source->take(ScreenSource::Area::AllScreensForChoice);
        QTRY_COMPARE(m_kwin->calls.size(), 1);
        QCOMPARE(m_kwin->calls.last().member, QStringLiteral("CaptureArea"));
        QVERIFY(!cursorIsIncluded());
        m_kwin->answer(1, 1, 4, QImage::Format_RGB32);
        m_kwin->send(1, 4, 0xff00ff00);
        QTRY_VERIFY(choice.isFinished());
        const auto all = m_source->take(ScreenSource::Area::AllScreens);
        QTRY_COMPARE(m_kwin->calls.size(), 2);
        QVERIFY(cursorIsIncluded());
        m_kwin->answer(1, 1, 4, QImage::Format_RGB32);
        m_kwin->send(1, 4, 0xff00ff00);
        QTRY_VERIFY(all.isFinished());
    }

    void damagedPictures_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("stride");
        QTest::addColumn<int>("format");
        QTest::addColumn<int>("rows");
        QTest::addColumn<QString>("reason");
        const int format = QImage::Format_RGB32;
        QTest::newRow("too short") << 20 << 80 << format << 9 << QStringLiteral("has not arrived");
        QTest::newRow("empty") << 20 << 80 << format << 0 << QStringLiteral("has not arrived");
        QTest::newRow("no width") << 0 << 80 << format << 10 << QStringLiteral("unknown form");
        QTest::newRow("short rows") << 20 << 76 << format << 10 << QStringLiteral("unknown form");
        QTest::newRow("too wide") << 40'000 << 160'000 << format << 0
                                  << QStringLiteral("unknown form");
        QTest::newRow("format") << 20 << 80 << int(QImage::Format_RGB30) << 10
                                << QStringLiteral("unknown form");
    }
    void damagedPictures()
    {
        QFETCH(int, width);
        QFETCH(int, stride);
        QFETCH(int, format);
        QFETCH(int, rows);
        QFETCH(QString, reason);
        // Parts of the bus may still hold the other end of the pipe.
        m_limits.pixels = std::chrono::milliseconds(50);
        makeSource();
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_kwin->calls.size(), 1);
        m_kwin->send(rows, 80, 0xff00ff00);
        m_kwin->answer(width, 10, stride, format);
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result().error().kind, Kind::Failed);
        QVERIFY2(future.result().error().reason.contains(reason),
                 qPrintable(future.result().error().reason));
        QVERIFY(!m_veil->isGone());
    }

    void endOfPixelsIsNoticed()
    {
        std::array<int, 2> ends{};
        QCOMPARE(::pipe(ends.data()), 0);
        QCOMPARE(::write(ends[1], "12345678", 8), ssize_t(8));
        ::close(ends[1]);
        const auto picture = KWinScreenSource::read(ends[0],
                                                    {{QStringLiteral("width"), 2U},
                                                     {QStringLiteral("height"), 2U},
                                                     {QStringLiteral("stride"), 8U},
                                                     {QStringLiteral("format"), 4U}},
                                                    std::chrono::seconds(20));
        ::close(ends[0]);
        QVERIFY(!picture.has_value());
        QVERIFY(picture.error().reason.contains(QStringLiteral("completely")));
    }

    void stalledPixelsEndAtTheLimit()
    {
        m_limits.pixels = std::chrono::milliseconds(10);
        makeSource();
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_kwin->calls.size(), 1);
        m_kwin->answer(20, 10, 80, QImage::Format_RGB32);
        QTRY_VERIFY(future.isFinished());
        QVERIFY(future.result().error().reason.contains(QStringLiteral("in time")));
    }

    void silenceEndsAtTheLimit()
    {
        m_limits.answer = std::chrono::milliseconds(10);
        makeSource();
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result().error().kind, Kind::Failed);
        QVERIFY(!m_veil->isGone());
    }

    void refusalLeadsToFallback()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_kwin->calls.size(), 1);
        int changes = 0;
        m_source->onAccessChanged([&changes] { ++changes; });
        m_kwin->refuse(QStringLiteral("org.kde.KWin.ScreenShot2.Error.NoAuthorized"));
        QTRY_COMPARE(m_fallback->promises.size(), std::size_t(1));
        QVERIFY(!m_veil->isGone());
        QVERIFY(m_log.lines.last().contains(QStringLiteral("quellora.desktop")));
        m_fallback->promises.front().addResult(QImage(7, 7, QImage::Format_RGB32));
        m_fallback->promises.front().finish();
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result()->width(), 7);
        QCOMPARE(changes, 1);
        QCOMPARE(m_source->access(), Access::NotAsked);
        QCOMPARE(m_source->advice(), QStringLiteral("Advice."));
        // Not asked again.
        const auto next = m_source->take(ScreenSource::Area::OneScreen);
        QCOMPARE(m_fallback->promises.size(), std::size_t(2));
        QCOMPARE(m_kwin->calls.size(), 1);
    }

    void otherErrorsAreFailures()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_kwin->calls.size(), 1);
        m_kwin->refuse(QStringLiteral("org.kde.KWin.ScreenShot2.Error.Cancelled"));
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result().error().kind, Kind::Failed);
        QVERIFY(m_fallback->promises.empty());
        QCOMPARE(m_source->access(), Access::Granted);
    }

    void missingKWinLeadsToFallback()
    {
        m_kwin.reset();
        makeSource();
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_fallback->promises.size(), std::size_t(1));
        m_fallback->promises.front().addResult(
            tl::unexpected(ScreenSource::Failure{Kind::Refused, QStringLiteral("why")}));
        m_fallback->promises.front().finish();
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result().error().reason, QStringLiteral("why"));
        QCOMPARE(m_veil->covers, 0);
    }

    void missingBusLeadsToFallback()
    {
        for (const QString &address : {QString(), QStringLiteral("unix:path=/nonexistent")}) {
            makeSource(address);
            const auto future = m_source->take(ScreenSource::Area::OneScreen);
            QTRY_COMPARE(m_fallback->promises.size(), std::size_t(1));
            QCOMPARE(m_source->access(), Access::NotAsked);
        }
    }

    void cancelUncoversPanel()
    {
        auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_kwin->calls.size(), 1);
        future.cancel();
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!m_veil->isGone());
        QCOMPARE(future.resultCount(), 0);
        m_kwin->answer(20, 10, 80, QImage::Format_RGB32);
        QCoreApplication::processEvents();
    }

    void cancelReachesFallback()
    {
        makeSource(QString());
        auto future = m_source->take(ScreenSource::Area::OneScreen);
        future.cancel();
        QTRY_VERIFY(m_fallback->promises.front().isCanceled());
    }

    void destructionUncoversPanel()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_COMPARE(m_kwin->calls.size(), 1);
        m_source.reset();
        QVERIFY(!m_veil->isGone());
        QVERIFY(future.isCanceled());
    }

private:
    void makeSource() { makeSource(m_bus.address()); }
    void makeSource(const QString &address)
    {
        auto fallback = std::make_unique<FakeFallback>();
        m_fallback = fallback.get();
        m_source = std::make_unique<KWinScreenSource>(
            *m_veil, [] { return QRect(-10, 0, 200, 100); }, std::move(fallback), address,
            m_limits);
        m_limits = {};
    }

    LogCapture m_log;
    PrivateBus m_bus;
    KWinScreenSource::Limits m_limits;
    FakeFallback *m_fallback = nullptr;
    std::unique_ptr<FakeKWin> m_kwin;
    std::unique_ptr<FakeVeil> m_veil;
    std::unique_ptr<KWinScreenSource> m_source;
};

QUELLORA_TEST(QCoreApplication, KWinScreenSourceTest)
#include "test_kwin_screen_source.moc"
