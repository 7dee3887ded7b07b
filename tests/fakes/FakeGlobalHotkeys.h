#pragma once

#include "platform/Platform.h"

#include <QList>
#include <QMap>
#include <QPair>

#include <algorithm>
#include <utility>

namespace quellora {

/// Hot-key service with claims of other programs.
class FakeGlobalHotkeys : public GlobalHotkeys
{
public:
    /// Status of a combination that is taken.
    static constexpr int taken = -9878;

    struct Entry
    {
        QString key;
        quint32 keyCode = 0;
        quint32 modifiers = 0;
        quint32 signature = 0;
        quint32 id = 0;
        bool operator==(const Entry &) const = default;
    };

    void installHandler(std::function<void(quint32 id)> onPress) override
    {
        ++installs;
        handler = std::move(onPress);
    }
    void removeHandler() override
    {
        ++removals;
        handler = nullptr;
    }
    Result registerHotkey(const QString &key, quint32 keyCode, quint32 modifiers, quint32 signature,
                          quint32 id) override
    {
        attempts << Entry{key, keyCode, modifiers, signature, id};
        if (const int status = claims.value({key, modifiers}, 0))
            return {status, 0};
        if (isRegistered(key, modifiers))
            return {taken, 0};
        const Registration registration = ++m_last;
        registered.insert(registration, attempts.last());
        return {0, registration};
    }
    void unregisterHotkey(Registration registration) override
    {
        if (registered.remove(registration))
            ++unregistrations;
        else
            ++unknownUnregistrations;
    }

    /// Another program holds this combination: registering it fails with @p status.
    void claim(const QString &key, quint32 modifiers, int status = taken)
    {
        claims.insert({key, modifiers}, status);
    }
    void release(const QString &key, quint32 modifiers) { claims.remove({key, modifiers}); }
    /// The service reports a press with this id, whatever is registered.
    void press(quint32 id)
    {
        // A copy: the handler may remove itself.
        if (const auto onPress = handler)
            onPress(id);
    }
    bool isRegistered(const QString &key, quint32 modifiers) const
    {
        return std::any_of(registered.begin(), registered.end(), [&](const Entry &entry) {
            return entry.key == key && entry.modifiers == modifiers;
        });
    }
    /// The user presses a combination; true when it was registered.
    bool pressCombo(const QString &key, quint32 modifiers)
    {
        // A copy: the handler may unregister it.
        const auto entries = registered;
        for (const Entry &entry : entries) {
            if (entry.key == key && entry.modifiers == modifiers) {
                press(entry.id);
                return true;
            }
        }
        return false;
    }
    QList<quint32> registeredIds() const
    {
        QList<quint32> ids;
        for (const Entry &entry : registered)
            ids << entry.id;
        return ids;
    }

    QList<Entry> attempts;
    QMap<Registration, Entry> registered;
    QMap<QPair<QString, quint32>, int> claims;
    std::function<void(quint32)> handler;
    int installs = 0;
    int removals = 0;
    int unregistrations = 0;
    /// Attempts to release something that was not registered.
    int unknownUnregistrations = 0;

private:
    Registration m_last = 0;
};

} // namespace quellora
