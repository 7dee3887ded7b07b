#include "platform/Platform.h"
#include "platform/linux/DeviceInfoLinux.h"
#include "platform/linux/LinuxPaths.h"
#include "platform/linux/PermissionsLinux.h"
#include "platform/null/NullPlatform.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QGuiApplication>
#include <QSurfaceFormat>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>

using namespace quellora;

namespace {

/// Sets or unsets environment variables and restores them on destruction.
class Environment
{
public:
    void set(const char *name, const QByteArray &value)
    {
        remember(name);
        qputenv(name, value);
    }
    void unset(const char *name)
    {
        remember(name);
        qunsetenv(name);
    }
    ~Environment()
    {
        for (auto it = m_previous.cbegin(); it != m_previous.cend(); ++it) {
            if (it->isNull())
                qunsetenv(it.key().constData());
            else
                qputenv(it.key().constData(), *it);
        }
    }

private:
    void remember(const char *name)
    {
        if (!m_previous.contains(name))
            m_previous.insert(name, qEnvironmentVariableIsSet(name) ? qgetenv(name) : QByteArray());
    }
    QMap<QByteArray, QByteArray> m_previous;
};

} // namespace

class PlatformLinuxTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void offscreenUsesNullPort();
    void offscreenReportsMachineFacts();
    void osVersionContainsSystemAndKernel();
    void cpuArchIsArm64OrX86();
    void applicationSupportFollowsXdg();
    void captureToolIsBesideProgram();
    void sessionTypeComesFromEnvironment();
    void permissionsAreGrantedOnX11Only();
    void selectsXcbOnWayland();
    void displaySessionIdentifiesDisplay();
    void displaySessionIsTheCompositorThatListens();
    void keepsPlatformPluginElsewhere_data();
    void keepsPlatformPluginElsewhere();
    void requestsAlphaChannel();
    void environmentSelectsRenderer_data();
    void environmentSelectsRenderer();
    void loadsNoOpenGLForSoftwareRendering();
};

void PlatformLinuxTest::offscreenUsesNullPort()
{
    const std::unique_ptr<Platform> platform = Platform::create();
    QVERIFY(dynamic_cast<NullPlatform *>(platform.get()));
}

void PlatformLinuxTest::offscreenReportsMachineFacts()
{
    const std::unique_ptr<Platform> platform = Platform::create();
    QCOMPARE(platform->deviceInfo().osVersion(), DeviceInfoLinux().osVersion());
    QCOMPARE(platform->captureTool().program, LinuxPaths::captureTool().program);
    QCOMPARE(platform->applicationSupportDirectory(), LinuxPaths::applicationSupportDirectory());
    QCOMPARE(platform->vocabulary().command, QStringLiteral("Super"));
}

void PlatformLinuxTest::osVersionContainsSystemAndKernel()
{
    QCOMPARE(DeviceInfoLinux(QStringLiteral("Debian GNU/Linux 12 (bookworm)"),
                             QStringLiteral("6.1.0-18-arm64"), QStringLiteral("arm64"))
                 .osVersion(),
             QStringLiteral("Debian GNU/Linux 12 (bookworm) (kernel 6.1.0-18-arm64)"));
    QCOMPARE(DeviceInfoLinux(QString(), QStringLiteral("6.1"), QString()).osVersion(),
             QStringLiteral("Linux (kernel 6.1)"));
    const QString here = DeviceInfoLinux().osVersion();
    QVERIFY2(here.contains(QSysInfo::kernelVersion()), qPrintable(here));
}

void PlatformLinuxTest::cpuArchIsArm64OrX86()
{
    const auto archOf = [](const QString &name) {
        return DeviceInfoLinux(QString(), QString(), name).cpuArch();
    };
    QCOMPARE(archOf(QStringLiteral("arm64")), QStringLiteral("arm64"));
    for (const char *other : {"x86_64", "i386", "arm", "riscv64", ""})
        QCOMPARE(archOf(QString::fromLatin1(other)), QStringLiteral("x86_64"));
}

void PlatformLinuxTest::applicationSupportFollowsXdg()
{
    Environment environment;
    environment.set("XDG_DATA_HOME", "/data/home/");
    QCOMPARE(LinuxPaths::applicationSupportDirectory(), QStringLiteral("/data/home"));
    const QString standard = QDir::homePath() + QStringLiteral("/.local/share");
    environment.set("XDG_DATA_HOME", "relative/path");
    QCOMPARE(LinuxPaths::applicationSupportDirectory(), standard);
    environment.set("XDG_DATA_HOME", "");
    QCOMPARE(LinuxPaths::applicationSupportDirectory(), standard);
    environment.unset("XDG_DATA_HOME");
    QCOMPARE(LinuxPaths::applicationSupportDirectory(), standard);
}

void PlatformLinuxTest::captureToolIsBesideProgram()
{
    const CaptureTool tool = LinuxPaths::captureTool();
    QCOMPARE(tool.program,
             QCoreApplication::applicationDirPath() + QStringLiteral("/quellora-screencapture"));
    QCOMPARE(tool.arguments, (QStringList{QStringLiteral("-x"), QStringLiteral("-C")}));
    QCOMPARE(tool.allScreensArguments, tool.arguments + QStringList{QStringLiteral("--all")});
    QCOMPARE(tool.windowArguments, tool.arguments + QStringList{QStringLiteral("--window")});
    QCOMPARE(tool.choiceArguments, (QStringList{QStringLiteral("-x"), QStringLiteral("--all")}));
}

void PlatformLinuxTest::sessionTypeComesFromEnvironment()
{
    using Session = PermissionsLinux::Session;
    Environment environment;
    environment.unset("WAYLAND_DISPLAY");
    environment.unset("XDG_SESSION_TYPE");
    QCOMPARE(PermissionsLinux::currentSession(), Session::X11);
    environment.set("XDG_SESSION_TYPE", "x11");
    QCOMPARE(PermissionsLinux::currentSession(), Session::X11);
    environment.set("XDG_SESSION_TYPE", "wayland");
    QCOMPARE(PermissionsLinux::currentSession(), Session::Wayland);
    environment.unset("XDG_SESSION_TYPE");
    environment.set("WAYLAND_DISPLAY", "wayland-0");
    QCOMPARE(PermissionsLinux::currentSession(), Session::Wayland);
}

void PlatformLinuxTest::permissionsAreGrantedOnX11Only()
{
    const PermissionsLinux x11(PermissionsLinux::Session::X11);
    QVERIFY(x11.isAccessibilityTrusted());
    QVERIFY(x11.isScreenRecordingGranted());
    PermissionsLinux wayland(PermissionsLinux::Session::Wayland);
    wayland.requestScreenRecording();
    QVERIFY(!wayland.isAccessibilityTrusted());
    QVERIFY(!wayland.isScreenRecordingGranted());
}

void PlatformLinuxTest::displaySessionIdentifiesDisplay()
{
    Environment environment;
    environment.set("WAYLAND_DISPLAY", "wayland-7");
    environment.set("DISPLAY", ":3");
    QCOMPARE(Platform::displaySession(), QStringLiteral(":3"));
    environment.set("DISPLAY", ":3.1");
    QCOMPARE(Platform::displaySession(), QStringLiteral(":3"));
    environment.set("DISPLAY", "host.example:30");
    QCOMPARE(Platform::displaySession(), QStringLiteral("host.example:30"));
    environment.unset("DISPLAY");
    QCOMPARE(Platform::displaySession(), QStringLiteral("wayland-7"));
    environment.unset("WAYLAND_DISPLAY");
    QCOMPARE(Platform::displaySession(), QString());
}

void PlatformLinuxTest::displaySessionIsTheCompositorThatListens()
{
    const QTemporaryDir runtime;
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(runtime.filePath(QStringLiteral("wayland-7")));
    std::copy(path.begin(), path.end(), address.sun_path);
    QCOMPARE(::bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    QCOMPARE(::listen(listener, 4), 0);

    Environment environment;
    environment.set("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    environment.set("DISPLAY", ":3");
    environment.set("WAYLAND_DISPLAY", "wayland-7");
    for (const char *forced : {"", "wayland", "xwayland", "x11"}) {
        environment.set("QUELLORA_PLATFORM", forced);
        QCOMPARE(Platform::displaySession(), QStringLiteral("wayland-7"));
    }
    // The same compositor by its path.
    environment.set("WAYLAND_DISPLAY", path);
    QCOMPARE(Platform::displaySession(), QStringLiteral("wayland-7"));
    environment.set("XDG_RUNTIME_DIR", "/elsewhere");
    QCOMPARE(Platform::displaySession(), QFile::decodeName(path));
    environment.set("WAYLAND_DISPLAY", "wayland-7");
    QCOMPARE(Platform::displaySession(), QStringLiteral(":3"));
    // Left over by a compositor that has ended.
    environment.set("WAYLAND_DISPLAY", path);
    ::close(listener);
    QCOMPARE(Platform::displaySession(), QStringLiteral(":3"));
}

void PlatformLinuxTest::selectsXcbOnWayland()
{
    Environment environment;
    environment.unset("QT_QPA_PLATFORM");
    environment.set("WAYLAND_DISPLAY", "wayland-0");
    environment.set("DISPLAY", ":0");
    Platform::prepareProcess();
    QCOMPARE(qgetenv("QT_QPA_PLATFORM"), QByteArray("xcb"));
    // Child processes must not inherit the variable.
    Platform::create();
    QVERIFY(!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"));
}

void PlatformLinuxTest::keepsPlatformPluginElsewhere_data()
{
    QTest::addColumn<QByteArray>("chosen");
    QTest::addColumn<QByteArray>("wayland");
    QTest::addColumn<QByteArray>("x11");
    QTest::newRow("chosen by the user")
        << QByteArray("offscreen") << QByteArray("wayland-0") << QByteArray(":0");
    QTest::newRow("X11 session") << QByteArray() << QByteArray() << QByteArray(":0");
    QTest::newRow("no X server") << QByteArray() << QByteArray("wayland-0") << QByteArray();
}

void PlatformLinuxTest::keepsPlatformPluginElsewhere()
{
    QFETCH(QByteArray, chosen);
    QFETCH(QByteArray, wayland);
    QFETCH(QByteArray, x11);
    Environment environment;
    environment.unset("XDG_SESSION_TYPE");
    environment.set("QT_QPA_PLATFORM", chosen);
    environment.set("WAYLAND_DISPLAY", wayland);
    environment.set("DISPLAY", x11);
    Platform::prepareProcess();
    QCOMPARE(qgetenv("QT_QPA_PLATFORM"), chosen);
    Platform::create();
    QCOMPARE(qgetenv("QT_QPA_PLATFORM"), chosen);
}

void PlatformLinuxTest::requestsAlphaChannel()
{
    QSurfaceFormat::setDefaultFormat({});
    Platform::prepareProcess();
    QCOMPARE(QSurfaceFormat::defaultFormat().alphaBufferSize(), 8);
}

namespace {

constexpr std::array rendererVariables{"QT_QUICK_BACKEND", "QSG_RHI_BACKEND", "QMLSCENE_DEVICE",
                                       "QT_XCB_GL_INTEGRATION"};

} // namespace

void PlatformLinuxTest::environmentSelectsRenderer_data()
{
    QTest::addColumn<QByteArray>("variable");
    for (const char *name : rendererVariables)
        QTest::newRow(name) << QByteArray(name);
}

void PlatformLinuxTest::environmentSelectsRenderer()
{
    QFETCH(QByteArray, variable);
    Environment environment;
    for (const char *name : rendererVariables)
        environment.unset(name);
    environment.set(variable.constData(), "rhi");
    QVERIFY(!Platform::prefersSoftwareRendering());
    Platform::prepareProcess();
    Platform::create();
    QCOMPARE(qgetenv(variable.constData()), QByteArray("rhi"));
}

void PlatformLinuxTest::loadsNoOpenGLForSoftwareRendering()
{
    Environment environment;
    for (const char *name : rendererVariables)
        environment.unset(name);
    const bool isSoftware = Platform::prefersSoftwareRendering();
    if (!QFile::exists(QStringLiteral("/dev/dri")))
        QVERIFY(isSoftware);
    Platform::prepareProcess();
    QCOMPARE(qgetenv("QT_XCB_GL_INTEGRATION"), isSoftware ? QByteArray("none") : QByteArray());
    // Child processes must not inherit the variable.
    Platform::create();
    QVERIFY(!qEnvironmentVariableIsSet("QT_XCB_GL_INTEGRATION"));
}

QUELLORA_TEST(QGuiApplication, PlatformLinuxTest)
#include "test_platform_linux.moc"
