#pragma once

#include <QByteArray>
#include <QImage>
#include <QObject>
#include <QSize>

namespace quellora {

/// The preview of a staged screenshot. Decoding runs on the global thread pool; results of
/// replaced or removed data are dropped. Main thread only.
class StagedScreenshot : public QObject
{
    Q_OBJECT
public:
    enum class State { None, Loading, Ready, Failed };
    Q_ENUM(State)

    using QObject::QObject;

    /// Preview size in logical pixels.
    static constexpr QSize previewSize{72, 45};

    /// Starts decoding @p jpeg; empty data clears the preview at once. Setting the same data again
    /// does nothing.
    void setData(const QByteArray &jpeg);

    State state() const { return m_state; }
    /// The middle of the picture, filling previewSize at three times its resolution with rounded
    /// corners. Null unless Ready.
    const QImage &preview() const { return m_preview; }
    /// Size of the whole picture in pixels. Invalid unless Ready.
    QSize pictureSize() const { return m_pictureSize; }

    struct Decoded
    {
        QImage preview;
        QSize pictureSize;
    };
    /// The work of the pool thread; a null preview means the data is no picture.
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
