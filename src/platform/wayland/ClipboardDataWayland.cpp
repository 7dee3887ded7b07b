#include "platform/wayland/ClipboardDataWayland.h"

#include <QMimeData>

#include <utility>

namespace quellora {

ClipboardDataWayland::ClipboardDataWayland(QClipboard &clipboard, QObject *parent)
    : QObject(parent), m_clipboard(clipboard)
{
    connect(&clipboard, &QClipboard::changed, this, &ClipboardDataWayland::follow);
}

ClipboardDataWayland::~ClipboardDataWayland()
{
    for (const Owned &owned : m_owned) {
        if (isOurs(owned.mode))
            m_clipboard.clear(owned.mode);
    }
}

bool ClipboardDataWayland::isOurs(QClipboard::Mode mode) const
{
    return mode == QClipboard::Clipboard ? m_clipboard.ownsClipboard()
                                         : m_clipboard.ownsSelection();
}

void ClipboardDataWayland::follow(QClipboard::Mode mode)
{
    for (Owned &owned : m_owned) {
        if (owned.mode != mode)
            continue;
        const QMimeData *data = isOurs(mode) ? m_clipboard.mimeData(mode) : nullptr;
        if (data == owned.data)
            continue;
        // Null if the toolkit has deleted it.
        delete std::exchange(owned.data, data).get();
    }
}

} // namespace quellora
