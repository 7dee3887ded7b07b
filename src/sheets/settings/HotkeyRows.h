#pragma once

#include "platform/ShortcutGuide.h"
#include "platform/Vocabulary.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

namespace quellora {

class HotkeyRebinding;

/// List model of the hotkey settings: one row per action, in the order of hotkeyActions. Main
/// thread only.
class HotkeyRows : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the settings' model")
public:
    enum Role {
        TitleRole = Qt::UserRole + 1,
        /// Display form of the current combo.
        ComboRole,
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

    // Invalid rows are ignored.
    Q_INVOKABLE void beginCapture(int row);
    Q_INVOKABLE void cancelCapture();
    Q_INVOKABLE void confirmConflict();
    Q_INVOKABLE void cancelConflict();
    Q_INVOKABLE void reset(int row);
    Q_INVOKABLE void resetAll();
    /// Copies the CommandLineRole text to the clipboard.
    Q_INVOKABLE void copyCommandLine(int row);

private:
    HotkeyRebinding &m_rebinding;
    Vocabulary m_vocabulary;
    ShortcutGuide m_guide;
};

} // namespace quellora
