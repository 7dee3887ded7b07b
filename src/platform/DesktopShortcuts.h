#pragma once

#include "platform/Platform.h"

#include <QKeyCombination>
#include <QList>
#include <QObject>
#include <QString>

#include <optional>

namespace quellora {

/// Keys that the desktop assigns to this program's actions and whose presses it delivers. The user
/// decides in the desktop's settings which keys these are. Main thread only.
class DesktopShortcuts : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    struct Action
    {
        /// The name of the command, e.g. "capture".
        QString id;
        /// Shown in the desktop's settings; not empty.
        QString description;
        /// Suggested to the desktop, which may ignore it.
        std::optional<QKeyCombination> preferred;

        bool operator==(const Action &) const = default;
    };

    /// Offers the actions to the desktop, which may ask the user; again whenever there are others,
    /// which replace them. Asynchronous, see changed().
    virtual void offer(const QList<Action> &actions) = 0;
    /// Applied while the desktop delivers presses, BestEffort until it has answered, else
    /// Unsupported. The reason is a sentence for the user.
    virtual Capability state() const = 0;
    /// The key assigned to an action as the desktop describes it; empty if there is none.
    virtual QString trigger(const QString &id) const = 0;

Q_SIGNALS:
    /// The key of an action was pressed.
    void activated(const QString &id);
    /// state() or a trigger() has changed.
    void changed();
};

} // namespace quellora
