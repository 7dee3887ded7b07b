#include "fakes/LogCapture.h"
#include "platform/linux/FakePortal.h"
#include "platform/linux/NotificationsLinux.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QThreadPool>
#include <QtTest>

#include <memory>

using namespace quellora;

namespace {

const QString serviceName = QStringLiteral("org.freedesktop.Notifications");
const QString servicePath = QStringLiteral("/org/freedesktop/Notifications");

/// A notification service that numbers the notifications from 7.
class FakeNotificationService : public BusService
{
public:
    explicit FakeNotificationService(const QString &busAddress)
        : BusService(busAddress, serviceName, servicePath)
    {}

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.member() == QStringLiteral("CloseNotification")) {
            closed << message.arguments().value(0).toUInt();
            connection.send(message.createReply());
            return true;
        }
        if (message.member() != QStringLiteral("Notify"))
            return false;
        notices << message.arguments();
        m_pending = message;
        if (!isSlow)
            answer();
        return true;
    }
    /// Answers the latest request.
    void answer()
    {
        const uint replaced = m_pending.arguments().value(1).toUInt();
        QDBusConnection(serviceName)
            .send(refuses
                      ? m_pending.createErrorReply(QDBusError::Failed, QStringLiteral("no screen"))
                      : m_pending.createReply(replaced ? replaced : m_next++));
    }
    bool invoke(uint id, const QString &action)
    {
        return emitSignal(servicePath, serviceName, QStringLiteral("ActionInvoked"), {id, action});
    }
    bool dismiss(uint id)
    {
        return emitSignal(servicePath, serviceName, QStringLiteral("NotificationClosed"), {id, 2U});
    }

    bool isSlow = false;
    bool refuses = false;
    QList<QVariantList> notices;
    QList<uint> closed;

private:
    QDBusMessage m_pending;
    uint m_next = 7;
};

/// Counts the signals of the bus that an object receives.
class SignalCount : public QObject
{
public:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::MetaCall)
            ++count;
        return false;
    }
    int count = 0;
};

constexpr auto failureLine = "[Notifications] WARNING: No notification service answers: ";

} // namespace

/// Uses a private session bus with a fake notification service.
class NotificationsLinuxTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QVERIFY(m_bus.start()); }
    void init()
    {
        m_service = std::make_unique<FakeNotificationService>(m_bus.address());
        QVERIFY(m_service->isServing());
        m_notifications = std::make_unique<NotificationsLinux>(m_bus.address());
        m_log.clear();
    }
    void cleanup()
    {
        m_notifications.reset();
        m_service.reset();
    }

    void showsTextWithDefaultAction()
    {
        QVERIFY(m_notifications->support().isApplied());
        // The bus is not connected yet.
        m_notifications->show(QStringLiteral("Title"), QStringLiteral("Text"));
        QTRY_COMPARE(m_service->notices.size(), 1);
        const QVariantList &notice = m_service->notices.constFirst();
        QCOMPARE(notice.size(), 8);
        QCOMPARE(notice.at(0), QStringLiteral("Quellora"));
        QCOMPARE(notice.at(1), 0U);
        QCOMPARE(notice.at(3), QStringLiteral("Title"));
        QCOMPARE(notice.at(4), QStringLiteral("Text"));
        QCOMPARE(notice.at(5).toStringList(),
                 (QStringList{QStringLiteral("default"), QStringLiteral("Show Quellora")}));
        QCOMPARE(notice.at(7), -1);
        QVERIFY(m_log.lines.isEmpty());
    }

    void replacesPreviousNotification()
    {
        QVERIFY(showAndWait());
        QVERIFY(showAndWait());
        QCOMPARE(m_service->notices.constLast().at(1), 7U);
    }

    void replacesNotificationBeingSent()
    {
        m_service->isSlow = true;
        m_notifications->show(QStringLiteral("1"), {});
        QTRY_COMPARE(m_service->notices.size(), 1);
        m_notifications->show(QStringLiteral("2"), {});
        m_notifications->show(QStringLiteral("3"), {});
        m_service->answer();
        // The second one was outdated before it could be sent.
        QTRY_COMPARE(m_service->notices.size(), 2);
        QCOMPARE(m_service->notices.constLast().at(3), QStringLiteral("3"));
        QCOMPARE(m_service->notices.constLast().at(1), 7U);
    }

    void closesNotification()
    {
        QVERIFY(showAndWait());
        m_notifications->close();
        m_notifications->close();
        QTRY_COMPARE(m_service->closed, QList<uint>{7});
        QVERIFY(showAndWait());
        QCOMPARE(m_service->notices.constLast().at(1), 0U);
        QCOMPARE(m_service->closed, QList<uint>{7});
    }

    void closesNotificationBeingSent()
    {
        m_service->isSlow = true;
        m_notifications->show(QStringLiteral("1"), {});
        QTRY_COMPARE(m_service->notices.size(), 1);
        m_notifications->close();
        m_service->answer();
        QTRY_COMPARE(m_service->closed, QList<uint>{7});
    }

    void defaultActionIsReported()
    {
        QVERIFY(showAndWait());
        QSignalSpy chosen(m_notifications.get(), &Notifications::chosen);
        QVERIFY(m_service->invoke(8, QStringLiteral("default")));
        QVERIFY(m_service->invoke(7, QStringLiteral("other")));
        QVERIFY(m_service->invoke(7, QStringLiteral("default")));
        QTRY_COMPARE(chosen.size(), 1);
        // Signals arrive in order: the others have been handled.
        QVERIFY(m_service->invoke(7, QStringLiteral("default")));
        QTRY_COMPARE(chosen.size(), 2);
    }

    void dismissedNotificationIsForgotten()
    {
        QVERIFY(showAndWait());
        QSignalSpy chosen(m_notifications.get(), &Notifications::chosen);
        QVERIFY(m_service->dismiss(8));
        QVERIFY(m_service->invoke(7, QStringLiteral("default")));
        QTRY_COMPARE(chosen.size(), 1);
        SignalCount received;
        m_notifications->installEventFilter(&received);
        QVERIFY(m_service->dismiss(7));
        QVERIFY(m_service->invoke(7, QStringLiteral("default")));
        QTRY_COMPARE(received.count, 2);
        QVERIFY(showAndWait());
        QCOMPARE(m_service->notices.constLast().at(1), 0U);
        QCOMPARE(chosen.size(), 1);
    }

    void missingServiceIsLoggedOnce()
    {
        m_service.reset();
        m_notifications->show(QStringLiteral("1"), {});
        QTRY_COMPARE(m_log.lines.size(), 1);
        QVERIFY(m_log.lines.constFirst().startsWith(QLatin1String(failureLine)));
        m_notifications->show(QStringLiteral("2"), {});
        m_notifications->close();
        m_service = std::make_unique<FakeNotificationService>(m_bus.address());
        QTRY_VERIFY(showAndWait());
        QCOMPARE(m_log.lines.size(), 1);
    }

    void refusalIsLogged()
    {
        m_service->refuses = true;
        m_notifications->show(QStringLiteral("1"), {});
        QTRY_COMPARE(m_log.lines, QStringList{QString(failureLine) + QStringLiteral("no screen")});
        m_notifications->close();
        m_service->refuses = false;
        QVERIFY(showAndWait());
        QVERIFY(m_service->closed.isEmpty());
    }

    void missingBusIsLogged_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("reason");
        QTest::newRow("none") << QString() << QStringLiteral("there is no session bus");
        QTest::newRow("unreachable") << QStringLiteral("unix:path=/nonexistent/bus")
                                     << QStringLiteral("the session bus cannot be reached");
    }
    void missingBusIsLogged()
    {
        QFETCH(QString, address);
        QFETCH(QString, reason);
        NotificationsLinux notifications(address);
        QCOMPARE(notifications.support().isApplied(), !address.isEmpty());
        notifications.show(QStringLiteral("1"), {});
        QTRY_COMPARE(m_log.lines, QStringList{QString(failureLine) + reason});
        notifications.show(QStringLiteral("2"), {});
        notifications.close();
        QCOMPARE(m_log.lines.size(), 1);
    }

    void canBeDestroyedWhileSending()
    {
        m_service->isSlow = true;
        m_notifications->show(QStringLiteral("1"), {});
        QTRY_COMPARE(m_service->notices.size(), 1);
        m_notifications.reset();
        m_service->answer();
        QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
        QCoreApplication::processEvents();
    }

private:
    /// Shows a notification and waits until the service has it.
    bool showAndWait()
    {
        const qsizetype before = m_service->notices.size();
        m_notifications->show(QStringLiteral("Title"), QStringLiteral("Text"));
        return QTest::qWaitFor([&] { return m_service->notices.size() > before; });
    }

    LogCapture m_log;
    PrivateBus m_bus;
    std::unique_ptr<FakeNotificationService> m_service;
    std::unique_ptr<NotificationsLinux> m_notifications;
};

QUELLORA_TEST(QCoreApplication, NotificationsLinuxTest)
#include "test_notifications_linux.moc"
