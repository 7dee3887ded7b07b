#include "platform/linux/PlatformChoice.h"
#include "support/TestProgram.h"

#include <QtTest>

using namespace quellora;
using Port = PlatformChoice::Port;

class PlatformChoiceTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void choosesByWhatTheSessionOffers_data();
    void choosesByWhatTheSessionOffers();
};

void PlatformChoiceTest::choosesByWhatTheSessionOffers_data()
{
    QTest::addColumn<PlatformChoice::Session>("session");
    QTest::addColumn<Port>("port");
    QTest::addColumn<bool>("warns");

    using enum WaylandProbe;
    const auto row = [](const char *name, const PlatformChoice::Session &session, Port port,
                        bool warns = false) { QTest::newRow(name) << session << port << warns; };
    row("X11 session", {NoCompositor, false, true}, Port::X11);
    row("nothing", {NoCompositor, false, false}, Port::Toolkit);
    row("layer shell", {LayerShell, true, true}, Port::Wayland);
    row("layer shell, no X server", {LayerShell, true, false}, Port::Wayland);
    row("no layer shell", {NoLayerShell, true, true}, Port::XWayland);
    row("no layer shell, no X server", {NoLayerShell, true, false}, Port::Toolkit);
    row("compositor does not answer", {NoCompositor, true, true}, Port::XWayland);

    row("plugin for Wayland", {LayerShell, true, true, {}, "wayland"}, Port::Wayland);
    row("plugins for Wayland and X11", {NoLayerShell, true, true, {}, "wayland;xcb"},
        Port::XWayland);
    row("plugin for X11", {LayerShell, true, true, {}, "xcb"}, Port::XWayland);
    row("plugin for X11 in an X11 session", {NoCompositor, false, true, {}, "xcb"}, Port::X11);
    row("another plugin", {LayerShell, true, true, {}, "offscreen"}, Port::Toolkit);
    row("another plugin, forced", {LayerShell, true, true, "wayland", "offscreen"}, Port::Toolkit);

    row("forced Wayland", {LayerShell, true, true, "wayland"}, Port::Wayland);
    row("forced Wayland against the plugin", {LayerShell, true, true, "wayland", "xcb"},
        Port::Wayland);
    row("forced Wayland without layer shell", {NoLayerShell, true, true, "wayland"}, Port::XWayland,
        true);
    row("forced Wayland in an X11 session", {NoCompositor, false, true, "wayland"}, Port::X11,
        true);
    row("forced XWayland", {LayerShell, true, true, "xwayland"}, Port::XWayland);
    row("forced XWayland without X server", {LayerShell, true, false, "xwayland"}, Port::Wayland,
        true);
    row("forced XWayland in an X11 session", {NoCompositor, false, true, "xwayland"}, Port::X11,
        true);
    row("forced X11", {LayerShell, true, true, "x11"}, Port::X11);
    row("forced X11 against the plugin", {LayerShell, true, true, "x11", "wayland"}, Port::X11);
    row("forced X11 without X server", {LayerShell, true, false, "x11"}, Port::Wayland, true);
    row("unknown word", {LayerShell, true, true, "Wayland"}, Port::Wayland, true);
}

void PlatformChoiceTest::choosesByWhatTheSessionOffers()
{
    QFETCH(PlatformChoice::Session, session);
    QFETCH(Port, port);
    QFETCH(bool, warns);
    const PlatformChoice choice = PlatformChoice::make(session);
    QCOMPARE(choice.port, port);
    QVERIFY(!choice.reason.isEmpty());
    QCOMPARE(!choice.warning.isEmpty(), warns);
    if (warns)
        QVERIFY(choice.warning.contains(QString::fromUtf8(session.forced)));
}

QUELLORA_TEST(QCoreApplication, PlatformChoiceTest)
#include "test_platform_choice.moc"
