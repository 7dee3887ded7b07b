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
class OverlayModel;
class ResponseScrollbarModel;
class SettingsModel;

/// What fills the panel. Everything must outlive it.
struct OverlayContent
{
    OverlayModel &overlay;
    BottomPanelsModel &panels;
    HamburgerMenuModel &menu;
    ResponseScrollbarModel &scrollbar;
    /// Component shown as the answer, created after the first frame; empty for none.
    QUrl responseView;
    /// Given to the component as its property `host`.
    QObject *responseHost = nullptr;
    /// The sidebar of stored threads; none without a place for them.
    HistoryModel *history = nullptr;
    /// What the settings sheet shows; none for a panel without settings.
    SettingsModel *settings = nullptr;
};

/// The floating panel: frameless, above other windows, never activated by being shown or clicked.
///
/// A press on something that takes text, or anywhere in an item with a true property
/// `takesKeyboard`, asks the platform for the keyboard; every other press leaves it with the
/// program the user works in. Dragging the free areas moves the panel, dragging its edges resizes
/// it. Escape never closes it. Main thread only.
class NonFocusPanel : public QQuickWindow
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The overlay's own window")
public:
    /// Width of the strips along the edges that resize the panel, in points.
    static constexpr int resizeMargin = 6;

    /// @param platform must outlive the panel; its one compositing handler is taken by the panel
    ///        when it gets its content.
    explicit NonFocusPanel(PanelWindow &platform, QWindow *parent = nullptr);
    ~NonFocusPanel() override;

    /// Builds the overlay's view inside the panel and ties it to the panel's size. Once only; a
    /// view that does not load is a programming error.
    /// @param engine must have the program's QML modules; outlives the panel
    void setContent(QQmlEngine &engine, const OverlayContent &content);
    /// Closes the panel on the program's own behalf. Any other way of closing it counts as a press
    /// of the close button.
    bool close();
    /// The view built by setContent().
    QQuickItem *overlayItem() const { return m_root; }

    /// Where the pointer was pressed inside the window while the panel is being moved.
    const std::optional<QPointF> &dragStart() const { return m_dragStart; }

    /// A left press reached the panel's background.
    Q_INVOKABLE void mouseDown(QPointF location);
    /// A left press reached a resize handle.
    Q_INVOKABLE void beginResize(int edges);
    /// Asks the platform for the keyboard focus.
    Q_INVOKABLE void makeKey();
    /// Gives the keyboard back to whoever had it before makeKey().
    void resignKey() { m_platform.resignKey(*this); }

Q_SIGNALS:
    /// Assistive programs were told that the message on @p card now stops the user.
    void blockingMessageAnnounced(QQuickItem *card);
    /// A drag has moved or resized the panel and has ended, also because the panel was hidden. The
    /// window itself may report the last frame only later.
    void draggedTo(const QRect &frame);

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

    /// Whether a press there asks for the keyboard.
    bool isKeyboardTarget(const QPointF &location) const;
    void endDrag();
    /// Tells assistive programs that a message now stops the user; once per message.
    void announceBlockingMessage(const QString &id);
    void fitContent();

    PanelWindow &m_platform;
    QQuickItem *m_root = nullptr;
    OverlayModel *m_overlay = nullptr;
    std::optional<QPointF> m_dragStart;
    std::optional<Resize> m_resize;
    std::optional<QRect> m_draggedTo;
    QPointF m_pointer;
    bool m_isClosing = false;
    QString m_announcedMessageId;
};

} // namespace quellora
