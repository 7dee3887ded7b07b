#pragma once

#include "platform/Platform.h"

#include <QPointF>
#include <QQuickItem>
#include <QQuickWindow>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

#include <optional>

class QQmlEngine;

namespace quellora {

class BottomPanelsModel;
class HamburgerMenuModel;
class HistoryModel;
class FindModel;
class LookModel;
class OverlayModel;
class ResponseScrollbarModel;
class SettingsModel;

/// The models and views shown in the panel. All must outlive it.
struct OverlayContent
{
    OverlayModel &overlay;
    BottomPanelsModel &panels;
    HamburgerMenuModel &menu;
    ResponseScrollbarModel &scrollbar;
    /// QML component that displays the answer, created after the first frame; empty for none.
    QUrl responseView;
    /// Passed to the component as its `host` property.
    QObject *responseHost = nullptr;
    /// Model of the History sidebar; null if threads are not stored.
    HistoryModel *history = nullptr;
    /// Model of the settings sheet; null for a panel without settings.
    SettingsModel *settings = nullptr;
    /// Model of the find bar; null for a panel without one.
    FindModel *find = nullptr;
    /// Model of the question before a picture is sent; null for a panel without it.
    LookModel *look = nullptr;
};

/// The floating panel: a frameless, always-on-top window that is not activated when shown or
/// clicked.
///
/// A press on a text input, or anywhere inside an item whose `takesKeyboard` property is true,
/// requests keyboard focus from the platform; any other press leaves the focus with the active
/// application. The focus that a press in the answer takes is lent: leaveAnswer() returns it.
/// Dragging empty areas moves the panel, dragging its edges resizes it. Escape never closes it.
/// Main thread only.
class NonFocusPanel : public QQuickWindow
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The overlay's own window")
    Q_PROPERTY(bool isKeyboardLent READ isKeyboardLent NOTIFY isKeyboardLentChanged)
public:
    /// @param platform must outlive the panel; setContent() replaces its only compositing handler
    explicit NonFocusPanel(PanelWindow &platform, QWindow *parent = nullptr);
    ~NonFocusPanel() override;

    /// Creates the overlay's view and keeps it at the panel's size. Call once. Aborts if the view
    /// cannot be loaded.
    /// @param engine must provide the program's QML modules and outlive the panel
    void setContent(QQmlEngine &engine, const OverlayContent &content);
    /// Closes the panel without emitting OverlayModel::closeRequested(). Closing it in any other
    /// way acts like a press of the close button.
    bool close();
    /// The view built by setContent().
    QQuickItem *overlayItem() const { return m_root; }

    /// Position of the press in window coordinates while the panel is being moved, else nullopt.
    const std::optional<QPointF> &dragStart() const { return m_dragStart; }

    /// Starts moving the panel. Called on a left press on the background, in window coordinates.
    Q_INVOKABLE void mouseDown(QPointF location);
    /// Starts resizing. Called on a left press on a resize handle.
    /// @param edges Qt::Edges to move
    Q_INVOKABLE void beginResize(int edges);
    /// Requests keyboard focus; activates the window where the platform cannot do less.
    Q_INVOKABLE void makeKey();
    /// Returns keyboard focus to the window that had it before makeKey().
    void resignKey();
    /// Whether makeKey() was called and the focus has not gone elsewhere since. Unlike isActive(),
    /// not true for a panel that a desktop activates for a moment because it was clicked.
    bool isKey() const { return m_isKey; }
    /// Whether a press in the answer has taken the keyboard focus, which leaveAnswer() returns.
    bool isKeyboardLent() const { return m_lender != Lender::None; }
    /// Returns the keyboard focus that a press in the answer has taken: to the other application,
    /// or to the prompt if the panel had the focus already. No effect unless isKeyboardLent().
    Q_INVOKABLE void leaveAnswer();
    /// Whether the left button is held down after a press in the answer.
    bool isAnswerPressed() const { return m_isAnswerPressed; }

Q_SIGNALS:
    void isKeyboardLentChanged();
    void isAnswerPressedChanged();
    /// The keyboard focus of the answer has been returned; the prompt has it next.
    void answerLeft();
    /// An accessibility alert was sent for a new blocking message.
    void blockingMessageAnnounced(QQuickItem *card);
    /// A drag is about to move or resize the panel.
    void dragBegan();
    /// A drag that moved or resized the panel has ended, by release or by hiding the panel. The
    /// window's geometry() may not have reached @p frame yet.
    void dragFinished(const QRect &frame);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    struct Resize
    {
        Qt::Edges edges;
        QPointF pointer;
        QRect frame;
    };

    /// Who had the keyboard focus before a press in the answer took it.
    enum class Lender { None, OtherApplication, Panel };

    /// Whether a press on @p target requests keyboard focus.
    bool isKeyboardTarget(const QQuickItem *target) const;
    /// Called before a left press on @p target, which may be null.
    void takeOrReturnKeyboard(const QQuickItem *target);
    void setLender(Lender lender);
    void setAnswerPressed(bool isPressed);
    void followPointer();
    /// Moves or resizes the panel to where @p pointer, in screen coordinates, has dragged it.
    void drag(const QPointF &pointer);
    void endDrag();
    /// Sends an accessibility alert for the blocking message @p id, once per message; empty for
    /// none.
    void announceBlockingMessage(const QString &id);
    void resizeContent();

    PanelWindow &m_platform;
    QQuickItem *m_root = nullptr;
    OverlayModel *m_overlay = nullptr;
    /// The part of the view that shows the answer.
    QQuickItem *m_answer = nullptr;
    std::optional<QPointF> m_dragStart;
    std::optional<Resize> m_resize;
    std::optional<QRect> m_draggedFrame;
    QPointF m_pointer;
    /// The platform reports the pointer's movements during this drag.
    bool m_isFollowing = false;
    bool m_isClosing = false;
    bool m_isKey = false;
    Lender m_lender = Lender::None;
    bool m_isAnswerPressed = false;
    QString m_announcedMessageId;
};

} // namespace quellora
