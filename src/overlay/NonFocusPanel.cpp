#include "overlay/NonFocusPanel.h"

#include "overlay/FindModel.h"
#include "overlay/OverlayGeometry.h"
#include "overlay/OverlayModel.h"
#include "overlay/ResponseScrollbarModel.h"
#include "panels/BottomPanelsModel.h"
#include "panels/HamburgerMenuModel.h"
#include "platform/PanelProperties.h"
#include "sheets/history/HistoryModel.h"
#include "sheets/look/LookModel.h"
#include "sheets/settings/SettingsModel.h"
#include "ui/Ui.h"

#include <QAccessible>
#include <QMouseEvent>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>

#include <algorithm>
#include <utility>

void qml_register_types_Quellora_Overlay();
void qml_register_types_Quellora_Panels();
void qml_register_types_Quellora_Sheets();

namespace quellora {

namespace {

/// Hit test: the topmost item below @p item that accepts left presses or text input at
/// @p scenePosition; null if none.
const QQuickItem *pressTargetAt(const QQuickItem *item, const QPointF &scenePosition)
{
    if (!item->isVisible() || !item->isEnabled())
        return nullptr;
    const bool isInside = item->contains(item->mapFromScene(scenePosition));
    if (item->clip() && !isInside)
        return nullptr;
    QList<QQuickItem *> children = item->childItems();
    std::stable_sort(children.begin(), children.end(),
                     [](const QQuickItem *a, const QQuickItem *b) { return a->z() < b->z(); });
    for (auto it = children.crbegin(); it != children.crend(); ++it) {
        if (const QQuickItem *target = pressTargetAt(*it, scenePosition))
            return target;
    }
    // Text items accept the left button for their links but ignore other presses. Skip them: a
    // placeholder text covers its input field.
    const bool takesPress =
        (item->acceptedMouseButtons().testFlag(Qt::LeftButton) && !item->inherits("QQuickText")) ||
        item->flags().testFlag(QQuickItem::ItemAcceptsInputMethod);
    return isInside && takesPress ? item : nullptr;
}

} // namespace

NonFocusPanel::NonFocusPanel(PanelWindow &platform, QWindow *parent)
    : QQuickWindow(parent), m_platform(platform)
{
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
             Qt::NoDropShadowWindowHint | Qt::WindowDoesNotAcceptFocus);
    // Read by the Qt platform plugin on first show; without it the panel would take the focus.
    setProperty("_q_showWithoutActivating", true);
    QSurfaceFormat translucent = format();
    translucent.setAlphaBufferSize(8);
    setFormat(translucent);
    setColor(Qt::transparent);
    setTitle(QStringLiteral("Quellora"));
    connect(this, &QWindow::activeChanged, this, [this] {
        if (isActive())
            return;
        m_isKey = false;
        setLender(Lender::None);
    });
    setMinimumSize({OverlayGeometry::minWindowWidth, OverlayGeometry::minWindowHeight});
}

NonFocusPanel::~NonFocusPanel() = default;

void NonFocusPanel::setContent(QQmlEngine &engine, const OverlayContent &content)
{
    Q_ASSERT(!m_root);
    OverlayModel &overlay = content.overlay;
    BottomPanelsModel &panels = content.panels;
    m_overlay = &overlay;
    connect(&panels, &BottomPanelsModel::heightChanged, &overlay,
            &OverlayModel::setBottomPanelsHeight);
    connect(&overlay, &OverlayModel::windowSizeChanged, &panels,
            [&overlay, &panels] { panels.setAvailableHeight(overlay.availablePanelsHeight()); });
    overlay.setWindowSize(size());
    overlay.setCompositing(m_platform.isCompositing());
    m_platform.onCompositingChanged([self = QPointer(this)] {
        if (self)
            self->m_overlay->setCompositing(self->m_platform.isCompositing());
    });

    keepQmlModule<&qml_register_types_Quellora_Overlay>();
    keepQmlModule<&qml_register_types_Quellora_Panels>();
    keepQmlModule<&qml_register_types_Quellora_Sheets>();
    QQmlComponent component(&engine,
                            QUrl(QStringLiteral("qrc:/qt/qml/Quellora/Overlay/OverlayPanel.qml")));
    if (!component.isReady())
        qFatal("The overlay's view does not load: %s", qPrintable(component.errorString()));
    QObject *object = component.createWithInitialProperties(
        {{QStringLiteral("overlay"), QVariant::fromValue(&overlay)},
         {QStringLiteral("panels"), QVariant::fromValue(&panels)},
         {QStringLiteral("menu"), QVariant::fromValue(&content.menu)},
         {QStringLiteral("history"), QVariant::fromValue(content.history)},
         {QStringLiteral("scrollbar"), QVariant::fromValue(&content.scrollbar)},
         {QStringLiteral("panelWindow"), QVariant::fromValue(this)},
         {QStringLiteral("responseView"), content.responseView},
         {QStringLiteral("responseHost"), QVariant::fromValue(content.responseHost)},
         {QStringLiteral("settings"), QVariant::fromValue(content.settings)},
         {QStringLiteral("find"), QVariant::fromValue(content.find)},
         {QStringLiteral("look"), QVariant::fromValue(content.look)}});
    m_root = qobject_cast<QQuickItem *>(object);
    if (!m_root)
        qFatal("The overlay's view is not built: %s", qPrintable(component.errorString()));
    m_answer = m_root->findChild<QQuickItem *>(QStringLiteral("responseArea"));
    m_root->setParent(contentItem());
    m_root->setParentItem(contentItem());
    m_root->setFocus(true);
    resizeContent();
    connect(&overlay, &OverlayModel::clicksChanged, this, [this, &overlay] {
        if (!overlay.takesClicks())
            leaveAnswer();
    });
    connect(&panels, &BottomPanelsModel::messageChanged, this, [this, &panels] {
        announceBlockingMessage(panels.isMessageBlocking() ? panels.messageId() : QString());
    });
    connect(
        this, &QQuickWindow::frameSwapped, m_root,
        [root = m_root] { root->setProperty("isResponseActive", true); },
        Qt::ConnectionType(Qt::QueuedConnection | Qt::SingleShotConnection));
}

void NonFocusPanel::announceBlockingMessage(const QString &id)
{
    const bool isNew = !id.isEmpty() && id != m_announcedMessageId;
    m_announcedMessageId = id;
    auto *card = m_root->findChild<QQuickItem *>(QStringLiteral("serviceCard"));
    if (!isNew || !card)
        return;
    QAccessibleEvent alert(card, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
    Q_EMIT blockingMessageAnnounced(card);
}

bool NonFocusPanel::close()
{
    m_isClosing = true;
    const bool isClosed = QQuickWindow::close();
    m_isClosing = false;
    return isClosed;
}

void NonFocusPanel::mouseDown(QPointF location)
{
    m_dragStart = location;
    followPointer();
}

void NonFocusPanel::beginResize(int edges)
{
    m_resize = Resize{Qt::Edges(edges), m_pointer, geometry()};
    followPointer();
}

void NonFocusPanel::followPointer()
{
    const QPointF pointer = m_pointer;
    m_isFollowing =
        m_platform.followPointer(*this, [this, pointer](QPointF offset) { drag(pointer + offset); })
            .isApplied();
}

void NonFocusPanel::makeKey()
{
    m_isKey = isVisible();
    if (m_platform.makeKey(*this).state() != Capability::State::Unsupported)
        return;
    // Fallback where the platform cannot give keyboard focus without activating the window.
    setFlag(Qt::WindowDoesNotAcceptFocus, false);
    requestActivate();
}

void NonFocusPanel::resignKey()
{
    m_isKey = false;
    m_platform.resignKey(*this);
}

void NonFocusPanel::leaveAnswer()
{
    const Lender lender = m_lender;
    if (lender == Lender::None)
        return;
    setLender(Lender::None);
    if (lender == Lender::OtherApplication)
        resignKey();
    Q_EMIT answerLeft();
}

void NonFocusPanel::setLender(Lender lender)
{
    if (lender == m_lender)
        return;
    m_lender = lender;
    Q_EMIT isKeyboardLentChanged();
}

void NonFocusPanel::setAnswerPressed(bool isPressed)
{
    if (isPressed == m_isAnswerPressed)
        return;
    m_isAnswerPressed = isPressed;
    Q_EMIT isAnswerPressedChanged();
}

bool NonFocusPanel::isKeyboardTarget(const QQuickItem *target) const
{
    if (target && target->flags().testFlag(QQuickItem::ItemAcceptsInputMethod))
        return true;
    // Sheets and dialogs take the keyboard on a press anywhere inside them.
    for (; target; target = target->parentItem()) {
        if (target->property("takesKeyboard").toBool())
            return true;
    }
    return false;
}

void NonFocusPanel::mousePressEvent(QMouseEvent *event)
{
    m_pointer = event->globalPosition();
    if (event->button() == Qt::LeftButton)
        takeOrReturnKeyboard(pressTargetAt(contentItem(), event->position()));
    QQuickWindow::mousePressEvent(event);
}

void NonFocusPanel::takeOrReturnKeyboard(const QQuickItem *target)
{
    const bool isAnswer = m_overlay && m_overlay->takesClicks() && target && m_answer &&
                          m_answer->isAncestorOf(target);
    if (isAnswer) {
        if (m_lender == Lender::None)
            setLender(m_isKey ? Lender::Panel : Lender::OtherApplication);
        setAnswerPressed(true);
    } else if (isKeyboardTarget(target)) {
        setLender(Lender::None);
    } else {
        leaveAnswer();
    }
    if (isKeyboardTarget(target))
        makeKey();
}

void NonFocusPanel::mouseMoveEvent(QMouseEvent *event)
{
    m_pointer = event->globalPosition();
    if (m_dragStart || m_resize) {
        // Use screen coordinates: the window moves asynchronously, so a delta in window coordinates
        // would be applied twice.
        if (!m_isFollowing)
            drag(m_pointer);
        event->accept();
        return;
    }
    QQuickWindow::mouseMoveEvent(event);
}

void NonFocusPanel::drag(const QPointF &pointer)
{
    if (!m_draggedFrame && (m_dragStart || m_resize))
        Q_EMIT dragBegan();
    if (m_dragStart) {
        m_draggedFrame = QRect((pointer - *m_dragStart).toPoint(), size());
        setPosition(m_draggedFrame->topLeft());
    } else if (m_resize) {
        m_draggedFrame = OverlayGeometry::resized(m_resize->frame, m_resize->edges,
                                                  (pointer - m_resize->pointer).toPoint());
        setGeometry(*m_draggedFrame);
    }
}

void NonFocusPanel::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        endDrag();
        setAnswerPressed(false);
    }
    QQuickWindow::mouseReleaseEvent(event);
}

void NonFocusPanel::endDrag()
{
    // First: delivers the last movement.
    if (std::exchange(m_isFollowing, false))
        m_platform.stopFollowingPointer();
    m_dragStart.reset();
    m_resize.reset();
    if (const auto frame = std::exchange(m_draggedFrame, std::nullopt))
        Q_EMIT dragFinished(*frame);
}

void NonFocusPanel::hideEvent(QHideEvent *event)
{
    // A hidden window does not receive the release event of a drag in progress.
    if (!property(movesToScreenProperty).toBool()) {
        endDrag();
        m_isKey = false;
        setAnswerPressed(false);
        setLender(Lender::None);
    }
    QQuickWindow::hideEvent(event);
}

void NonFocusPanel::closeEvent(QCloseEvent *event)
{
    QQuickWindow::closeEvent(event);
    // Closing from outside, e.g. by a window manager shortcut, acts like the close button. Queued
    // because the resulting shutdown closes this window again.
    if (m_overlay && !m_isClosing)
        QMetaObject::invokeMethod(m_overlay, &OverlayModel::close, Qt::QueuedConnection);
}

void NonFocusPanel::resizeEvent(QResizeEvent *event)
{
    QQuickWindow::resizeEvent(event);
    resizeContent();
}

void NonFocusPanel::resizeContent()
{
    if (!m_root)
        return;
    m_overlay->setWindowSize(size());
    m_root->setSize(size());
}

} // namespace quellora
