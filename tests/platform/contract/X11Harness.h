#pragma once

#include "platform/contract/LinuxHarness.h"
#include "platform/linux/OtherClient.h"

namespace quellora {

/// A private X server with a window manager.
class X11Harness : public LinuxHarness
{
public:
    QString prepare() override;
    QMap<Ability, QString> missingAbilities() const override;

    std::unique_ptr<OtherWindow> openOther() override;
    bool isAbove(QWindow &ours, const OtherWindow &other) override;
    bool isProgramActive() override;
    bool press(const QList<Combo> &combos) override;
    bool click(const QPoint &position) override;

    bool claimHotkey(const Combo &combo) override;
    bool releaseHotkey(const Combo &combo) override;
    void setCompositing(bool on) override { setOwned("_NET_WM_CM_S0", on); }
    void setStatusArea(bool on) override { setOwned("_NET_SYSTEM_TRAY_S0", on); }

private:
    void setOwned(const QByteArray &selection, bool on);
    // Queries windows, grabs keys and owns selections; has no window.
    std::unique_ptr<OtherClient> m_client;
};

} // namespace quellora
