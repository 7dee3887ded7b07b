#pragma once

#include <QByteArray>
#include <QImage>
#include <QObject>
#include <QSize>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// View model of the question whether a captured picture is to be sent. Decodes on the global
/// thread pool. The owner sets the picture and answers the requests by setting another or none.
/// Main thread only.
class LookModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    Q_PROPERTY(bool isOpen READ isOpen NOTIFY pictureChanged)
    Q_PROPERTY(QImage picture READ picture NOTIFY pictureChanged)
    Q_PROPERTY(QSize pictureSize READ pictureSize NOTIFY pictureChanged)
    Q_PROPERTY(QString caption READ caption NOTIFY pictureChanged)

public:
    using QObject::QObject;

    /// Opens the question with a picture, or closes it with none.
    void setJpeg(const QByteArray &jpeg);

    bool isOpen() const { return !m_jpeg.isEmpty(); }
    /// Null until it is decoded.
    const QImage &picture() const { return m_picture; }
    /// In pixels; empty until it is decoded.
    QSize pictureSize() const { return m_picture.size(); }
    /// The picture's size, or that it cannot be shown; empty until that is known.
    QString caption() const;

    // Called by the view; no effect while it is closed.
    Q_INVOKABLE void send();
    /// Keeps the picture for the next message.
    Q_INVOKABLE void attach();
    Q_INVOKABLE void drop();

Q_SIGNALS:
    void sendRequested();
    void attachRequested();
    void dropRequested();

    void pictureChanged();

private:
    QByteArray m_jpeg;
    QImage m_picture;
    bool m_hasFailed = false;
};

} // namespace quellora
