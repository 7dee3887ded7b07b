#include "picker/RegionPicker.h"

#include "picker/RegionWindow.h"
#include "platform/Platform.h"

#include <QKeyEvent>
#include <QScreen>

namespace quellora {
namespace {

constexpr int largeStep = 10;

/// The direction of an arrow key; null for other keys.
QPoint direction(int key)
{
    switch (key) {
    case Qt::Key_Left:
        return {-1, 0};
    case Qt::Key_Right:
        return {1, 0};
    case Qt::Key_Up:
        return {0, -1};
    case Qt::Key_Down:
        return {0, 1};
    default:
        return {};
    }
}

} // namespace

RegionPicker::RegionPicker(PanelWindow &panels, double textScale, QObject *parent)
    : QObject(parent), m_panels(panels), m_textScale(textScale)
{}

RegionPicker::~RegionPicker()
{
    for (const auto &window : m_windows) {
        window->disconnect(this);
        // Returns the keyboard.
        window->hide();
    }
}

void RegionPicker::show(const QList<Frozen> &screens, int keyboardScreen)
{
    m_screen = keyboardScreen;
    m_unpainted = screens.size();
    for (int i = 0; i < screens.size(); ++i) {
        const Frozen &frozen = screens.at(i);
        m_windows.push_back(std::make_unique<RegionWindow>(*frozen.screen, m_textScale));
        RegionWindow &window = *m_windows.back();
        window.setPicture(frozen.picture);
        window.setHintShown(i == keyboardScreen);
        m_panels.applyPanelTraits(window);
        m_panels.excludeFromCapture(window);
        connectWindow(window, i);
        connect(frozen.screen, &QScreen::geometryChanged, this, &RegionPicker::dismissed);
        connect(frozen.screen, &QObject::destroyed, this, &RegionPicker::dismissed);
    }
    m_selection = RegionSelection(screens.at(m_screen).picture.size());
    for (const auto &window : m_windows)
        m_panels.orderFront(*window);
    m_panels.makeKey(*m_windows.at(static_cast<std::size_t>(m_screen)));
}

void RegionPicker::connectWindow(RegionWindow &window, int screen)
{
    connect(&window, &RegionWindow::pressed, this,
            [this, screen](const QPoint &position) { press(screen, position); });
    connect(&window, &RegionWindow::dragged, this, [this](const QPoint &position) {
        m_selection.dragTo(position);
        showSelection();
    });
    connect(&window, &RegionWindow::released, this, [this] { m_selection.release(); });
    connect(&window, &RegionWindow::doubleClicked, this, [this, screen](const QPoint &position) {
        if (screen == m_screen && m_selection.rect().contains(position))
            choose(false);
    });
    connect(&window, &RegionWindow::cleared, this, [this] {
        m_selection.clear();
        showSelection();
    });
    connect(&window, &RegionWindow::keyPressed, this, &RegionPicker::handleKey);
    connect(&window, &RegionWindow::dismissed, this, &RegionPicker::dismissed);
    connect(&window, &RegionWindow::painted, this, [this] {
        if (--m_unpainted == 0)
            Q_EMIT shown();
    });
}

void RegionPicker::press(int screen, const QPoint &position)
{
    moveTo(screen);
    // The user may have gone to another program with a key of the desktop.
    m_panels.makeKey(*m_windows.at(static_cast<std::size_t>(screen)));
    m_selection.press(position);
    showSelection();
}

void RegionPicker::moveTo(int screen)
{
    if (screen == m_screen)
        return;
    m_selection.clear();
    showSelection();
    m_windows.at(static_cast<std::size_t>(m_screen))->setHintShown(false);
    m_screen = screen;
    RegionWindow &window = *m_windows.at(static_cast<std::size_t>(screen));
    window.setHintShown(true);
    m_selection = RegionSelection(window.picture().size());
}

void RegionPicker::handleKey(QKeyEvent *event)
{
    event->accept();
    switch (event->key()) {
    case Qt::Key_Escape:
        Q_EMIT dismissed();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        choose(event->modifiers() & Qt::ShiftModifier);
        return;
    default:
        break;
    }
    QPoint step = direction(event->key());
    if (step.isNull() || m_selection.isDragging())
        return;
    if (event->modifiers() & Qt::ControlModifier)
        step *= largeStep;
    if (event->modifiers() & Qt::ShiftModifier)
        m_selection.resizeBy(step);
    else
        m_selection.moveBy(step);
    showSelection();
}

void RegionPicker::showSelection()
{
    m_windows.at(static_cast<std::size_t>(m_screen))->setSelection(m_selection.rect());
}

void RegionPicker::choose(bool isForLater)
{
    if (!m_selection.isEmpty())
        Q_EMIT chosen(m_screen, m_selection.rect(), isForLater);
}

} // namespace quellora
