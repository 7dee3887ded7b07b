#pragma once

#include "platform/contract/PlatformHarness.h"
#include "platform/linux/FakePortal.h"
#include "platform/linux/OtherClient.h"

#include <QTemporaryDir>

namespace quellora {

/// A private X server with a window manager, a session bus with a fake settings portal, and a
/// stand-in for xdg-open.
class X11Harness : public PlatformHarness
{
public:
    QString prepare() override;
    QMap<Ability, QString> missingAbilities() const override;
    std::unique_ptr<Platform> makePlatform() override;

    std::unique_ptr<OtherWindow> openOther() override;
    bool isAbove(QWindow &ours, const OtherWindow &other) override;
    bool isProgramActive() override;
    bool press(const QList<Combo> &combos) override;
    bool click(const QPoint &position) override;
    Qt::KeyboardModifiers editModifier() const override { return Qt::ControlModifier; }

    bool claimHotkey(const Combo &combo) override;
    bool releaseHotkey(const Combo &combo) override;
    void setDark(bool on) override;
    void setReducesMotion(bool on) override;
    void setCompositing(bool on) override { setOwned("_NET_WM_CM_S0", on); }
    void setStatusArea(bool on) override { setOwned("_NET_SYSTEM_TRAY_S0", on); }
    void holdOpening(bool on) override;
    void failOpening() override;
    QList<QUrl> opened() override;
    QString installedPath(const QString &program) const override;

private:
    void setOwned(const QByteArray &selection, bool on);
    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }

    QTemporaryDir m_folder;
    // Queries windows, grabs keys and owns selections; has no window.
    std::unique_ptr<OtherClient> m_client;
    PrivateBus m_bus;
    std::unique_ptr<FakePortal> m_portal;
};

} // namespace quellora
