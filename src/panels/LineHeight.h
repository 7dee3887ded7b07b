#pragma once

#include <QObject>
#include <QPointer>
#include <QQuickTextDocument>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// Sets a fixed line height on a text field's document, which QML's TextEdit does not offer.
class LineHeight : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QQuickTextDocument *document READ document WRITE setDocument NOTIFY documentChanged)
    /// Line height in logical pixels.
    Q_PROPERTY(double pixels READ pixels WRITE setPixels NOTIFY pixelsChanged)
public:
    using QObject::QObject;

    QQuickTextDocument *document() const { return m_document; }
    void setDocument(QQuickTextDocument *document);
    double pixels() const { return m_pixels; }
    void setPixels(double pixels);

Q_SIGNALS:
    void documentChanged();
    void pixelsChanged();

private:
    void apply();

    QPointer<QQuickTextDocument> m_document;
    double m_pixels = 20;
    bool m_isApplying = false;
};

} // namespace quellora
