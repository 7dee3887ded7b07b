#pragma once

#include "ui/PixelAlignedItem.h"

#include <QColor>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// A line along the item's top or, if it is vertical, left edge: one logical pixel thick, rounded
/// to whole device pixels. The implicit thickness of the item is one logical pixel.
class HairlineItem : public PixelAlignedItem
{
    Q_OBJECT
    QML_NAMED_ELEMENT(Hairline)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
    Q_PROPERTY(bool isVertical READ isVertical WRITE setVertical NOTIFY isVerticalChanged)
public:
    explicit HairlineItem(QQuickItem *parent = nullptr);

    QColor color() const { return m_color; }
    void setColor(const QColor &color);
    bool isVertical() const { return m_isVertical; }
    void setVertical(bool isVertical);

Q_SIGNALS:
    void colorChanged();
    void isVerticalChanged();

protected:
    QSGNode *updatePaintNode(QSGNode *node, UpdatePaintNodeData *data) override;
    void geometryChange(const QRectF &newGeometry, const QRectF &oldGeometry) override;

private:
    QColor m_color = Qt::white;
    bool m_isVertical = false;
};

} // namespace quellora
