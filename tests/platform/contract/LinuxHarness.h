#pragma once

#include "platform/contract/PlatformHarness.h"
#include "platform/linux/FakePortal.h"

#include <QTemporaryDir>

namespace quellora {

/// What all Linux desktops have in common: a session bus with a fake settings portal, and a
/// stand-in for xdg-open.
class LinuxHarness : public PlatformHarness
{
public:
    QString prepare() override;
    std::unique_ptr<Platform> makePlatform() override;
    Qt::KeyboardModifiers editModifier() const override { return Qt::ControlModifier; }

    void setDark(bool on) override;
    void setReducesMotion(bool on) override;
    void holdOpening(bool on) override;
    void failOpening() override;
    QList<QUrl> opened() override;
    QString installedPath(const QString &program) const override;

protected:
    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }
    const QString &busAddress() const { return m_bus.address(); }

private:
    QTemporaryDir m_folder;
    PrivateBus m_bus;
    std::unique_ptr<FakePortal> m_portal;
};

} // namespace quellora
