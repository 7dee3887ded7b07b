#include "platform/linux/FakePortal.h"
#include "platform/linux/SessionBusLinux.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSemaphore>
#include <QSignalSpy>
#include <QThreadPool>

#include <memory>

using namespace quellora;

/// Uses a private session bus.
class SessionBusLinuxTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QVERIFY(m_bus.start()); }

    void connectsOnWorkerThread()
    {
        // While the workers are busy, nothing connects.
        QThreadPool &workers = *QThreadPool::globalInstance();
        QSemaphore busy;
        for (int i = 0; i < workers.maxThreadCount(); ++i)
            workers.start([&busy] { busy.acquire(); });
        SessionBusLinux bus(QStringLiteral("test"), m_bus.address());
        QSignalSpy connected(&bus, &SessionBusLinux::connected);
        const bool isEarly = bus.connection().isConnected();
        busy.release(workers.maxThreadCount());
        QVERIFY(!isEarly);
        QTRY_COMPARE(connected.size(), 1);
        QVERIFY(bus.connection().isConnected());
    }

    void doesNotConnectWithoutBus_data()
    {
        QTest::addColumn<QString>("address");
        QTest::newRow("none") << QString();
        QTest::newRow("unreachable") << QStringLiteral("unix:path=/nonexistent/bus");
    }
    void doesNotConnectWithoutBus()
    {
        QFETCH(QString, address);
        SessionBusLinux bus(QStringLiteral("test"), address);
        QSignalSpy connected(&bus, &SessionBusLinux::connected);
        QSignalSpy failed(&bus, &SessionBusLinux::failed);
        QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
        QCoreApplication::processEvents();
        QCOMPARE(connected.size(), 0);
        QCOMPARE(failed.size(), address.isEmpty() ? 0 : 1);
        QVERIFY(!bus.connection().isConnected());
    }

    void errorTextIsOneShortLine()
    {
        const QString text = QStringLiteral("Traceback:\n  File \"a\"\n") + QString(5000, u'x');
        const QString shown = SessionBusLinux::errorText(
            QDBusMessage::createMethodCall({}, QStringLiteral("/"), {}, QStringLiteral("m"))
                .createErrorReply(QStringLiteral("a.Failed"), text));
        QVERIFY(shown.startsWith(QStringLiteral("Traceback: File \"a\" xxx")));
        QCOMPARE(shown.size(), 201);
    }

    void canBeDestroyedWhileConnecting()
    {
        for (int i = 0; i < 1200; ++i) {
            auto bus = std::make_unique<SessionBusLinux>(QStringLiteral("test"), m_bus.address());
            // Destroy it either immediately or after the thread has connected but before the signal
            // is delivered.
            QElapsedTimer clock;
            clock.start();
            while (i % 10 != 0 && !bus->connection().isConnected())
                QVERIFY(clock.elapsed() < 10'000);
            // The connection can be looked up by name after the object is gone.
            const QString name = bus->connection().name();
            bus.reset();
            QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
            QCoreApplication::processEvents();
            QVERIFY(!QDBusConnection(name).isConnected());
        }
    }

private:
    PrivateBus m_bus;
};

QUELLORA_TEST(QCoreApplication, SessionBusLinuxTest)
#include "test_session_bus_linux.moc"
