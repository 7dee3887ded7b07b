#include "sheets/look/LookModel.h"

#include "base/WhenFinished.h"

#include <QPromise>
#include <QThreadPool>

#include <memory>

namespace quellora {

void LookModel::setJpeg(const QByteArray &jpeg)
{
    if (jpeg.isEmpty() && m_jpeg.isEmpty())
        return;
    m_jpeg = jpeg;
    m_picture = QImage();
    m_hasFailed = false;
    Q_EMIT pictureChanged();
    if (jpeg.isEmpty())
        return;
    const auto promise = std::make_shared<QPromise<QImage>>();
    promise->start();
    whenFinished(promise->future(), this, [this, jpeg](const QImage &picture) {
        // Another one is on show by now.
        if (!m_jpeg.isSharedWith(jpeg))
            return;
        m_picture = picture;
        m_hasFailed = picture.isNull();
        Q_EMIT pictureChanged();
    });
    QThreadPool::globalInstance()->start([promise, jpeg] {
        promise->addResult(QImage::fromData(jpeg, "JPG"));
        promise->finish();
    });
}

QString LookModel::caption() const
{
    if (m_hasFailed)
        return QStringLiteral("The picture cannot be shown");
    if (m_picture.isNull())
        return {};
    return QStringLiteral("%1 × %2 · goes with your prompt")
        .arg(m_picture.width())
        .arg(m_picture.height());
}

void LookModel::send()
{
    if (isOpen())
        Q_EMIT sendRequested();
}

void LookModel::attach()
{
    if (isOpen())
        Q_EMIT attachRequested();
}

void LookModel::drop()
{
    if (isOpen())
        Q_EMIT dropRequested();
}

} // namespace quellora
