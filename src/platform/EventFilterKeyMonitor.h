#pragma once

#include "platform/Platform.h"

#include <QObject>

class QKeyEvent;

namespace quellora {

/// KeyMonitor based on an application-wide Qt event filter, for systems on which Qt handles all
/// menus and shortcuts. Main thread only.
class EventFilterKeyMonitor : public QObject, public KeyMonitor
{
    Q_OBJECT
public:
    /// Returns the character of a physical key without modifiers; empty for keys that cannot be
    /// bound.
    /// @param nativeScanCode QKeyEvent::nativeScanCode() of a press
    using KeyNames = std::function<QString(quint32 nativeScanCode)>;

    explicit EventFilterKeyMonitor(KeyNames names);
    ~EventFilterKeyMonitor() override;

    void install(std::function<void(const KeyDown &)> onKeyDown) override;
    void remove() override;

    /// Converts a Qt key press for the recorder.
    static KeyDown keyDown(const QKeyEvent &event, const KeyNames &names);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    KeyNames m_names;
    std::function<void(const KeyDown &)> m_onKeyDown;
};

} // namespace quellora
