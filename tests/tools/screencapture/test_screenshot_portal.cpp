#include "screencapture/PortalFile.h"
#include "screencapture/ScreenshotPortal.h"

#include "platform/linux/FakePortal.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <chrono>
#include <future>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace quellora;
using namespace quellora::screencapture;
using namespace std::chrono_literals;

namespace {

/// A portal that says which request it has taken, or not even that, and nothing more.
class SilentPortal : public BusService
{
public:
    /// @param replies whether it replies to the call; if not, the caller waits for that
    SilentPortal(const QString &busAddress, bool replies)
        : BusService(busAddress, QStringLiteral("org.freedesktop.portal.Desktop"),
                     QStringLiteral("/org/freedesktop/portal/desktop"))
        , m_replies(replies)
    {}
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.member() != QStringLiteral("Screenshot"))
            return false;
        ++calls;
        message.setDelayedReply(true);
        if (m_replies) {
            const QDBusObjectPath request(QStringLiteral("/org/freedesktop/portal/desktop/one"));
            connection.send(message.createReply(QVariant::fromValue(request)));
        }
        return true;
    }

    int calls = 0;

private:
    bool m_replies;
};

} // namespace

/// The other answers are in portal/test_portal.py, with the program itself.
class ScreenshotPortalTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { qunsetenv("DBUS_SESSION_BUS_ADDRESS"); }

    void onlyFilesOfThisMachineHaveAPath_data()
    {
        QTest::addColumn<QByteArray>("uri");
        QTest::addColumn<QByteArray>("path");
        const auto row = [](const char *uri, const char *path) {
            QTest::newRow(uri) << QByteArray(uri) << QByteArray(path);
        };
        row("file:///a/b.png", "/a/b.png");
        row("file:/a", "/a");
        row("file://localhost/a", "/a");
        row("file:///a%20b%2Fc%c3%9f", "/a b/c\xc3\x9f");
        row("file:///100%25", "/100%");
        row("", "");
        row("/a", "");
        row("file:", "");
        row("file:a", "");
        row("file://a", "");
        row("file://other/a", "");
        row("file://localhostother/a", "");
        row("http:///a", "");
        row("file:///a%", "");
        row("file:///a%2", "");
        row("file:///a%2g", "");
        row("file:///a%00b", "");
        row("file:///a?b", "");
        row("file:///a#b", "");
    }

    void onlyFilesOfThisMachineHaveAPath()
    {
        QFETCH(const QByteArray, uri);
        QFETCH(const QByteArray, path);
        QCOMPARE(QByteArray::fromStdString(pathOfUri(uri.toStdString()).value_or("")), path);
    }

    void busThatDoesNotAnswerIsGivenUp()
    {
        const QTemporaryDir folder;
        const QByteArray path = QFile::encodeName(folder.filePath(QStringLiteral("bus")));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        QVERIFY(static_cast<std::size_t>(path.size()) < sizeof address.sun_path);
        std::copy(path.begin(), path.end(), address.sun_path);
        const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        QVERIFY(::bind(server, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0);
        QVERIFY(::listen(server, 1) == 0);
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + path);
        const auto answer = askScreenshotPortal(20ms);
        ::close(server);
        QVERIFY(!answer);
        QCOMPARE(answer.error().status, ExitStatus::NoSessionBus);
        QVERIFY(answer.error().message.ends_with("it does not answer in time"));
    }

    void portalThatDoesNotAnswerIsGivenUp_data()
    {
        QTest::addColumn<bool>("replies");
        QTest::newRow("no reply") << false;
        QTest::newRow("no response") << true;
    }

    void portalThatDoesNotAnswerIsGivenUp()
    {
        QFETCH(const bool, replies);
        PrivateBus bus;
        QVERIFY(bus.start());
        SilentPortal portal(bus.address(), replies);
        QVERIFY(portal.isServing());
        qputenv("DBUS_SESSION_BUS_ADDRESS", bus.address().toLocal8Bit());
        auto asked = std::async(std::launch::async, [] { return askScreenshotPortal(300ms); });
        QTRY_VERIFY(asked.wait_for(0ms) == std::future_status::ready);
        const auto answer = asked.get();
        QCOMPARE(portal.calls, 1);
        QVERIFY(!answer);
        QCOMPARE(answer.error().status, ExitStatus::PortalFailed);
        QVERIFY(answer.error().message.ends_with("it does not answer in time"));
    }
};

QUELLORA_TEST(QCoreApplication, ScreenshotPortalTest)
#include "test_screenshot_portal.moc"
