#pragma once

#include <QByteArray>
#include <QList>
#include <QTemporaryDir>

#include <thread>

struct wl_display;
struct wl_interface;

namespace quellora {

/// A compositor that announces interfaces and handles no request of theirs, on a socket in a folder
/// of its own and on a thread of its own. Sets WAYLAND_DISPLAY and XDG_RUNTIME_DIR until it ends.
class FakeCompositor
{
public:
    explicit FakeCompositor(const QList<const wl_interface *> &interfaces);
    ~FakeCompositor();
    Q_DISABLE_COPY_MOVE(FakeCompositor)

private:
    QTemporaryDir m_folder;
    QByteArray m_displayBefore;
    QByteArray m_folderBefore;
    wl_display *m_display;
    std::thread m_thread;
};

} // namespace quellora
