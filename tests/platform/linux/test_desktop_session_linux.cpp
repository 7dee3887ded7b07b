#include "platform/linux/DesktopSessionLinux.h"
#include "platform/linux/FakePortal.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QSignalSpy>
#include <QThreadPool>
#include <QtTest>

#include <memory>

using namespace quellora;

namespace {

/// A session's id and object path, as in a user's property Display.
struct SessionOfUser
{
    QString id;
    QDBusObjectPath path;
};

QDBusArgument &operator<<(QDBusArgument &argument, const SessionOfUser &session)
{
    argument.beginStructure();
    argument << session.id << session.path;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SessionOfUser &session)
{
    argument.beginStructure();
    argument >> session.id >> session.path;
    argument.endStructure();
    return argument;
}

const QString ourSession = QStringLiteral("/org/freedesktop/login1/session/_31");
const QString otherSession = QStringLiteral("/org/freedesktop/login1/session/_32");
const QString sessionInterface = QStringLiteral("org.freedesktop.login1.Session");

/// The login manager with the sessions _31 and _32.
class FakeLogin : public BusService
{
public:
    explicit FakeLogin(const QString &busAddress)
        : BusService(busAddress, QStringLiteral("org.freedesktop.login1"),
                     QStringLiteral("/org/freedesktop/login1"))
    {}

    bool lock(const QString &session = ourSession)
    {
        return emitSignal(session, sessionInterface, QStringLiteral("Lock"), {});
    }
    bool unlock() { return emitSignal(ourSession, sessionInterface, QStringLiteral("Unlock"), {}); }
    /// Changes LockedHint of our session.
    bool setHint(bool isLocked)
    {
        hint = isLocked;
        return emitSignal(ourSession, QStringLiteral("org.freedesktop.DBus.Properties"),
                          QStringLiteral("PropertiesChanged"),
                          {sessionInterface, QVariantMap{{QStringLiteral("LockedHint"), isLocked}},
                           QStringList()});
    }
    bool prepareForSleep(bool isBeginning)
    {
        return emitSignal(QStringLiteral("/org/freedesktop/login1"),
                          QStringLiteral("org.freedesktop.login1.Manager"),
                          QStringLiteral("PrepareForSleep"), {isBeginning});
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        const QVariantList arguments = message.arguments();
        QVariant answer;
        if (message.member() == QStringLiteral("GetSessionByPID")) {
            askedPids << arguments.value(0).toUInt();
            if (knowsProcess)
                answer = QVariant::fromValue(QDBusObjectPath(ourSession));
        } else if (message.member() == QStringLiteral("GetSession")) {
            if (arguments.value(0) == QStringLiteral("1"))
                answer = QVariant::fromValue(QDBusObjectPath(ourSession));
        } else if (arguments.value(1) == QStringLiteral("Display")) {
            answer = QVariant::fromValue(QDBusVariant(QVariant::fromValue(
                hasDisplay ? SessionOfUser{QStringLiteral("1"), QDBusObjectPath(ourSession)}
                           : SessionOfUser{QString(), QDBusObjectPath(QStringLiteral("/"))})));
            ++displayReads;
        } else if (arguments.value(1) == QStringLiteral("LockedHint")) {
            if (message.path() == ourSession && hint.isValid())
                answer = QVariant::fromValue(QDBusVariant(hint));
            ++hintReads;
        }
        connection.send(answer.isValid() ? message.createReply(answer)
                                         : message.createErrorReply(QDBusError::UnknownObject,
                                                                    QStringLiteral("not here")));
        return true;
    }

    bool knowsProcess = true;
    bool hasDisplay = false;
    QVariant hint = false;
    QList<uint> askedPids;
    int displayReads = 0;
    int hintReads = 0;
};

/// A screen locker of the desktop.
class FakeSaver : public BusService
{
public:
    FakeSaver(const QString &busAddress, const QString &name)
        : BusService(busAddress, name, pathOf(name)), m_name(name)
    {}

    bool setActive(bool on)
    {
        active = on;
        return emitSignal(pathOf(m_name), m_name, QStringLiteral("ActiveChanged"), {on});
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.member() != QStringLiteral("GetActive"))
            return false;
        ++reads;
        connection.send(message.createReply(active));
        return true;
    }

    bool active = false;
    int reads = 0;

private:
    static QString pathOf(const QString &name)
    {
        return QLatin1Char('/') + QString(name).replace(QLatin1Char('.'), QLatin1Char('/'));
    }

    QString m_name;
};

} // namespace

Q_DECLARE_METATYPE(SessionOfUser)

/// Uses one private bus as system bus and another one as session bus.
class DesktopSessionLinuxTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        qDBusRegisterMetaType<SessionOfUser>();
        QVERIFY(m_systemBus.start());
        QVERIFY(m_sessionBus.start());
    }
    void init()
    {
        qunsetenv("XDG_SESSION_ID");
        m_login = std::make_unique<FakeLogin>(m_systemBus.address());
        QVERIFY(m_login->isServing());
    }
    void cleanup()
    {
        m_session.reset();
        m_login.reset();
    }

    void isUnlockedAndUnobservedWithoutBuses()
    {
        DesktopSessionLinux session{QString(), QString()};
        QVERIFY(!session.isLocked());
        QCOMPARE(session.isObserved().state(), Capability::State::Unsupported);
        QVERIFY(!session.isObserved().reason().isEmpty());
    }

    void unknownStateIsNotLocked()
    {
        m_login->knowsProcess = false;
        start();
        QTRY_COMPARE(m_login->displayReads, 1);
        QVERIFY(resumes());
        QVERIFY(!m_session->isLocked());
        QVERIFY(m_session->isObserved().isApplied());
    }

    void unreachableBusesAreIgnored()
    {
        DesktopSessionLinux session(QStringLiteral("unix:path=/nonexistent/a"),
                                    QStringLiteral("unix:path=/nonexistent/b"));
        QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
        QCoreApplication::processEvents();
        QVERIFY(!session.isLocked());
    }

    void readsHintAtStart()
    {
        m_login->hint = true;
        start();
        QTRY_VERIFY(m_session->isLocked());
        QCOMPARE(m_login->askedPids,
                 QList<uint>{static_cast<uint>(QCoreApplication::applicationPid())});
        QCOMPARE(m_changes, QList<bool>{true});
    }

    void findsSessionOutsideOfItsProcesses_data()
    {
        QTest::addColumn<QByteArray>("idInEnvironment");
        QTest::addColumn<bool>("hasDisplay");
        QTest::newRow("by the environment") << QByteArray("1") << false;
        QTest::newRow("by the user's display") << QByteArray() << true;
        QTest::newRow("environment is outdated") << QByteArray("99") << true;
    }
    void findsSessionOutsideOfItsProcesses()
    {
        QFETCH(QByteArray, idInEnvironment);
        QFETCH(bool, hasDisplay);
        if (!idInEnvironment.isEmpty())
            qputenv("XDG_SESSION_ID", idInEnvironment);
        m_login->knowsProcess = false;
        m_login->hasDisplay = hasDisplay;
        m_login->hint = true;
        start();
        QTRY_VERIFY(m_session->isLocked());
    }

    void followsHint()
    {
        startAndReadHint();
        QVERIFY(m_login->setHint(true));
        QTRY_COMPARE(m_changes, QList<bool>{true});
        QVERIFY(m_session->isLocked());
        QVERIFY(m_login->setHint(false));
        QTRY_COMPARE(m_changes, (QList<bool>{true, false}));
        QVERIFY(!m_session->isLocked());
    }

    void followsLockSignals()
    {
        startAndReadHint();
        QVERIFY(m_login->lock());
        QTRY_COMPARE(m_changes, QList<bool>{true});
        // A confirmation announces nothing new.
        QVERIFY(m_login->setHint(true));
        QVERIFY(m_login->unlock());
        QTRY_COMPARE(m_changes, (QList<bool>{true, false}));
    }

    void otherSessionsAndSendersAreIgnored()
    {
        startAndReadHint();
        QVERIFY(m_login->lock(otherSession));
        // The same signals from a program that is not the login manager.
        QDBusConnection bus =
            QDBusConnection::connectToBus(m_systemBus.address(), QStringLiteral("stranger"));
        QVERIFY(bus.send(
            QDBusMessage::createSignal(ourSession, sessionInterface, QStringLiteral("Lock"))));
        QDBusMessage sleep = QDBusMessage::createSignal(
            QStringLiteral("/org/freedesktop/login1"),
            QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"));
        sleep << false;
        QVERIFY(bus.send(sleep));
        // A reply to the stranger: the bus has distributed its signals.
        QVERIFY(bus.interface()->isServiceRegistered(QStringLiteral("org.freedesktop.login1")));
        QDBusConnection::disconnectFromBus(QStringLiteral("stranger"));
        QVERIFY(resumes());
        QCOMPARE(m_changes, QList<bool>());
        QCOMPARE(m_resumes, 1);
    }

    void resumesAfterSleepOnly()
    {
        startAndReadHint();
        QVERIFY(m_login->prepareForSleep(true));
        QVERIFY(m_login->prepareForSleep(false));
        QTRY_COMPARE(m_resumes, 1);
        QVERIFY(m_login->prepareForSleep(true));
        QVERIFY(m_login->prepareForSleep(false));
        QTRY_COMPARE(m_resumes, 2);
    }

    void loginManagerMayRestart()
    {
        startAndReadHint();
        QVERIFY(m_login->setHint(true));
        QTRY_VERIFY(m_session->isLocked());
        m_login.reset();
        QTRY_VERIFY(!m_session->isLocked());
        m_login = std::make_unique<FakeLogin>(m_systemBus.address());
        m_login->hint = true;
        QTRY_VERIFY(m_session->isLocked());
        QVERIFY(m_login->setHint(false));
        QTRY_VERIFY(!m_session->isLocked());
    }

    void followsScreenLockers_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("common") << QStringLiteral("org.freedesktop.ScreenSaver");
        QTest::newRow("gnome") << QStringLiteral("org.gnome.ScreenSaver");
    }
    void followsScreenLockers()
    {
        QFETCH(QString, name);
        auto saver = std::make_unique<FakeSaver>(m_sessionBus.address(), name);
        QVERIFY(saver->isServing());
        saver->active = true;
        startAndReadHint();
        QTRY_COMPARE(m_changes, QList<bool>{true});
        QCOMPARE(saver->reads, 1);
        QVERIFY(saver->setActive(false));
        QTRY_COMPARE(m_changes, (QList<bool>{true, false}));
        QVERIFY(saver->setActive(true));
        QTRY_COMPARE(m_changes, (QList<bool>{true, false, true}));
        // A locker that is gone says nothing about the session any more.
        saver.reset();
        QTRY_COMPARE(m_changes, (QList<bool>{true, false, true, false}));
        // One that starts later is asked.
        saver = std::make_unique<FakeSaver>(m_sessionBus.address(), name);
        saver->active = true;
        QTRY_COMPARE(m_changes, (QList<bool>{true, false, true, false, true}));
    }

    void anyLockerLocks()
    {
        FakeSaver saver(m_sessionBus.address(), QStringLiteral("org.gnome.ScreenSaver"));
        startAndReadHint();
        QTRY_COMPARE(saver.reads, 1);
        QVERIFY(saver.setActive(true));
        QTRY_VERIFY(m_session->isLocked());
        QVERIFY(m_login->setHint(true));
        QVERIFY(m_login->setHint(false));
        QVERIFY(resumes());
        QVERIFY(m_session->isLocked());
        QVERIFY(saver.setActive(false));
        QTRY_VERIFY(!m_session->isLocked());
        QCOMPARE(m_changes, (QList<bool>{true, false}));
    }

    void inactiveLockerEndsUnconfirmedLock()
    {
        FakeSaver saver(m_sessionBus.address(), QStringLiteral("org.gnome.ScreenSaver"));
        startAndReadHint();
        QTRY_COMPARE(saver.reads, 1);
        QVERIFY(m_login->lock());
        QTRY_VERIFY(m_session->isLocked());
        QVERIFY(saver.setActive(true));
        QVERIFY(saver.setActive(false));
        QTRY_VERIFY(!m_session->isLocked());
        QCOMPARE(m_changes, (QList<bool>{true, false}));
    }

    void canBeDestroyedWhileAsking()
    {
        for (int i = 0; i < 5; ++i)
            DesktopSessionLinux session(m_systemBus.address(), m_sessionBus.address());
        QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
        QCoreApplication::processEvents();
        start();
        QTRY_VERIFY(m_login->hintReads >= 1);
    }

private:
    void start()
    {
        m_changes.clear();
        m_resumes = 0;
        m_session =
            std::make_unique<DesktopSessionLinux>(m_systemBus.address(), m_sessionBus.address());
        connect(m_session.get(), &DesktopSession::lockedChanged, this,
                [this](bool isLocked) { m_changes << isLocked; });
        connect(m_session.get(), &DesktopSession::resumed, this, [this] { ++m_resumes; });
    }
    /// Returns once the signals of the login manager are received.
    void startAndReadHint()
    {
        const int before = m_login->hintReads;
        start();
        QTRY_COMPARE(m_login->hintReads, before + 1);
    }
    /// Whether the end of a sleep is reported; everything sent before it has been handled then.
    bool resumes()
    {
        const int before = m_resumes;
        return m_login->prepareForSleep(false) &&
               QTest::qWaitFor([&] { return m_resumes > before; });
    }

    PrivateBus m_systemBus;
    PrivateBus m_sessionBus;
    std::unique_ptr<FakeLogin> m_login;
    std::unique_ptr<DesktopSessionLinux> m_session;
    QList<bool> m_changes;
    int m_resumes = 0;
};

QUELLORA_TEST(QCoreApplication, DesktopSessionLinuxTest)
#include "test_desktop_session_linux.moc"
