#include "platform/linux/OtherClient.h"
#include "platform/linux/PlatformX11.h"
#include "platform/linux/X11Tools.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QWindow>
#include <QtTest>

using namespace quellora;

namespace {

class TypingWindow : public QWindow
{
public:
    QString typed;

protected:
    void keyPressEvent(QKeyEvent *event) override { typed += event->text(); }
};

} // namespace

/// The X11 port as created by the factory, on a server without a window manager.
class BareServerX11Test : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void factoryCreatesX11Port();
    void hotkeysNeedNoWindowManager();
    void panelTakesAndReturnsFocus();
    void focusChangedByUserIsKept();
    void closedPreviousWindowIsNoError();

private:
    bool isShown() const;

    std::unique_ptr<OtherClient> m_other;
    std::unique_ptr<Platform> m_platform;
    std::unique_ptr<TypingWindow> m_window;
};

void BareServerX11Test::init()
{
    m_other = std::make_unique<OtherClient>();
    m_other->openWindow({0, 0, 400, 300});
    QVERIFY(m_other->takeFocus());
    m_platform = Platform::create();
    m_window = std::make_unique<TypingWindow>();
    m_window->setGeometry(500, 300, 200, 100);
    QVERIFY(m_platform->panelWindow().applyPanelTraits(*m_window).isApplied());
    QVERIFY(m_platform->panelWindow().orderFront(*m_window).isApplied());
    QTRY_VERIFY(isShown());
    QCOMPARE(m_other->focusedWindow(), m_other->window());
}

void BareServerX11Test::cleanup()
{
    m_window.reset();
    m_platform.reset();
    m_other.reset();
}

bool BareServerX11Test::isShown() const
{
    return m_other->isViewable(static_cast<xcb_window_t>(m_window->winId()));
}

void BareServerX11Test::factoryCreatesX11Port()
{
    QVERIFY(dynamic_cast<PlatformX11 *>(m_platform.get()));
    QVERIFY(m_platform->permissions().isAccessibilityTrusted());
    QVERIFY(m_platform->permissions().isScreenRecordingGranted());
    QVERIFY(!m_platform->appearance().isDark());
    QVERIFY(!m_platform->panelWindow().isCompositing());
    QCOMPARE(m_platform->shell().becomeAccessory().state(), Capability::State::BestEffort);
    QCOMPARE(m_platform->workspace()
                 .openUrl(QUrl(QStringLiteral("file:///etc/hosts")))
                 .result()
                 .error()
                 .kind,
             OpenFailure::Kind::Refused);
    QVERIFY(m_platform->deviceInfo().osVersion().contains(QSysInfo::kernelVersion()));
    QVERIFY(m_platform->captureTool().program.endsWith(QStringLiteral("/quellora-screencapture")));
    QVERIFY(!m_platform->applicationSupportDirectory().isEmpty());
}

void BareServerX11Test::hotkeysNeedNoWindowManager()
{
    QList<GlobalHotkeys::Registration> fired;
    GlobalHotkeys &hotkeys = m_platform->globalHotkeys();
    hotkeys.installHandler(
        [&fired](GlobalHotkeys::Registration registration) { fired << registration; });
    const auto result = hotkeys.registerHotkey(Qt::META | Qt::Key_N);
    QVERIFY(result);
    QVERIFY(xdotool(QStringLiteral("key super+n")));
    QTRY_COMPARE(fired, QList{*result});
}

void BareServerX11Test::panelTakesAndReturnsFocus()
{
    QVERIFY(m_platform->panelWindow().makeKey(*m_window).isApplied());
    // A repeated call must not store the panel as the previously focused window.
    QVERIFY(m_platform->panelWindow().makeKey(*m_window).isApplied());
    QVERIFY(xdotool(QStringLiteral("key k")));
    QTRY_COMPARE(m_window->typed, QStringLiteral("k"));
    m_window->hide();
    QTRY_COMPARE(m_other->focusedWindow(), m_other->window());
    QVERIFY(xdotool(QStringLiteral("key j")));
    QTRY_COMPARE(m_other->keys().size(), 1);
}

void BareServerX11Test::focusChangedByUserIsKept()
{
    QVERIFY(m_platform->panelWindow().makeKey(*m_window).isApplied());
    OtherClient third;
    third.openWindow({0, 400, 100, 100});
    QVERIFY(third.takeFocus());
    m_window->hide();
    QTRY_VERIFY(!isShown());
    QCoreApplication::processEvents();
    QCOMPARE(third.focusedWindow(), third.window());
}

void BareServerX11Test::closedPreviousWindowIsNoError()
{
    QVERIFY(m_platform->panelWindow().makeKey(*m_window).isApplied());
    m_other->closeWindow();
    m_window->hide();
    QTRY_VERIFY(!isShown());
    QVERIFY(m_platform->panelWindow().orderFront(*m_window).isApplied());
    QTRY_VERIFY(isShown());
    QVERIFY(m_platform->panelWindow().makeKey(*m_window).isApplied());
}

QUELLORA_TEST(QGuiApplication, BareServerX11Test)
#include "test_bare_server_x11.moc"
