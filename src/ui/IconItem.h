#pragma once

#include "ui/PixelAlignedItem.h"

#include <QColor>
#include <QImage>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// A square icon rendered from an SVG in device pixels, on which it is aligned.
///
/// `name` selects a bundled icon, which is tinted with `color`. `source` selects another SVG
/// instead; only its `currentColor` is tinted. The implicit size is `size` logical pixels. An icon
/// that cannot be read is logged once and draws nothing.
class IconItem : public PixelAlignedItem
{
    Q_OBJECT
    QML_NAMED_ELEMENT(Icon)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QUrl source READ source WRITE setSource NOTIFY sourceChanged)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
    Q_PROPERTY(int size READ size WRITE setSize NOTIFY sizeChanged)
    Q_PROPERTY(qreal strokeWidth READ strokeWidth WRITE setStrokeWidth NOTIFY strokeWidthChanged)
    Q_PROPERTY(qreal fillOpacity READ fillOpacity WRITE setFillOpacity NOTIFY fillOpacityChanged)
public:
    explicit IconItem(QQuickItem *parent = nullptr);

    QString name() const { return m_name; }
    void setName(const QString &name);
    QUrl source() const { return m_source; }
    void setSource(const QUrl &source);
    QColor color() const { return m_color; }
    void setColor(const QColor &color);
    int size() const { return m_size; }
    void setSize(int size);
    /// Stroke width in units of the icon's 24 × 24 grid; bundled icons only.
    qreal strokeWidth() const { return m_strokeWidth; }
    void setStrokeWidth(qreal width);
    /// Opacity, 0 to 1, of the tint that fills closed outlines; bundled icons only.
    qreal fillOpacity() const { return m_fillOpacity; }
    void setFillOpacity(qreal opacity);

    /// Renders the icon. @p pixels is the edge length in device pixels.
    QImage render(int pixels) const;

Q_SIGNALS:
    void nameChanged();
    void sourceChanged();
    void colorChanged();
    void sizeChanged();
    void strokeWidthChanged();
    void fillOpacityChanged();

protected:
    QSGNode *updatePaintNode(QSGNode *node, UpdatePaintNodeData *data) override;
    void geometryChange(const QRectF &newGeometry, const QRectF &oldGeometry) override;
    void itemChange(ItemChange change, const ItemChangeData &value) override;

private:
    void markDirty();

    QString m_name;
    QUrl m_source;
    QColor m_color = Qt::white;
    int m_size = 16;
    qreal m_strokeWidth = 1.75;
    qreal m_fillOpacity = 0;
    bool m_dirty = true;
};

} // namespace quellora
