#include "panels/PreviewImage.h"

#include <QQuickWindow>
#include <QSGImageNode>

namespace quellora {

PreviewImage::PreviewImage(QQuickItem *parent) : QQuickItem(parent)
{
    setFlag(ItemHasContents);
}

void PreviewImage::setImage(const QImage &image)
{
    if (image.cacheKey() == m_image.cacheKey())
        return;
    m_image = image;
    m_isTextureStale = true;
    update();
    Q_EMIT imageChanged();
}

QSGNode *PreviewImage::updatePaintNode(QSGNode *old, UpdatePaintNodeData *)
{
    auto *node = static_cast<QSGImageNode *>(old);
    if (m_image.isNull() || width() <= 0 || height() <= 0) {
        delete node;
        m_isTextureStale = true;
        return nullptr;
    }
    if (!node) {
        node = window()->createImageNode();
        node->setOwnsTexture(true);
        node->setFiltering(QSGTexture::Linear);
        m_isTextureStale = true;
    }
    if (m_isTextureStale) {
        node->setTexture(window()->createTextureFromImage(m_image));
        m_isTextureStale = false;
    }
    node->setRect(boundingRect());
    return node;
}

} // namespace quellora
