#include "platform/wayland/WaylandProbe.h"
#include "support/TestProgram.h"
#include "wayland/FakeCompositor.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <wayland-client-protocol.h>
#include <wlr-layer-shell-unstable-v1-client.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>

using namespace quellora;
using namespace std::chrono_literals;

class WaylandProbeTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup();
    void findsLayerShell();
    void findsNoLayerShell();
    void findsNoCompositor_data();
    void findsNoCompositor();
    void doesNotWaitForACompositorThatIsSilent();
};

void WaylandProbeTest::cleanup()
{
    qunsetenv("WAYLAND_DISPLAY");
    qunsetenv("WAYLAND_SOCKET");
}

void WaylandProbeTest::findsLayerShell()
{
    const FakeCompositor compositor({&wl_compositor_interface, &zwlr_layer_shell_v1_interface});
    QCOMPARE(probeWayland(10s), WaylandProbe::LayerShell);
    QCOMPARE(waylandSession(), QStringLiteral("wayland-0"));
}

void WaylandProbeTest::findsNoLayerShell()
{
    const FakeCompositor compositor({&wl_compositor_interface});
    QCOMPARE(probeWayland(10s), WaylandProbe::NoLayerShell);
}

void WaylandProbeTest::findsNoCompositor_data()
{
    QTest::addColumn<QByteArray>("display");
    QTest::addColumn<QByteArray>("socket");
    QTest::newRow("no variable") << QByteArray() << QByteArray();
    QTest::newRow("nobody listens") << QByteArray("wayland-99") << QByteArray();
    QTest::newRow("no path") << QByteArray(300, 'w') << QByteArray();
    QTest::newRow("an inherited connection") << QByteArray("wayland-0") << QByteArray("99");
}

void WaylandProbeTest::findsNoCompositor()
{
    QFETCH(QByteArray, display);
    QFETCH(QByteArray, socket);
    const FakeCompositor compositor({&zwlr_layer_shell_v1_interface});
    qputenv("WAYLAND_DISPLAY", display);
    if (!socket.isEmpty())
        qputenv("WAYLAND_SOCKET", socket);
    QCOMPARE(probeWayland(10s), WaylandProbe::NoCompositor);
    if (socket.isEmpty())
        QCOMPARE(waylandSession(), QString());
}

void WaylandProbeTest::doesNotWaitForACompositorThatIsSilent()
{
    const QTemporaryDir folder;
    const QByteArray path = QFile::encodeName(folder.filePath(QStringLiteral("silent")));
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), address.sun_path);
    QCOMPARE(::bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    QCOMPARE(::listen(listener, 4), 0);
    qputenv("WAYLAND_DISPLAY", path);
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(probeWayland(50ms), WaylandProbe::NoCompositor);
    QVERIFY(clock.elapsed() >= 50);
    ::close(listener);
}

QUELLORA_TEST(QCoreApplication, WaylandProbeTest)
#include "test_wayland_probe.moc"
