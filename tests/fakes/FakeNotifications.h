#pragma once

#include "platform/Notifications.h"

#include <QStringList>

namespace quellora {

/// Records the notifications.
class FakeNotifications : public Notifications
{
public:
    Capability support() const override { return answer; }
    void show(const QString &title, const QString &text) override
    {
        titles << title;
        texts << text;
        isShown = true;
    }
    void close() override { isShown = false; }

    /// The user chooses the notification.
    void choose() { Q_EMIT chosen(); }

    QStringList titles;
    QStringList texts;
    bool isShown = false;
    Capability answer = Capability::applied();
};

} // namespace quellora
