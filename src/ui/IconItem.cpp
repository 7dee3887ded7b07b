#include "ui/IconItem.h"

#include "base/Log.h"

#include <QCache>
#include <QFile>
#include <QPainter>
#include <QQuickWindow>
#include <QSGImageNode>
#include <QSvgRenderer>

#include <memory>

namespace quellora {

namespace {

QByteArray readSvg(const QString &path)
{
    static QHash<QString, QByteArray> files;
    const auto cached = files.constFind(path);
    if (cached != files.constEnd())
        return *cached;
    QFile file(path);
    QByteArray svg;
    if (file.open(QIODevice::ReadOnly))
        svg = file.readAll();
    else
        Log::event(QStringLiteral("[Icon] WARNING: %1 could not be read").arg(path));
    files.insert(path, svg);
    return svg;
}

/// Cache key: all parameters of a rendered icon.
struct IconKey
{
    QString path;
    QRgb color;
    qreal stroke;
    qreal fill;
    int pixels;
    bool bundled;

    bool operator==(const IconKey &) const = default;
};

size_t qHash(const IconKey &key, size_t seed = 0) noexcept
{
    return qHashMulti(seed, key.path, key.color, key.stroke, key.fill, key.pixels);
}

QByteArray tinted(QByteArray svg, const IconKey &key)
{
    const QByteArray color = QColor::fromRgb(key.color).name().toLatin1();
    svg.replace("currentColor", color);
    if (!key.bundled)
        return svg;
    svg.replace("stroke-width=\"2\"", "stroke-width=\"" + QByteArray::number(key.stroke) + '"');
    if (key.fill > 0)
        svg.replace("fill=\"none\"",
                    "fill=\"" + color + "\" fill-opacity=\"" + QByteArray::number(key.fill) + '"');
    return svg;
}

QImage draw(const IconKey &key)
{
    // Hover animations use many tints of few icons; a small cache covers all visible ones.
    static QCache<IconKey, QImage> cache(128);
    if (const QImage *cached = cache.object(key))
        return *cached;
    QImage image(key.pixels, key.pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    const QByteArray svg = readSvg(key.path);
    if (!svg.isEmpty()) {
        QSvgRenderer renderer(tinted(svg, key));
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(0, 0, key.pixels, key.pixels));
        // Apply the alpha to the whole image, so that crossing strokes do not add up.
        painter.setCompositionMode(QPainter::CompositionMode_DestinationIn);
        painter.fillRect(image.rect(), QColor(0, 0, 0, qAlpha(key.color)));
    }
    cache.insert(key, new QImage(image));
    return image;
}

} // namespace

IconItem::IconItem(QQuickItem *parent) : PixelAlignedItem(parent)
{
    setImplicitSize(m_size, m_size);
}

void IconItem::setName(const QString &name)
{
    if (m_name == name)
        return;
    m_name = name;
    markDirty();
    Q_EMIT nameChanged();
}

void IconItem::setSource(const QUrl &source)
{
    if (m_source == source)
        return;
    m_source = source;
    markDirty();
    Q_EMIT sourceChanged();
}

void IconItem::setColor(const QColor &color)
{
    if (m_color == color)
        return;
    m_color = color;
    markDirty();
    Q_EMIT colorChanged();
}

void IconItem::setSize(int size)
{
    if (m_size == size)
        return;
    m_size = size;
    setImplicitSize(size, size);
    markDirty();
    Q_EMIT sizeChanged();
}

void IconItem::setStrokeWidth(qreal width)
{
    if (qFuzzyCompare(m_strokeWidth, width))
        return;
    m_strokeWidth = width;
    markDirty();
    Q_EMIT strokeWidthChanged();
}

void IconItem::setFillOpacity(qreal opacity)
{
    if (qFuzzyCompare(m_fillOpacity + 1, opacity + 1))
        return;
    m_fillOpacity = opacity;
    markDirty();
    Q_EMIT fillOpacityChanged();
}

QImage IconItem::render(int pixels) const
{
    const bool bundled = m_source.isEmpty();
    QString path = QStringLiteral(":/quellora/icons/%1.svg").arg(m_name);
    if (!bundled)
        path = m_source.scheme() == QLatin1StringView("qrc") ? QLatin1Char(':') + m_source.path()
                                                             : m_source.toLocalFile();
    return draw({path, m_color.rgba(), m_strokeWidth, m_fillOpacity, pixels, bundled});
}

QSGNode *IconItem::updatePaintNode(QSGNode *node, UpdatePaintNodeData *)
{
    auto *image = static_cast<QSGImageNode *>(node);
    const qreal edge = qMin(width(), height());
    if (edge <= 0 || (m_name.isEmpty() && m_source.isEmpty())) {
        delete image;
        m_dirty = true;
        return nullptr;
    }
    if (!image) {
        image = window()->createImageNode();
        image->setOwnsTexture(true);
        image->setFiltering(QSGTexture::Linear);
        m_dirty = true;
    }
    const qreal ratio = window()->effectiveDevicePixelRatio();
    const int pixels = qMax(1, qRound(edge * ratio));
    if (m_dirty) {
        image->setTexture(window()->createTextureFromImage(render(pixels)));
        m_dirty = false;
    }
    // One pixel of the image per device pixel; otherwise it would be blurred at fractional ratios.
    const qreal side = pixels / ratio;
    image->setRect(aligned({(width() - side) / 2, (height() - side) / 2, side, side}));
    return image;
}

void IconItem::geometryChange(const QRectF &newGeometry, const QRectF &oldGeometry)
{
    PixelAlignedItem::geometryChange(newGeometry, oldGeometry);
    if (newGeometry.size() != oldGeometry.size())
        markDirty();
}

void IconItem::itemChange(ItemChange change, const ItemChangeData &value)
{
    if (change == ItemDevicePixelRatioHasChanged || change == ItemSceneChange)
        markDirty();
    PixelAlignedItem::itemChange(change, value);
}

void IconItem::markDirty()
{
    m_dirty = true;
    update();
}

} // namespace quellora
