#pragma once

#include <QClipboard>
#include <QObject>
#include <QPointer>

#include <array>

class QMimeData;

namespace quellora {

/// Deletes what this program has put on the clipboard and on the primary selection, once something
/// else is there. The toolkit does so on other systems, but its Wayland plugin keeps each copy
/// until the program ends. Main thread only.
class ClipboardDataWayland : public QObject
{
    Q_OBJECT
public:
    explicit ClipboardDataWayland(QClipboard &clipboard, QObject *parent = nullptr);
    /// Takes this program's data off, which the compositor does at its end anyway.
    ~ClipboardDataWayland() override;

private:
    struct Owned
    {
        QClipboard::Mode mode;
        QPointer<const QMimeData> data;
    };

    bool isOurs(QClipboard::Mode mode) const;
    void follow(QClipboard::Mode mode);

    QClipboard &m_clipboard;
    std::array<Owned, 2> m_owned{
        {{QClipboard::Clipboard, nullptr}, {QClipboard::Selection, nullptr}}};
};

} // namespace quellora
