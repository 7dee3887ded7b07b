#include "picker/RegionSelection.h"

#include <algorithm>

namespace quellora {

QPoint RegionSelection::bounded(const QPoint &position) const
{
    return {std::clamp(position.x(), 0, std::max(0, m_picture.width() - 1)),
            std::clamp(position.y(), 0, std::max(0, m_picture.height() - 1))};
}

void RegionSelection::press(const QPoint &position)
{
    if (m_picture.isEmpty())
        return;
    if (m_rect.contains(position)) {
        m_drag = Drag::Moving;
        m_anchor = position - m_rect.topLeft();
        return;
    }
    m_drag = Drag::Drawing;
    m_anchor = bounded(position);
    m_rect = QRect();
}

void RegionSelection::dragTo(const QPoint &position)
{
    switch (m_drag) {
    case Drag::None:
        break;
    case Drag::Drawing: {
        const QPoint end = bounded(position);
        // A click is no rectangle of one pixel.
        if (end != m_anchor || !m_rect.isEmpty())
            m_rect =
                QRect(QPoint(std::min(end.x(), m_anchor.x()), std::min(end.y(), m_anchor.y())),
                      QPoint(std::max(end.x(), m_anchor.x()), std::max(end.y(), m_anchor.y())));
        break;
    }
    case Drag::Moving:
        moveBy(position - m_anchor - m_rect.topLeft());
        break;
    }
}

void RegionSelection::release()
{
    m_drag = Drag::None;
}

void RegionSelection::clear()
{
    m_drag = Drag::None;
    m_rect = QRect();
}

bool RegionSelection::selectMiddle()
{
    if (!m_rect.isEmpty() || m_picture.isEmpty())
        return false;
    const QSize size(std::max(1, m_picture.width() / 2), std::max(1, m_picture.height() / 2));
    m_rect = QRect(
        QPoint((m_picture.width() - size.width()) / 2, (m_picture.height() - size.height()) / 2),
        size);
    return true;
}

void RegionSelection::moveBy(const QPoint &offset)
{
    if (selectMiddle() || m_rect.isEmpty())
        return;
    const QPoint target = m_rect.topLeft() + offset;
    m_rect.moveTo(std::clamp(target.x(), 0, m_picture.width() - m_rect.width()),
                  std::clamp(target.y(), 0, m_picture.height() - m_rect.height()));
}

void RegionSelection::resizeBy(const QPoint &offset)
{
    if (selectMiddle() || m_rect.isEmpty())
        return;
    m_rect.setSize({std::clamp(m_rect.width() + offset.x(), 1, m_picture.width() - m_rect.x()),
                    std::clamp(m_rect.height() + offset.y(), 1, m_picture.height() - m_rect.y())});
}

} // namespace quellora
