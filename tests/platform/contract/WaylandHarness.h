#pragma once

#include "platform/contract/LinuxHarness.h"

#include <QImage>
#include <QLocalSocket>

namespace quellora {

/// A private Wayland desktop, started by with_wayland.py, whose socket plays the user. Where our
/// windows are is told from pictures of the screen, because no compositor tells its clients.
class WaylandHarness : public LinuxHarness
{
public:
    int timeout() const override { return 10000; }
    QString prepare() override;
    QMap<Ability, QString> missingAbilities() const override;

    std::unique_ptr<OtherWindow> openOther() override;
    bool isAbove(QWindow &ours, const OtherWindow &other) override;
    bool isProgramActive() override;
    bool press(const QList<Combo> &combos) override;
    bool click(const QPoint &position) override;

    void setStatusArea(bool on) override;

private:
    /// Sends a command; returns its answer without the leading "ok", nothing on a failure.
    std::optional<QString> tell(const QString &command);
    QImage picture();

    QLocalSocket m_user;
    QString m_desktop;
    std::unique_ptr<BusService> m_tray;
};

} // namespace quellora
