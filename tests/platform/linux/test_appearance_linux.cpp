#include "platform/linux/AppearanceLinux.h"
#include "platform/linux/FakePortal.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QPalette>
#include <QtTest>

using namespace quellora;

namespace {

void setPaletteDark(bool dark)
{
    QPalette palette;
    palette.setColor(QPalette::Window, dark ? Qt::black : Qt::white);
    QGuiApplication::setPalette(palette);
}

} // namespace

/// Uses a private session bus with a fake portal.
class AppearanceLinuxTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void usesPaletteWithoutBus();
    void usesPortalsColourScheme_data();
    void usesPortalsColourScheme();
    void followsSettingChanged();
    void otherSettingsAreIgnored();
    void keepsPaletteIfReadFails();
    void keepsPaletteIfBusIsUnreachable();
    void canBeDestroyedDuringRead();
    void usesPortalsMotionSetting_data();
    void usesPortalsMotionSetting();
    void followsMotionSettingChanged();
    void findsSessionBusAddress();

private:
    void sendChange(const QString &group, const QString &key, const QVariant &value);

    PrivateBus m_bus;
    QString m_address;
    std::unique_ptr<FakePortal> m_portal;
};

void AppearanceLinuxTest::initTestCase()
{
    QVERIFY(m_bus.start());
    m_address = m_bus.address();
}

void AppearanceLinuxTest::init()
{
    setPaletteDark(false);
    m_portal = std::make_unique<FakePortal>(m_address);
    QVERIFY(m_portal->isServing());
}

void AppearanceLinuxTest::cleanup()
{
    m_portal.reset();
}

void AppearanceLinuxTest::sendChange(const QString &group, const QString &key,
                                     const QVariant &value)
{
    QVERIFY(m_portal->sendChange(group, key, value));
}

void AppearanceLinuxTest::usesPaletteWithoutBus()
{
    setPaletteDark(true);
    AppearanceLinux appearance{QString()};
    QVERIFY(appearance.isDark());
    int changes = 0;
    appearance.onChanged([&changes] { ++changes; });
    setPaletteDark(false);
    QTRY_COMPARE(changes, 1);
    QVERIFY(!appearance.isDark());
}

void AppearanceLinuxTest::usesPortalsColourScheme_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("darkPalette");
    QTest::addColumn<bool>("dark");
    QTest::newRow("dark") << QVariant(1U) << false << true;
    QTest::newRow("light") << QVariant(2U) << true << false;
    QTest::newRow("no preference, dark palette") << QVariant(0U) << true << true;
    QTest::newRow("no preference, light palette") << QVariant(0U) << false << false;
    QTest::newRow("reserved") << QVariant(3U) << true << true;
    QTest::newRow("string") << QVariant(QStringLiteral("purple")) << true << true;
}

void AppearanceLinuxTest::usesPortalsColourScheme()
{
    QFETCH(QVariant, value);
    QFETCH(bool, darkPalette);
    QFETCH(bool, dark);
    setPaletteDark(darkPalette);
    m_portal->value = value;
    AppearanceLinux appearance(m_address);
    // The palette is used until the portal's reply arrives; the constructor does not block.
    QCOMPARE(appearance.isDark(), darkPalette);
    int changes = 0;
    appearance.onChanged([&changes] { ++changes; });
    QTRY_COMPARE(m_portal->reads, 1);
    QCOMPARE(m_portal->readArguments, (QVariantList{QStringLiteral("org.freedesktop.appearance"),
                                                    QStringLiteral("color-scheme")}));
    QTRY_COMPARE(appearance.isDark(), dark);
    QCOMPARE(changes, dark == darkPalette ? 0 : 1);
}

void AppearanceLinuxTest::followsSettingChanged()
{
    AppearanceLinux appearance(m_address);
    QList<bool> seen;
    appearance.onChanged([&] { seen << appearance.isDark(); });
    QTRY_COMPARE(m_portal->reads, 1);
    const QString group = QStringLiteral("org.freedesktop.appearance");
    const QString key = QStringLiteral("color-scheme");
    sendChange(group, key, 1U);
    QTRY_COMPARE(seen, QList<bool>{true});
    sendChange(group, key, 1U);
    sendChange(group, key, 2U);
    QTRY_COMPARE(seen, (QList<bool>{true, false}));
    // A light scheme overrides a dark palette until the preference is removed.
    setPaletteDark(true);
    QCoreApplication::processEvents();
    QVERIFY(!appearance.isDark());
    sendChange(group, key, 0U);
    QTRY_COMPARE(seen, (QList<bool>{true, false, true}));
}

void AppearanceLinuxTest::otherSettingsAreIgnored()
{
    AppearanceLinux appearance(m_address);
    QList<bool> seen;
    appearance.onChanged([&] { seen << appearance.isDark(); });
    QTRY_COMPARE(m_portal->reads, 1);
    sendChange(QStringLiteral("org.freedesktop.appearance"), QStringLiteral("accent-color"), 1U);
    sendChange(QStringLiteral("org.example.appearance"), QStringLiteral("color-scheme"), 1U);
    // Signals arrive in order: once this one has arrived, the others have been handled.
    sendChange(QStringLiteral("org.freedesktop.appearance"), QStringLiteral("color-scheme"), 1U);
    QTRY_COMPARE(seen, QList<bool>{true});
}

void AppearanceLinuxTest::keepsPaletteIfReadFails()
{
    setPaletteDark(true);
    m_portal->refuses = true;
    AppearanceLinux appearance(m_address);
    QTRY_COMPARE(m_portal->reads, 1);
    sendChange(QStringLiteral("org.freedesktop.appearance"), QStringLiteral("color-scheme"), 2U);
    QTRY_VERIFY(!appearance.isDark());
}

void AppearanceLinuxTest::keepsPaletteIfBusIsUnreachable()
{
    setPaletteDark(true);
    AppearanceLinux appearance(QStringLiteral("unix:path=/nonexistent/bus"));
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
    QVERIFY(appearance.isDark());
}

void AppearanceLinuxTest::canBeDestroyedDuringRead()
{
    for (int i = 0; i < 5; ++i)
        AppearanceLinux appearance(m_address);
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
    AppearanceLinux appearance(m_address);
    QTRY_COMPARE(m_portal->reads, 1);
}

void AppearanceLinuxTest::usesPortalsMotionSetting_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("reduces");
    QTest::newRow("on") << QVariant(true) << false;
    QTest::newRow("off") << QVariant(false) << true;
    QTest::newRow("no such setting") << QVariant() << false;
    QTest::newRow("number") << QVariant(0U) << false;
    QTest::newRow("string") << QVariant(QStringLiteral("false")) << false;
}

void AppearanceLinuxTest::usesPortalsMotionSetting()
{
    QFETCH(QVariant, value);
    QFETCH(bool, reduces);
    m_portal->animations = value;
    AppearanceLinux appearance(m_address);
    QVERIFY(!appearance.reducesMotion());
    int changes = 0;
    appearance.onMotionChanged([&changes] { ++changes; });
    bool hasScheme = false;
    appearance.onChanged([&hasScheme] { hasScheme = true; });
    QTRY_COMPARE(m_portal->motionReads, 1);
    // Messages arrive in order: once this signal has arrived, the reply has been handled.
    sendChange(QStringLiteral("org.freedesktop.appearance"), QStringLiteral("color-scheme"), 1U);
    QTRY_VERIFY(hasScheme);
    QCOMPARE(appearance.reducesMotion(), reduces);
    QCOMPARE(changes, reduces ? 1 : 0);
}

void AppearanceLinuxTest::followsMotionSettingChanged()
{
    AppearanceLinux appearance(m_address);
    QList<bool> seen;
    appearance.onMotionChanged([&] { seen << appearance.reducesMotion(); });
    int schemes = 0;
    appearance.onChanged([&schemes] { ++schemes; });
    QTRY_COMPARE(m_portal->motionReads, 1);
    const QString group = QStringLiteral("org.gnome.desktop.interface");
    const QString key = QStringLiteral("enable-animations");
    sendChange(group, key, false);
    QTRY_COMPARE(seen, QList<bool>{true});
    sendChange(group, key, false);
    sendChange(group, QStringLiteral("enable-hot-corners"), true);
    sendChange(QStringLiteral("org.example.interface"), key, true);
    sendChange(group, key, true);
    QTRY_COMPARE(seen, (QList<bool>{true, false}));
    QCOMPARE(schemes, 0);
}

void AppearanceLinuxTest::findsSessionBusAddress()
{
    QTemporaryDir folder;
    const QByteArray before = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    const QByteArray runtimeBefore = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", folder.path().toLocal8Bit());
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    QCOMPARE(SessionBusLinux::address(), QString());
    QFile socket(folder.filePath(QStringLiteral("bus")));
    QVERIFY(socket.open(QIODevice::WriteOnly));
    QCOMPARE(SessionBusLinux::address(),
             QStringLiteral("unix:path=") + folder.path() + QStringLiteral("/bus"));
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/here");
    QCOMPARE(SessionBusLinux::address(), QStringLiteral("unix:path=/here"));
    qputenv("DBUS_SESSION_BUS_ADDRESS", before);
    qputenv("XDG_RUNTIME_DIR", runtimeBefore);
}

QUELLORA_TEST(QGuiApplication, AppearanceLinuxTest)
#include "test_appearance_linux.moc"
