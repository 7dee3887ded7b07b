#pragma once

#include "platform/DesktopShortcuts.h"

#include <QMap>

#include <utility>

namespace quellora {

/// Records the offered actions; answer() simulates the desktop.
class FakeDesktopShortcuts : public DesktopShortcuts
{
public:
    void offer(const QList<Action> &actions) override
    {
        ++offers;
        offered = actions;
    }
    Capability state() const override { return current; }
    QString trigger(const QString &id) const override { return triggers.value(id); }

    /// The desktop answers, or changes its mind.
    void answer(const Capability &state, const QMap<QString, QString> &newTriggers = {})
    {
        current = state;
        triggers = newTriggers;
        Q_EMIT changed();
    }
    /// The user presses an action's key.
    void press(const QString &id) { Q_EMIT activated(id); }

    Capability current = Capability::bestEffort(QStringLiteral("Not asked."));
    QMap<QString, QString> triggers;
    QList<Action> offered;
    int offers = 0;
};

} // namespace quellora
