#include "platform/macos/EditMenu.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QPointer>
#include <QScopedValueRollback>
#include <QWindow>

namespace quellora {
namespace {

bool isSending = false;

bool send(QWindow &window, QEvent::Type type, const QKeyCombination &keys)
{
    QKeyEvent event(type, keys.key(), keys.keyboardModifiers());
    event.ignore();
    QCoreApplication::sendEvent(&window, &event);
    return event.isAccepted();
}

} // namespace

bool sendStandardKey(QWindow &window, QKeySequence::StandardKey standardKey)
{
    const QKeySequence sequence(standardKey);
    if (isSending || sequence.isEmpty())
        return false;
    const QScopedValueRollback sending(isSending, true);
    const QPointer<QWindow> target(&window);
    const QKeyCombination keys = sequence[0];
    // As Qt does: a text field first claims the combination as its own.
    send(window, QEvent::ShortcutOverride, keys);
    const bool isTaken = target && send(window, QEvent::KeyPress, keys);
    // The press may have closed the window.
    if (target)
        send(window, QEvent::KeyRelease, keys);
    return isTaken;
}

} // namespace quellora
