#pragma once

#include "fakes/FakeAnswerDisplay.h"
#include "fakes/LogCapture.h"
#include "query/ServiceMessages.h"

#include <QSignalSpy>
#include <QTest>
#include <QTimer>

namespace quellora {

inline const QString prefix = QStringLiteral("[OverlayWindowController] ");

inline AdminMessagePayload message(const QString &id, const QString &type)
{
    AdminMessagePayload payload;
    payload.id = id;
    payload.type = type;
    payload.headerText = "Header";
    payload.bodyMarkdown = "Body";
    return payload;
}

/// ServiceMessages with a fake display and a manual clock.
struct ServiceMessagesFixture
{
    FakeAnswerDisplay display;
    QDateTime now = QDateTime::fromString("2026-03-01T10:00:00Z", Qt::ISODate);
    LogCapture log;
    ServiceMessages messages{display, BackendEndpoints("http://host"), [this] { return now; }};

    QString shownId() const
    {
        return messages.currentAdminMessage() ? messages.currentAdminMessage()->id : QString();
    }
    QTimer *timer(const char *name) { return messages.findChild<QTimer *>(name); }
};

} // namespace quellora
