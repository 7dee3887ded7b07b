#pragma once

#include "platform/Platform.h"

#include <QObject>

class QKeyEvent;

namespace quellora {

/// KeyMonitor over the toolkit's own events, for systems whose menus and shortcuts all pass
/// through the toolkit. Main thread only.
class EventFilterKeyMonitor : public QObject, public KeyMonitor
{
    Q_OBJECT
public:
    /// The character of a physical key without modifiers; empty for keys that cannot be bound.
    /// @param nativeScanCode QKeyEvent::nativeScanCode() of a press
    using KeyNames = std::function<QString(quint32 nativeScanCode)>;

    explicit EventFilterKeyMonitor(KeyNames names);
    ~EventFilterKeyMonitor() override;

    void install(std::function<void(const KeyDown &)> onKeyDown) override;
    void remove() override;

    /// A key press in the recorder's terms.
    static KeyDown keyDown(const QKeyEvent &event, const KeyNames &names);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    KeyNames m_names;
    std::function<void(const KeyDown &)> m_onKeyDown;
};

} // namespace quellora
