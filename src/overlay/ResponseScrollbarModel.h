#pragma once

#include <QColor>
#include <QObject>
#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// Geometry and logic of the persistent scrollbar beside the response page.
///
/// It scrolls nothing itself: it reports what the user wants through signals, and the page reports
/// its position back. Frames are in points with y growing upward, as the layout is defined; the
/// properties for the view are the same rectangles with y growing downward, and so are all points
/// handed in. Main thread only.
class ResponseScrollbarModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    Q_PROPERTY(QRectF upButtonRect READ upButtonRect NOTIFY layoutChanged)
    Q_PROPERTY(QRectF downButtonRect READ downButtonRect NOTIFY layoutChanged)
    Q_PROPERTY(QRectF trackRect READ trackRect NOTIFY layoutChanged)
    Q_PROPERTY(QRectF thumbRect READ thumbRect NOTIFY layoutChanged)
    Q_PROPERTY(QColor thumbColor READ thumbColor NOTIFY enabledChanged)
    Q_PROPERTY(QColor arrowColor READ arrowColor NOTIFY enabledChanged)
    Q_PROPERTY(QColor trackColor READ trackColor CONSTANT)
    Q_PROPERTY(QColor backgroundColor READ backgroundColor CONSTANT)
    Q_PROPERTY(bool isEnabled READ isEnabled NOTIFY enabledChanged)
    Q_PROPERTY(double fraction READ fraction NOTIFY layoutChanged)

public:
    using QObject::QObject;

    static constexpr double buttonSize = 22;
    static constexpr double margin = 4;
    static constexpr double thumbWidth = 6;
    static constexpr double minThumbHeight = 28;
    /// Points per line of a wheel without precise deltas.
    static constexpr double wheelLineHeight = 40;

    /// The view's size in points; lays everything out.
    Q_INVOKABLE void setSize(double width, double height);

    // y grows upward, relative to the view.
    QRectF upButtonFrame() const;
    QRectF downButtonFrame() const;
    QRectF trackFrame() const;
    /// Relative to the track.
    QRectF thumbFrame() const;

    QRectF upButtonRect() const { return flipped(upButtonFrame()); }
    QRectF downButtonRect() const { return flipped(downButtonFrame()); }
    QRectF trackRect() const { return flipped(trackFrame()); }
    QRectF thumbRect() const { return flipped(thumbFrame().translated(trackFrame().topLeft())); }

    QColor thumbColor() const;
    QColor arrowColor() const;
    QColor trackColor() const { return QColor(255, 255, 255, 13); }
    QColor backgroundColor() const { return QColor::fromRgbF(0.07f, 0.07f, 0.11f, 0.93f); }
    bool isEnabled() const { return m_isEnabled; }
    /// Scroll position: 0 at the top, 1 at the bottom.
    double fraction() const { return m_fraction; }
    double thumbRatio() const { return m_thumbRatio; }
    bool isDragging() const { return m_isDragging; }

    /// What the page reports: whether the content overflows, its visible part and the scroll
    /// position, both 0 to 1. Ignored for the thumb while it is dragged.
    void setPosition(bool isEnabled, double thumbRatio, double fraction);

    // Pointer events in view coordinates (y downward).
    /// True when the press starts a drag.
    Q_INVOKABLE bool mouseDown(QPointF point);
    Q_INVOKABLE void mouseDragged(QPointF point);
    Q_INVOKABLE void mouseUp();
    /// @param pixels precise delta in points
    Q_INVOKABLE void scrollPrecisely(double pixels);
    /// @param lines delta of a wheel in lines (notches)
    Q_INVOKABLE void scrollByLines(double lines);
    Q_INVOKABLE void pressUp();
    Q_INVOKABLE void pressDown();
    /// One view height up (-1) or down (1), less a line of context.
    void scrollByPage(int direction);
    /// To the top (0) or the bottom (1).
    void scrollToFraction(double fraction);
    /// A key (Qt::Key) pressed while the scrollbar has the focus; true when it means scrolling.
    Q_INVOKABLE bool handleKey(int key);

Q_SIGNALS:
    void scrollUp();
    void scrollDown();
    void scrollByPixels(double distance);
    void thumbFractionChanged(double fraction);

    void layoutChanged();
    void enabledChanged();
    void draggingChanged();

private:
    QRectF flipped(const QRectF &frame) const;
    double thumbHeight() const;
    void setEnabled(bool isEnabled);
    void setDragging(bool isDragging);

    QSizeF m_size;
    bool m_isEnabled = false;
    double m_fraction = 0;
    double m_thumbRatio = 1;
    bool m_isDragging = false;
    double m_dragStartLocationY = 0;
    double m_dragStartFraction = 0;
};

} // namespace quellora
