#include "ui/HairlineItem.h"

#include <QQuickWindow>
#include <QSGRectangleNode>

namespace quellora {

HairlineItem::HairlineItem(QQuickItem *parent) : PixelAlignedItem(parent)
{
    setImplicitSize(0, 1);
}

void HairlineItem::setColor(const QColor &color)
{
    if (color == m_color)
        return;
    m_color = color;
    update();
    Q_EMIT colorChanged();
}

void HairlineItem::setVertical(bool isVertical)
{
    if (isVertical == m_isVertical)
        return;
    m_isVertical = isVertical;
    setImplicitSize(isVertical ? 1 : 0, isVertical ? 0 : 1);
    update();
    Q_EMIT isVerticalChanged();
}

QSGNode *HairlineItem::updatePaintNode(QSGNode *node, UpdatePaintNodeData *)
{
    auto *line = static_cast<QSGRectangleNode *>(node);
    if (width() <= 0 || height() <= 0) {
        delete line;
        return nullptr;
    }
    if (!line)
        line = window()->createRectangleNode();
    const qreal ratio = window()->effectiveDevicePixelRatio();
    const qreal thickness = qMax(1, qRound(ratio)) / ratio;
    // The length ends on a device pixel as well, or the renderer would blur it.
    const auto whole = [ratio](qreal length) { return qRound(length * ratio) / ratio; };
    line->setRect(aligned(m_isVertical ? QRectF(0, 0, thickness, whole(height()))
                                       : QRectF(0, 0, whole(width()), thickness)));
    line->setColor(m_color);
    return line;
}

void HairlineItem::geometryChange(const QRectF &newGeometry, const QRectF &oldGeometry)
{
    PixelAlignedItem::geometryChange(newGeometry, oldGeometry);
    update();
}

} // namespace quellora
