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
/// It does not scroll itself: signals request scrolling, and the page reports its position back
/// through setPosition(). All lengths are in points. *Frame() functions use y upward, as in the
/// layout definition; *Rect properties and pointer positions use y downward. Main thread only.
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
    /// Points scrolled per wheel line (notch).
    static constexpr double wheelLineHeight = 40;

    /// Sets the view's size in points and updates the layout.
    Q_INVOKABLE void setSize(double width, double height);

    // Relative to the view, y upward.
    QRectF upButtonFrame() const;
    QRectF downButtonFrame() const;
    QRectF trackFrame() const;
    /// Relative to the track, y upward.
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

    /// Updates the scrollbar from the page. During a drag only @p isEnabled is applied.
    /// @param isEnabled whether the content overflows the viewport
    /// @param thumbRatio visible share of the content, clamped to 0..1
    /// @param fraction scroll position, clamped to 0..1
    void setPosition(bool isEnabled, double thumbRatio, double fraction);

    // Pointer events, in view coordinates with y downward.
    /// Returns whether the press starts a drag.
    Q_INVOKABLE bool mouseDown(QPointF point);
    Q_INVOKABLE void mouseDragged(QPointF point);
    Q_INVOKABLE void mouseUp();
    /// @param pixels precise wheel delta in points; positive scrolls up
    Q_INVOKABLE void scrollPrecisely(double pixels);
    /// @param lines wheel delta in lines (notches); positive scrolls up
    Q_INVOKABLE void scrollByLines(double lines);
    Q_INVOKABLE void pressUp();
    Q_INVOKABLE void pressDown();
    /// Scrolls by one view height less one line, up (-1) or down (1).
    void scrollByPage(int direction);
    /// Scrolls to a position from 0 (top) to 1 (bottom).
    void scrollToFraction(double fraction);
    /// Handles a Qt::Key pressed while the scrollbar has focus; returns whether it scrolls.
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
