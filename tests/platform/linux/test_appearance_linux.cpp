#include "platform/linux/AppearanceLinux.h"
#include "platform/linux/FakePortal.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QPalette>
#include <QScreen>
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
    void followsKdesAnimations_data();
    void followsKdesAnimations();
    void usesPortalsTextSize_data();
    void usesPortalsTextSize();
    void followsTextSizeChanged();
    void textSizeIsNotAppliedTwice_data();
    void textSizeIsNotAppliedTwice();
    void followsResolution();
    void findsSessionBusAddress();

private:
    /// Waits until all replies that the portal has sent so far have been handled.
    void settle(AppearanceLinux &appearance);
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

void AppearanceLinuxTest::settle(AppearanceLinux &appearance)
{
    // Messages arrive in order.
    QTRY_COMPARE(m_portal->otherReads.size(), 3);
    bool hasScheme = false;
    appearance.onChanged([&hasScheme] { hasScheme = true; });
    sendChange(QStringLiteral("org.freedesktop.appearance"), QStringLiteral("color-scheme"),
               appearance.isDark() ? 2U : 1U);
    QTRY_VERIFY(hasScheme);
}

void AppearanceLinuxTest::followsKdesAnimations_data()
{
    QTest::addColumn<QVariant>("factor");
    QTest::addColumn<bool>("reduces");
    QTest::newRow("none") << QVariant(QStringLiteral("0")) << true;
    QTest::newRow("none, as a number") << QVariant(0.0) << true;
    QTest::newRow("fast") << QVariant(QStringLiteral("0.25")) << false;
    QTest::newRow("slow") << QVariant(QStringLiteral("4")) << false;
    QTest::newRow("not set") << QVariant() << false;
    QTest::newRow("empty") << QVariant(QString()) << false;
    QTest::newRow("word") << QVariant(QStringLiteral("none")) << false;
    QTest::newRow("not a number") << QVariant(QStringLiteral("nan")) << false;
    QTest::newRow("flag") << QVariant(false) << false;
}

void AppearanceLinuxTest::followsKdesAnimations()
{
    QFETCH(QVariant, factor);
    QFETCH(bool, reduces);
    const QString group = QStringLiteral("org.kde.kdeglobals.KDE");
    const QString key = QStringLiteral("AnimationDurationFactor");
    m_portal->others.insert(group + QLatin1Char(' ') + key, factor);
    AppearanceLinux appearance(m_address);
    settle(appearance);
    QCOMPARE(appearance.reducesMotion(), reduces);
    QList<bool> seen;
    appearance.onMotionChanged([&] { seen << appearance.reducesMotion(); });
    sendChange(group, key, QStringLiteral("1"));
    sendChange(group, key, QStringLiteral("0"));
    QTRY_COMPARE(seen, reduces ? (QList<bool>{false, true}) : QList<bool>{true});
    // One of the two switches is enough.
    sendChange(QStringLiteral("org.gnome.desktop.interface"), QStringLiteral("enable-animations"),
               false);
    sendChange(group, key, QStringLiteral("1"));
    settle(appearance);
    QVERIFY(appearance.reducesMotion());
}

void AppearanceLinuxTest::usesPortalsTextSize_data()
{
    QTest::addColumn<QVariant>("factor");
    QTest::addColumn<QVariant>("font");
    QTest::addColumn<double>("scale");
    const auto font = [](const char *size) {
        return QVariant(QStringLiteral("Noto Sans,%1,-1,5,50,0,0,0,0,0").arg(QLatin1String(size)));
    };
    QTest::newRow("normal") << QVariant(1.0) << QVariant() << 1.0;
    QTest::newRow("large") << QVariant(1.25) << QVariant() << 1.25;
    QTest::newRow("small") << QVariant(0.8) << QVariant() << 0.8;
    QTest::newRow("whole number") << QVariant(2) << QVariant() << 2.0;
    QTest::newRow("too large") << QVariant(1e300) << QVariant() << 3.0;
    QTest::newRow("too small") << QVariant(0.01) << QVariant() << 0.5;
    QTest::newRow("zero") << QVariant(0.0) << QVariant() << 1.0;
    QTest::newRow("negative") << QVariant(-2.0) << QVariant() << 1.0;
    QTest::newRow("not a number") << QVariant(qQNaN()) << QVariant() << 1.0;
    QTest::newRow("infinite") << QVariant(qInf()) << QVariant() << 1.0;
    QTest::newRow("word") << QVariant(QStringLiteral("huge")) << QVariant() << 1.0;
    QTest::newRow("flag") << QVariant(true) << QVariant() << 1.0;
    QTest::newRow("not set") << QVariant() << QVariant() << 1.0;
    QTest::newRow("KDE's default font") << QVariant() << font("10") << 1.0;
    QTest::newRow("KDE's larger font") << QVariant() << font("12") << 1.2;
    QTest::newRow("KDE's fractional font") << QVariant(1.0) << font("10.5") << 1.05;
    QTest::newRow("both") << QVariant(1.5) << font("12") << 1.5 * 1.2;
    QTest::newRow("both too large") << QVariant(3.0) << font("30") << 3.0;
    QTest::newRow("font in pixels") << QVariant() << font("-1") << 1.0;
    QTest::newRow("font without size")
        << QVariant() << QVariant(QStringLiteral("Noto Sans")) << 1.0;
    QTest::newRow("font that is no text") << QVariant() << QVariant(12) << 1.0;
}

void AppearanceLinuxTest::usesPortalsTextSize()
{
    QFETCH(QVariant, factor);
    QFETCH(QVariant, font);
    QFETCH(double, scale);
    m_portal->others = {{QStringLiteral("org.gnome.desktop.interface text-scaling-factor"), factor},
                        {QStringLiteral("org.kde.kdeglobals.General font"), font}};
    AppearanceLinux appearance(m_address);
    QCOMPARE(appearance.textScale(), 1.0);
    QList<double> seen;
    appearance.onTextScaleChanged([&] { seen << appearance.textScale(); });
    settle(appearance);
    QCOMPARE(appearance.textScale(), scale);
    QCOMPARE(seen.isEmpty(), scale == 1);
}

void AppearanceLinuxTest::followsTextSizeChanged()
{
    AppearanceLinux appearance(m_address);
    QList<double> seen;
    appearance.onTextScaleChanged([&] { seen << appearance.textScale(); });
    settle(appearance);
    const QString group = QStringLiteral("org.gnome.desktop.interface");
    const QString key = QStringLiteral("text-scaling-factor");
    sendChange(group, key, 1.25);
    QTRY_COMPARE(seen, QList<double>{1.25});
    sendChange(group, key, 1.25);
    sendChange(QStringLiteral("org.example.interface"), key, 2.0);
    sendChange(group, QStringLiteral("cursor-size"), 48);
    sendChange(group, key, 1.5);
    sendChange(group, key, QStringLiteral("hostile"));
    QTRY_COMPARE(seen, (QList<double>{1.25, 1.5, 1.0}));
    sendChange(QStringLiteral("org.kde.kdeglobals.General"), QStringLiteral("font"),
               QStringLiteral("Noto Sans,14,-1,5,50,0,0,0,0,0"));
    QTRY_COMPARE(seen, (QList<double>{1.25, 1.5, 1.0, 1.4}));
}

void AppearanceLinuxTest::textSizeIsNotAppliedTwice_data()
{
    QTest::addColumn<double>("factor");
    QTest::addColumn<double>("resolution");
    QTest::addColumn<double>("scale");
    // The resolution in relation to 96 dots per inch.
    QTest::newRow("resolution untouched") << 1.25 << 1.0 << 1.25;
    QTest::newRow("in the resolution") << 1.25 << 120 / 96.0 << 1.0;
    QTest::newRow("in the rounded resolution") << 1.1 << 105 / 96.0 << 1.0;
    QTest::newRow("with doubled windows") << 1.25 << 240 / 96.0 << 1.0;
    QTest::newRow("reduced text") << 0.8 << 77 / 96.0 << 1.0;
    QTest::newRow("only the windows are doubled") << 1.25 << 2.0 << 1.25;
    QTest::newRow("only the windows are enlarged") << 1.25 << 1.75 << 1.25;
    QTest::newRow("normal text on enlarged windows") << 1.0 << 2.0 << 1.0;
}

void AppearanceLinuxTest::textSizeIsNotAppliedTwice()
{
    QFETCH(double, factor);
    QFETCH(double, resolution);
    QFETCH(double, scale);
    m_portal->others.insert(QStringLiteral("org.gnome.desktop.interface text-scaling-factor"),
                            factor);
    AppearanceLinux appearance(m_address, [resolution] { return resolution; });
    settle(appearance);
    QCOMPARE(appearance.textScale(), scale);
}

void AppearanceLinuxTest::followsResolution()
{
    double resolution = 1;
    m_portal->others.insert(QStringLiteral("org.gnome.desktop.interface text-scaling-factor"),
                            1.25);
    AppearanceLinux appearance(m_address, [&resolution] { return resolution; });
    settle(appearance);
    QCOMPARE(appearance.textScale(), 1.25);
    // The desktop's own program reports the resolution a moment later.
    resolution = 1.25;
    Q_EMIT QGuiApplication::primaryScreen()->geometryChanged(
        QGuiApplication::primaryScreen()->geometry());
    QCOMPARE(appearance.textScale(), 1.0);
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
