#pragma once

#include <QQuickItem>

namespace quellora {

/// Base of items that are drawn on whole device pixels also where a logical pixel is a fraction of
/// them. The node is updated when the item moves by a fraction of a device pixel, for whatever
/// reason. Main thread, except where noted.
class PixelAlignedItem : public QQuickItem
{
    Q_OBJECT
protected:
    explicit PixelAlignedItem(QQuickItem *parent);

    /// Moves @p rect, in item coordinates, to the nearest corner of a device pixel, unless the item
    /// is rotated or scaled. For updatePaintNode(), on its thread.
    QRectF aligned(const QRectF &rect);
    void itemChange(ItemChange change, const ItemChangeData &value) override;

private:
    void followScene();

    /// Position of the item in the window when it was aligned, in device pixels.
    QPointF m_alignedAt;
    QMetaObject::Connection m_frames;
};

} // namespace quellora
