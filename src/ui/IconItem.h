#pragma once

#include <QColor>
#include <QImage>
#include <QQuickItem>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// A square icon drawn from an SVG at the screen's own resolution.
///
/// `name` picks one of the bundled icons and is tinted with `color`; `source` names another SVG
/// resource instead (`currentColor` in it is tinted, other colours stay). The item sizes itself to
/// `size` logical pixels. An icon that cannot be read draws nothing and logs one line.
class IconItem : public QQuickItem
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
    /// Stroke width in the icon's own 24-unit grid; bundled icons only.
    qreal strokeWidth() const { return m_strokeWidth; }
    void setStrokeWidth(qreal width);
    /// Share of the tint that closed outlines are filled with; bundled icons only.
    qreal fillOpacity() const { return m_fillOpacity; }
    void setFillOpacity(qreal opacity);

    /// The icon as pixels. @p pixels is the edge in device pixels.
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
