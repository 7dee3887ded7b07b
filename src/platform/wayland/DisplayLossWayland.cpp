#include "platform/wayland/DisplayLossWayland.h"

#include <QLoggingCategory>
#include <QString>
#include <QtGlobal>

#include <atomic>

namespace quellora {
namespace {

std::atomic<void (*)()> lossHandler = nullptr;
std::atomic<QtMessageHandler> previousHandler = nullptr;

void onMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (const QtMessageHandler previous = previousHandler)
        previous(type, context, message);
    // Both messages that the toolkit writes before it ends the process: the connection "broke" or
    // "experienced a fatal error".
    void (*const handler)() = lossHandler;
    if (handler && type == QtWarningMsg &&
        message.startsWith(QLatin1String("The Wayland connection ")))
        handler();
}

} // namespace

void setDisplayLossHandlerWayland(void (*handler)())
{
    lossHandler = handler;
    if (previousHandler)
        return;
    // The user's logging rules must not silence the message.
    QLoggingCategory::defaultCategory()->setEnabled(QtWarningMsg, true);
    previousHandler = qInstallMessageHandler(&onMessage);
}

} // namespace quellora
