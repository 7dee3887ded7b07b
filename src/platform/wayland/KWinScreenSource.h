#pragma once

#include "platform/ScreenSource.h"
#include "platform/linux/PanelVeil.h"
#include "platform/linux/SessionBusLinux.h"

#include <QDBusMessage>
#include <QObject>
#include <QRect>
#include <QVariantMap>

#include <chrono>
#include <memory>

namespace quellora {

/// Pictures from KWin (D-Bus interface org.kde.KWin.ScreenShot2), which permits them to programs
/// whose desktop file names the interface. Where KWin does not run or refuses, another source takes
/// the pictures. Calls are asynchronous; the pixels arrive through a pipe, which is read on a
/// worker thread. Main thread only.
class KWinScreenSource : public QObject, public ScreenSource
{
    Q_OBJECT
public:
    struct Limits
    {
        /// Until KWin has taken the picture.
        std::chrono::milliseconds answer = std::chrono::seconds(5);
        /// Between two parts of the pixels.
        std::chrono::milliseconds pixels = std::chrono::seconds(5);
    };

    /// @param veil outlives the object
    /// @param allScreens the rectangle around all screens, in points
    /// @param fallback takes the pictures that KWin does not
    KWinScreenSource(PanelVeil &veil, std::function<QRect()> allScreens,
                     std::unique_ptr<ScreenSource> fallback, const QString &busAddress,
                     Limits limits);
    KWinScreenSource(PanelVeil &veil, std::function<QRect()> allScreens,
                     std::unique_ptr<ScreenSource> fallback,
                     const QString &busAddress = SessionBusLinux::address())
        : KWinScreenSource(veil, std::move(allScreens), std::move(fallback), busAddress, Limits())
    {}
    ~KWinScreenSource() override;

    QFuture<Picture> take(Area area) override;
    Access access() const override;
    QString advice() const override;
    void onAccessChanged(std::function<void()> handler) override;
    QFuture<Access> ask() override;

    /// Reads one picture from a pipe. Thread-safe; for worker threads.
    /// @param results KWin's answer: width, height, stride and format of the pixels
    /// @param limit between two parts
    static Picture read(int pipe, const QVariantMap &results, std::chrono::milliseconds limit);

Q_SIGNALS:
    /// Whether KWin takes pictures is known, or has changed.
    void stateKnown();

private:
    class Shot;
    enum class State { Unknown, Usable, Unusable };

    void setState(State state);

    PanelVeil &m_veil;
    std::function<QRect()> m_allScreens;
    std::unique_ptr<ScreenSource> m_fallback;
    Limits m_limits;
    State m_state = State::Unknown;
    std::function<void()> m_handler;
    QList<Shot *> m_shots;
    SessionBusLinux m_bus;
};

} // namespace quellora
