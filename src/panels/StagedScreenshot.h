#pragma once

#include <QByteArray>
#include <QImage>
#include <QObject>
#include <QSize>

namespace quellora {

/// Preview of the staged screenshot. Decodes on the global thread pool; results for replaced or
/// removed data are discarded. Main thread only.
class StagedScreenshot : public QObject
{
    Q_OBJECT
public:
    enum class State { None, Loading, Ready, Failed };
    Q_ENUM(State)

    using QObject::QObject;

    /// Preview size in logical pixels.
    static constexpr QSize previewSize{72, 45};

    /// Starts decoding @p jpeg; empty data clears the preview. Ignored if the data is unchanged.
    void setData(const QByteArray &jpeg);

    State state() const { return m_state; }
    /// The screenshot, centre-cropped to the aspect ratio of previewSize and scaled to three times
    /// that size, with rounded corners. Null unless Ready.
    const QImage &preview() const { return m_preview; }
    /// Size of the screenshot in pixels. Invalid unless Ready.
    QSize pictureSize() const { return m_pictureSize; }

    struct Decoded
    {
        QImage preview;
        QSize pictureSize;
    };
    /// Decodes on the calling thread; the preview is null if the data is not a valid image.
    static Decoded decode(const QByteArray &jpeg);

Q_SIGNALS:
    void changed();

private:
    void finish(quint64 generation, const Decoded &decoded);

    QByteArray m_data;
    State m_state = State::None;
    QImage m_preview;
    QSize m_pictureSize;
    quint64 m_generation = 0;
};

} // namespace quellora
