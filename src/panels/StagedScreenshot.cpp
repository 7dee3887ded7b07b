#include "panels/StagedScreenshot.h"

#include "base/Log.h"

#include <QBuffer>
#include <QImageReader>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QThreadPool>

namespace quellora {

namespace {

constexpr int previewScale = 3;
constexpr int previewRadius = 4;

} // namespace

StagedScreenshot::Decoded StagedScreenshot::decode(const QByteArray &jpeg)
{
    QByteArray bytes = jpeg;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    const QSize pictureSize = reader.size();
    if (!pictureSize.isValid() || pictureSize.isEmpty())
        return {};

    const QSize target = previewSize * previewScale;
    // Scaling while decoding is much cheaper than decoding at full size.
    reader.setScaledSize(
        pictureSize.scaled(target, Qt::KeepAspectRatioByExpanding).expandedTo({1, 1}));
    const QImage picture = reader.read();
    if (picture.isNull())
        return {};

    QImage preview(target, QImage::Format_ARGB32_Premultiplied);
    preview.fill(Qt::transparent);
    QPainter painter(&preview);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath outline;
    outline.addRoundedRect(preview.rect(), previewRadius * previewScale,
                           previewRadius * previewScale);
    painter.setClipPath(outline);
    painter.drawImage((target.width() - picture.width()) / 2,
                      (target.height() - picture.height()) / 2, picture);
    painter.end();
    return {preview, pictureSize};
}

void StagedScreenshot::setData(const QByteArray &jpeg)
{
    if (jpeg == m_data)
        return;
    m_data = jpeg;
    const quint64 generation = ++m_generation;
    m_preview = {};
    m_pictureSize = {};
    m_state = jpeg.isEmpty() ? State::None : State::Loading;
    if (m_state == State::Loading) {
        QThreadPool::globalInstance()->start([self = QPointer(this), jpeg, generation] {
            Decoded decoded = decode(jpeg);
            QMetaObject::invokeMethod(
                qApp,
                [self, generation, decoded = std::move(decoded)] {
                    if (self)
                        self->finish(generation, decoded);
                },
                Qt::QueuedConnection);
        });
    }
    Q_EMIT changed();
}

void StagedScreenshot::finish(quint64 generation, const Decoded &decoded)
{
    if (generation != m_generation)
        return;
    m_preview = decoded.preview;
    m_pictureSize = decoded.pictureSize;
    m_state = m_preview.isNull() ? State::Failed : State::Ready;
    if (m_state == State::Failed)
        Log::event(QStringLiteral("[BottomPanelsModel] WARNING: Could not decode the staged "
                                  "screenshot for its thumbnail (non-fatal)"));
    Q_EMIT changed();
}

} // namespace quellora
