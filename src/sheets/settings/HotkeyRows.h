#pragma once

#include "hotkeys/HotkeyActions.h"
#include "platform/ShortcutGuide.h"
#include "platform/Vocabulary.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace quellora {

class HotkeyRebinding;

/// List model of the hotkey settings: one row per action, those of the user's prompts
/// last. Main
/// thread only.
class HotkeyRows : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the settings' model")

    Q_PROPERTY(bool isListed READ isListed NOTIFY deliveryChanged)
    Q_PROPERTY(bool isRecordable READ isRecordable NOTIFY deliveryChanged)
    Q_PROPERTY(QString hint READ hint NOTIFY deliveryChanged)
    Q_PROPERTY(QString commandHint READ commandHint NOTIFY deliveryChanged)

public:
    enum Role {
        TitleRole = Qt::UserRole + 1,
        /// Display form of the current combo; while the desktop assigns the keys, its name for the
        /// action's key. Empty if there is none.
        ComboRole,
        /// ComboRole, or that there is no key, and what is to be known about it.
        KeyStateRole,
        /// Whether the combo differs from that of the configuration file.
        ChangedRole,
        CapturingRole,
        /// Why the recorded combo was rejected; empty without an error.
        ErrorRole,
        /// "This may conflict with …" while a combo is pending confirmation, else empty.
        ConflictRole,
        /// Display form of the pending combo.
        ConflictComboRole,
        /// Text to enter in the desktop's settings to bind the action there; empty without a guide.
        CommandLineRole,
    };

    /// @param rebinding must outlive the model
    /// @param vocabulary platform-specific key names
    HotkeyRows(HotkeyRebinding &rebinding, Vocabulary vocabulary, ShortcutGuide guide = {},
               QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// Whether there are keys to list.
    bool isListed() const;
    /// Whether the user can record new combos here.
    bool isRecordable() const;
    /// Who assigns the keys and how to change them.
    QString hint() const;
    /// How to bind the program's commands in the desktop; empty if that is not needed.
    QString commandHint() const;

    // Invalid rows are ignored.
    Q_INVOKABLE void beginCapture(int row);
    Q_INVOKABLE void cancelCapture();
    Q_INVOKABLE void confirmConflict();
    Q_INVOKABLE void cancelConflict();
    /// No effect while keys cannot be recorded.
    Q_INVOKABLE void unset(int row);
    Q_INVOKABLE void reset(int row);
    Q_INVOKABLE void resetAll();
    /// Copies the CommandLineRole text to the clipboard.
    Q_INVOKABLE void copyCommandLine(int row);

Q_SIGNALS:
    void deliveryChanged();

private:
    void followDelivery();
    void followPrompts();
    std::optional<HotkeyId> actionAt(int row) const;

    HotkeyRebinding &m_rebinding;
    Vocabulary m_vocabulary;
    ShortcutGuide m_guide;
    /// The actions of the rows.
    QList<HotkeyId> m_ids;
};

} // namespace quellora
