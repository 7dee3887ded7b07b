#include "platform/linux/ApplicationShellX11.h"
#include "platform/linux/OtherClient.h"
#include "platform/linux/PanelWindowX11.h"
#include "platform/linux/X11Tools.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QRasterWindow>
#include <QtTest>

#include <memory>

using namespace quellora;

namespace {

/// A window that records its input.
class RecordingWindow : public QRasterWindow
{
public:
    QString typed;
    QList<QPoint> presses;
    int wheelEvents = 0;

protected:
    void keyPressEvent(QKeyEvent *event) override { typed += event->text(); }
    void mousePressEvent(QMouseEvent *event) override { presses << event->position().toPoint(); }
    void wheelEvent(QWheelEvent *) override { ++wheelEvents; }
    void paintEvent(QPaintEvent *) override
    {
        QPainter(this).fillRect(QRect(QPoint(), size()), Qt::darkCyan);
    }
};

const QStringList panelStates{
    QStringLiteral("_NET_WM_STATE_ABOVE"), QStringLiteral("_NET_WM_STATE_STICKY"),
    QStringLiteral("_NET_WM_STATE_SKIP_TASKBAR"), QStringLiteral("_NET_WM_STATE_SKIP_PAGER")};

} // namespace

/// The panel in front of another program's window, which covers the screen and has the focus. Runs
/// at scales 1 and 2; coordinates are in points unless noted as pixels.
class PanelWindowX11Test : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void showingDoesNotTakeFocus();
    void showingAgainDoesNotTakeFocus();
    void setsPanelStates();
    void keepsPanelStatesAfterHiding();
    void keepsPanelStatesAfterRecreation();
    void appliesTraitsToExistingWindow();
    void appliesTraitsToShownWindow();
    void staysAboveRaisedWindow();
    void staysAboveFullScreenWindow();
    void isOnAllDesktops();
    void hasAlphaChannel();
    void clickDoesNotTakeFocus();
    void makeKeyFocusesPanel();
    void hidingReturnsFocus();
    void resignKeyReturnsFocus();
    void makeKeyOfHiddenWindowIsBestEffort();
    void exclusionSetsPropertyAndIsUnsupported();
    void exclusionSurvivesRecreation();
    void wholeWindowReceivesEventsInitially();
    void eventsPassThroughResponseArea();
    void inputShapeIsExact();
    void inputShapeFollowsWindowSize();
    void inputShapeSurvivesHidingAndRecreation();
    void emptyRectangleDisablesClickThrough();
    void rectangleCanBeSetBeforeNativeWindowExists();
    void notifiesOfCompositorStartAndExit();
    void detectsCompositorCrash();
    void detectsRunningCompositor();
    void accessoryWindowsSkipTaskBar();
    void accessoryWindowsSkipTaskBarAfterQuickReshow();
    void activateFocusesWindow();

private:
    void showPanel();
    xcb_window_t panelId() const { return static_cast<xcb_window_t>(m_window->winId()); }
    bool clickAt(const QPoint &panelPoint, int button = 1);
    bool typeKey(const QString &key);
    bool clickOutsidePanel();
    bool hasPanelStates();
    QRect pixels(const QRect &points) const
    {
        const int scale = qRound(m_window->devicePixelRatio());
        return {points.topLeft() * scale, points.size() * scale};
    }

    std::unique_ptr<OtherClient> m_other;
    std::unique_ptr<PanelWindowX11> m_panels;
    std::unique_ptr<RecordingWindow> m_window;
};

void PanelWindowX11Test::init()
{
    m_other = std::make_unique<OtherClient>();
    QVERIFY(m_other->openFocusedWindow({0, 0, 1280, 960}));
    m_panels = std::make_unique<PanelWindowX11>(*X11Connection::current());
    m_window = std::make_unique<RecordingWindow>();
    m_window->setGeometry(60, 40, 240, 200);
}

void PanelWindowX11Test::cleanup()
{
    m_window.reset();
    m_panels.reset();
    m_other.reset();
}

void PanelWindowX11Test::showPanel()
{
    QVERIFY(m_panels->applyPanelTraits(*m_window).isApplied());
    QVERIFY(m_panels->orderFront(*m_window).isApplied());
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    const QRect wanted = pixels({60, 40, 240, 200});
    QTRY_COMPARE(m_other->screenGeometry(panelId()), wanted);
}

bool PanelWindowX11Test::clickAt(const QPoint &panelPoint, int button)
{
    const int scale = qRound(m_window->devicePixelRatio());
    const QPoint position = m_other->screenGeometry(panelId()).topLeft() + panelPoint * scale;
    return xdotool(
        QStringLiteral("mousemove %1 %2 click %3").arg(position.x()).arg(position.y()).arg(button));
}

/// Presses a key; the focused window receives it.
bool PanelWindowX11Test::typeKey(const QString &key)
{
    return xdotool(QStringLiteral("key ") + key);
}

/// Clicks on the other program's window, outside the panel, and waits for the click. Clicks arrive
/// in order, so all earlier ones have been delivered by then.
bool PanelWindowX11Test::clickOutsidePanel()
{
    const OtherClient::Button outside{1, {1200, 900}};
    return xdotool(QStringLiteral("mousemove 1200 900 click 1")) &&
           QTest::qWaitFor([&] { return m_other->buttons().contains(outside); });
}

void PanelWindowX11Test::showingDoesNotTakeFocus()
{
    showPanel();
    QVERIFY(typeKey(QStringLiteral("k")));
    QTRY_COMPARE(m_other->keys().size(), 1);
    QCOMPARE(m_other->focusedWindow(), m_other->window());
    QCOMPARE(m_other->focusLosses(), 0);
    QVERIFY(!m_window->isActive());
    QCOMPARE(m_window->typed, QString());
}

void PanelWindowX11Test::showingAgainDoesNotTakeFocus()
{
    showPanel();
    for (int i = 0; i < 3; ++i) {
        m_window->hide();
        QTRY_VERIFY(!m_other->isViewable(panelId()));
        m_panels->orderFront(*m_window);
        QTRY_VERIFY(m_other->isViewable(panelId()));
    }
    QVERIFY(typeKey(QStringLiteral("k")));
    QTRY_COMPARE(m_other->keys().size(), 1);
    QCOMPARE(m_other->focusLosses(), 0);
}

bool PanelWindowX11Test::hasPanelStates()
{
    const auto complete = [this] {
        const QStringList found = m_other->atomNames(panelId(), "_NET_WM_STATE");
        return std::all_of(panelStates.begin(), panelStates.end(),
                           [&found](const QString &state) { return found.contains(state); }) &&
               m_other->property(panelId(), "_NET_WM_DESKTOP") == QList<quint32>{0xFFFFFFFF};
    };
    return QTest::qWaitFor(complete);
}

void PanelWindowX11Test::setsPanelStates()
{
    showPanel();
    QVERIFY(hasPanelStates());
    QVERIFY(m_other->managedWindows().contains(m_other->window()));
    QVERIFY(!m_other->managedWindows().contains(panelId()));
}

void PanelWindowX11Test::keepsPanelStatesAfterHiding()
{
    showPanel();
    m_window->hide();
    QTRY_VERIFY(!m_other->isViewable(panelId()));
    m_panels->orderFront(*m_window);
    QTRY_VERIFY(m_other->isViewable(panelId()));
    QVERIFY(hasPanelStates());
}

void PanelWindowX11Test::keepsPanelStatesAfterRecreation()
{
    showPanel();
    const xcb_window_t first = panelId();
    m_window->destroy();
    m_panels->orderFront(*m_window);
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    QVERIFY(panelId() != first);
    QVERIFY(hasPanelStates());
    QVERIFY(typeKey(QStringLiteral("k")));
    QTRY_COMPARE(m_other->keys().size(), 1);
    QCOMPARE(m_other->focusLosses(), 0);
}

void PanelWindowX11Test::appliesTraitsToExistingWindow()
{
    m_panels->excludeFromCapture(*m_window);
    m_window->create();
    QVERIFY(m_panels->applyPanelTraits(*m_window).isApplied());
    m_panels->orderFront(*m_window);
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    QVERIFY(hasPanelStates());
    QTRY_COMPARE(m_other->property(panelId(), "_QUELLORA_CAPTURE_EXCLUDE"), QList<quint32>{1});
    QCOMPARE(m_window->format().alphaBufferSize(), 8);
}

void PanelWindowX11Test::appliesTraitsToShownWindow()
{
    m_window->show();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    QVERIFY(m_panels->applyPanelTraits(*m_window).isApplied());
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    QVERIFY(hasPanelStates());
    QTRY_COMPARE(m_other->focusedWindow(), m_other->window());
    // A repeated call has no effect.
    const xcb_window_t before = panelId();
    QVERIFY(m_panels->applyPanelTraits(*m_window).isApplied());
    QCOMPARE(panelId(), before);
    QVERIFY(m_window->isVisible());
}

void PanelWindowX11Test::staysAboveRaisedWindow()
{
    showPanel();
    QVERIFY(clickOutsidePanel());
    QVERIFY(clickAt({50, 50}));
    QTRY_COMPARE(m_window->presses.size(), 1);
}

void PanelWindowX11Test::staysAboveFullScreenWindow()
{
    showPanel();
    OtherClient later;
    QVERIFY(later.openFocusedWindow({600, 600, 100, 100}));
    later.makeFullScreen();
    QTRY_COMPARE(later.screenGeometry(later.window()), QRect(0, 0, 1280, 960));
    QVERIFY(xdotool(QStringLiteral("mousemove 1200 900 click 1")));
    QTRY_COMPARE(later.buttons().size(), 1);
    QVERIFY(clickAt({50, 50}));
    QTRY_COMPARE(m_window->presses.size(), 1);
    QCOMPARE(later.focusedWindow(), later.window());
}

void PanelWindowX11Test::isOnAllDesktops()
{
    showPanel();
    QVERIFY(xdotool(QStringLiteral("set_desktop 1")));
    QTRY_VERIFY(m_other->currentDesktopIs(1));
    QTRY_VERIFY(!m_other->isViewable(m_other->window()));
    const bool viewable = m_other->isViewable(panelId());
    QVERIFY(xdotool(QStringLiteral("set_desktop 0")));
    QTRY_VERIFY(m_other->currentDesktopIs(0));
    QVERIFY(viewable);
}

void PanelWindowX11Test::hasAlphaChannel()
{
    showPanel();
    QCOMPARE(m_window->format().alphaBufferSize(), 8);
}

void PanelWindowX11Test::clickDoesNotTakeFocus()
{
    showPanel();
    QVERIFY(clickAt({50, 60}));
    QTRY_COMPARE(m_window->presses, (QList<QPoint>{{50, 60}}));
    QVERIFY(typeKey(QStringLiteral("k")));
    QTRY_COMPARE(m_other->keys().size(), 1);
    QCOMPARE(m_other->focusLosses(), 0);
    QCOMPARE(m_window->typed, QString());
}

void PanelWindowX11Test::makeKeyFocusesPanel()
{
    showPanel();
    QVERIFY(clickAt({50, 60}));
    QTRY_COMPARE(m_window->presses.size(), 1);
    QVERIFY(m_panels->makeKey(*m_window).isApplied());
    QTRY_COMPARE(m_other->focusedWindow(), panelId());
    QVERIFY(typeKey(QStringLiteral("k")));
    QTRY_COMPARE(m_window->typed, QStringLiteral("k"));
    QVERIFY(m_window->isActive());
    QCOMPARE(m_other->keys().size(), 0);

    // A click on the other program's window moves the focus back to it.
    QVERIFY(clickOutsidePanel());
    QTRY_COMPARE(m_other->focusedWindow(), m_other->window());
    QVERIFY(typeKey(QStringLiteral("j")));
    QTRY_COMPARE(m_other->keys().size(), 1);
    QCOMPARE(m_window->typed, QStringLiteral("k"));
}

void PanelWindowX11Test::hidingReturnsFocus()
{
    showPanel();
    QVERIFY(m_panels->makeKey(*m_window).isApplied());
    QTRY_COMPARE(m_other->focusedWindow(), panelId());
    m_window->hide();
    // The window manager also selects a next window; only the final focus matters.
    QTRY_VERIFY(typeKey(QStringLiteral("j")) && !m_other->keys().isEmpty());
    QTRY_COMPARE(m_other->focusedWindow(), m_other->window());
}

void PanelWindowX11Test::resignKeyReturnsFocus()
{
    showPanel();
    // Repeatedly without input in between, as assistive technologies do.
    for (int round = 0; round < 2; ++round) {
        QVERIFY(m_panels->makeKey(*m_window).isApplied());
        QTRY_COMPARE(m_other->focusedWindow(), panelId());
        m_panels->resignKey(*m_window);
        QTRY_COMPARE(m_other->focusedWindow(), m_other->window());
    }
    QVERIFY(typeKey(QStringLiteral("k")));
    QTRY_COMPARE(m_other->keys().size(), 1);
    // Without the focus, resignKey() has no effect.
    QVERIFY(m_panels->makeKey(*m_window).isApplied());
    QTRY_COMPARE(m_other->focusedWindow(), panelId());
    QVERIFY(clickOutsidePanel());
    QTRY_COMPARE(m_other->focusedWindow(), m_other->window());
    m_panels->resignKey(*m_window);
    QVERIFY(typeKey(QStringLiteral("j")));
    QTRY_COMPARE(m_other->keys().size(), 2);
}

void PanelWindowX11Test::makeKeyOfHiddenWindowIsBestEffort()
{
    m_panels->applyPanelTraits(*m_window);
    QCOMPARE(m_panels->makeKey(*m_window).state(), Capability::State::BestEffort);
    m_window->create();
    const Capability unmapped = m_panels->makeKey(*m_window);
    QCOMPARE(unmapped.state(), Capability::State::BestEffort);
    QVERIFY(unmapped.reason().contains(QStringLiteral("X error 8")));
    QCOMPARE(m_other->focusedWindow(), m_other->window());
}

void PanelWindowX11Test::exclusionSetsPropertyAndIsUnsupported()
{
    const Capability result = m_panels->excludeFromCapture(*m_window);
    QCOMPARE(result.state(), Capability::State::Unsupported);
    QVERIFY(result.reason().contains(
        QStringLiteral("other programs' captures cannot be prevented on X11")));
    // The property is set before the window is first shown.
    m_window->create();
    QTRY_COMPARE(m_other->property(panelId(), "_QUELLORA_CAPTURE_EXCLUDE"), QList<quint32>{1});
    showPanel();
    QTRY_COMPARE(m_other->property(panelId(), "_QUELLORA_CAPTURE_EXCLUDE"), QList<quint32>{1});
}

void PanelWindowX11Test::exclusionSurvivesRecreation()
{
    m_panels->excludeFromCapture(*m_window);
    showPanel();
    m_window->destroy();
    m_window->create();
    QTRY_COMPARE(m_other->property(panelId(), "_QUELLORA_CAPTURE_EXCLUDE"), QList<quint32>{1});
}

void PanelWindowX11Test::wholeWindowReceivesEventsInitially()
{
    showPanel();
    QVERIFY(clickAt({120, 100}));
    QTRY_COMPARE(m_window->presses, (QList<QPoint>{{120, 100}}));
    QCOMPARE(m_other->buttons().size(), 0);
}

void PanelWindowX11Test::eventsPassThroughResponseArea()
{
    showPanel();
    QVERIFY(m_panels->setClickThrough(*m_window, {20, 40, 180, 100}).isApplied());
    const int scale = qRound(m_window->devicePixelRatio());
    const QPoint position = QPoint(60 + 100, 40 + 80) * scale;
    for (const int button : {1, 3, 4, 5}) {
        QVERIFY(clickAt({100, 80}, button));
        QTRY_VERIFY(m_other->buttons().contains({button, position}));
    }
    QCOMPARE(m_window->presses.size(), 0);
    QCOMPARE(m_window->wheelEvents, 0);

    // On every side of the rectangle the panel still receives events.
    const QList<QPoint> inside{{100, 20}, {100, 160}, {10, 80}, {220, 80}};
    for (const QPoint &point : inside)
        QVERIFY(clickAt(point));
    QVERIFY(clickAt({100, 20}, 4));
    QTRY_COMPARE(m_window->presses, inside);
    QTRY_COMPARE(m_window->wheelEvents, 1);
    QVERIFY(clickOutsidePanel());
    QCOMPARE(m_other->buttons().size(), 5);
}

void PanelWindowX11Test::inputShapeIsExact()
{
    showPanel();
    m_panels->setClickThrough(*m_window, {20, 40, 180, 100});
    QTRY_COMPARE(m_other->inputShape(panelId()),
                 (QList<QRect>{pixels({0, 0, 240, 40}), pixels({0, 40, 20, 100}),
                               pixels({200, 40, 40, 100}), pixels({0, 140, 240, 60})}));
}

void PanelWindowX11Test::inputShapeFollowsWindowSize()
{
    showPanel();
    m_panels->setClickThrough(*m_window, {0, 40, 180, 100});
    m_window->resize(300, 220);
    QTRY_COMPARE(m_other->inputShape(panelId()),
                 (QList<QRect>{pixels({0, 0, 300, 40}), pixels({180, 40, 120, 100}),
                               pixels({0, 140, 300, 80})}));
}

void PanelWindowX11Test::inputShapeSurvivesHidingAndRecreation()
{
    showPanel();
    m_panels->setClickThrough(*m_window, {0, 40, 240, 160});
    const QList<QRect> expected{pixels({0, 0, 240, 40})};
    QTRY_COMPARE(m_other->inputShape(panelId()), expected);
    m_window->hide();
    m_panels->orderFront(*m_window);
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    QTRY_COMPARE(m_other->inputShape(panelId()), expected);
    m_window->destroy();
    m_panels->orderFront(*m_window);
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    QTRY_COMPARE(m_other->inputShape(panelId()), expected);
}

void PanelWindowX11Test::emptyRectangleDisablesClickThrough()
{
    showPanel();
    m_panels->setClickThrough(*m_window, {20, 40, 180, 100});
    QVERIFY(m_panels->setClickThrough(*m_window, {}).isApplied());
    QTRY_COMPARE(m_other->inputShape(panelId()), (QList<QRect>{pixels({0, 0, 240, 200})}));
    QVERIFY(clickAt({100, 80}));
    QTRY_COMPARE(m_window->presses.size(), 1);
    // The shape keeps covering the whole window after a resize.
    m_window->resize(300, 220);
    QTRY_COMPARE(m_other->inputShape(panelId()), (QList<QRect>{pixels({0, 0, 300, 220})}));
}

void PanelWindowX11Test::rectangleCanBeSetBeforeNativeWindowExists()
{
    QVERIFY(m_panels->setClickThrough(*m_window, {0, 0, 240, 150}).isApplied());
    QVERIFY(!m_window->handle());
    showPanel();
    QTRY_COMPARE(m_other->inputShape(panelId()), (QList<QRect>{pixels({0, 150, 240, 50})}));
}

void PanelWindowX11Test::notifiesOfCompositorStartAndExit()
{
    QList<bool> seen;
    m_panels->onCompositingChanged([&] { seen << m_panels->isCompositing(); });
    QVERIFY(!m_panels->isCompositing());
    m_other->ownSelection("_NET_WM_CM_S0");
    QTRY_COMPARE(seen, QList<bool>{true});
    // One compositor replacing another is not a change.
    m_other->ownSelection("_NET_WM_CM_S0");
    m_other->ownSelection("_NET_WM_CM_S7");
    m_other->disownSelection("_NET_WM_CM_S0");
    QTRY_COMPARE(seen, (QList<bool>{true, false}));
}

void PanelWindowX11Test::detectsCompositorCrash()
{
    OtherClient compositor;
    compositor.ownSelection("_NET_WM_CM_S0");
    QTRY_VERIFY(m_panels->isCompositing());
    compositor.disconnectNow();
    QTRY_VERIFY(!m_panels->isCompositing());
}

void PanelWindowX11Test::detectsRunningCompositor()
{
    m_other->ownSelection("_NET_WM_CM_S0");
    QTRY_VERIFY(m_panels->isCompositing());
    PanelWindowX11 later(*X11Connection::current());
    QVERIFY(later.isCompositing());
}

void PanelWindowX11Test::accessoryWindowsSkipTaskBar()
{
    const auto states = [this] { return m_other->atomNames(panelId(), "_NET_WM_STATE"); };
    ApplicationShellX11 shell(*X11Connection::current());
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    QVERIFY(!states().contains(panelStates.at(2)));
    m_window->hide();
    QTRY_VERIFY(states().isEmpty());

    QCOMPARE(shell.becomeAccessory().state(), Capability::State::BestEffort);
    QVERIFY(shell.installEditMenu().isApplied());
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    // Read once for all: the window manager replaces the states while it maps the window.
    QStringList shown;
    QVERIFY(QTest::qWaitFor([&] {
        shown = states();
        return shown.contains(panelStates.at(2)) && shown.contains(panelStates.at(3));
    }));
    QVERIFY(!shown.contains(panelStates.at(0)));
}

void PanelWindowX11Test::accessoryWindowsSkipTaskBarAfterQuickReshow()
{
    const auto skipsTaskBarAndPager = [this] {
        const QStringList states = m_other->atomNames(panelId(), "_NET_WM_STATE");
        return states.contains(panelStates.at(2)) && states.contains(panelStates.at(3));
    };
    ApplicationShellX11 shell(*X11Connection::current());
    shell.becomeAccessory();
    // The window may be shown again before the window manager has processed its hiding.
    for (int i = 0; i < 20; ++i) {
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        QVERIFY(QTest::qWaitFor(skipsTaskBarAndPager));
        m_window->hide();
    }
}

void PanelWindowX11Test::activateFocusesWindow()
{
    ApplicationShellX11 shell(*X11Connection::current());
    QCOMPARE(shell.activate(*m_window).state(), Capability::State::BestEffort);
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    QTRY_COMPARE(m_other->focusedWindow(), panelId());
    QVERIFY(typeKey(QStringLiteral("k")));
    QTRY_COMPARE(m_window->typed, QStringLiteral("k"));
}

QUELLORA_TEST(QGuiApplication, PanelWindowX11Test)
#include "test_panel_window_x11.moc"
