#include "ui/PixelAlignedItem.h"

#include <QQuickWindow>
#include <QTransform>

namespace quellora {

PixelAlignedItem::PixelAlignedItem(QQuickItem *parent) : QQuickItem(parent)
{
    setFlag(ItemHasContents);
}

QRectF PixelAlignedItem::aligned(const QRectF &rect)
{
    const qreal ratio = window()->effectiveDevicePixelRatio();
    m_alignedAt = mapToScene({}) * ratio;
    bool isKnown = false;
    const QTransform toScene = itemTransform(nullptr, &isKnown);
    if (!isKnown || toScene.type() > QTransform::TxTranslate)
        return rect;
    const QPointF device = toScene.map(rect.topLeft()) * ratio;
    return rect.translated((QPointF(device.toPoint()) - device) / ratio);
}

void PixelAlignedItem::itemChange(ItemChange change, const ItemChangeData &value)
{
    if (change == ItemSceneChange) {
        disconnect(m_frames);
        // Nothing reports that an item moves because its parent does.
        if (value.window)
            m_frames = connect(value.window, &QQuickWindow::afterAnimating, this,
                               &PixelAlignedItem::followScene);
    }
    if (change == ItemDevicePixelRatioHasChanged)
        update();
    QQuickItem::itemChange(change, value);
}

void PixelAlignedItem::followScene()
{
    if (!window() || !isVisible())
        return;
    // A move by whole device pixels keeps the alignment.
    const QPointF moved = mapToScene({}) * window()->effectiveDevicePixelRatio() - m_alignedAt;
    if ((moved - QPointF(moved.toPoint())).manhattanLength() > 0.02)
        update();
}

} // namespace quellora
