#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

namespace quellora {

/// The rectangle that the user draws on the picture of one screen and adjusts with keys. All values
/// are pixels of the picture; the rectangle never leaves it.
class RegionSelection
{
public:
    RegionSelection() = default;
    explicit RegionSelection(const QSize &picture) : m_picture(picture) {}

    /// Empty if nothing is selected.
    const QRect &rect() const { return m_rect; }
    bool isEmpty() const { return m_rect.isEmpty(); }
    bool isDragging() const { return m_drag != Drag::None; }

    /// A press inside the rectangle moves it, elsewhere it begins another one.
    void press(const QPoint &position);
    /// The pixels under the press and under @p position are part of a drawn rectangle.
    void dragTo(const QPoint &position);
    /// Ends the drag. A click without a drag outside the rectangle leaves nothing selected.
    void release();
    void clear();

    /// Moves the rectangle as far as the picture goes. Without one, selects the middle quarter of
    /// the picture, for those who use keys only.
    void moveBy(const QPoint &offset);
    /// Moves the right and the lower edge; the rectangle keeps at least one pixel. Without one,
    /// like moveBy().
    void resizeBy(const QPoint &offset);

private:
    enum class Drag { None, Drawing, Moving };

    bool selectMiddle();
    QPoint bounded(const QPoint &position) const;

    QSize m_picture;
    QRect m_rect;
    Drag m_drag = Drag::None;
    /// Of the press; for a move relative to the rectangle.
    QPoint m_anchor;
};

} // namespace quellora
