#pragma once

#include "platform/Vocabulary.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

namespace quellora {

class HotkeyRebinding;

/// The rows of the hot-key settings: one per action, in the order of hotkeyActions. Main thread
/// only.
class HotkeyRows : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the settings' model")
public:
    enum Role {
        TitleRole = Qt::UserRole + 1,
        /// Display form of the combo in force.
        ComboRole,
        /// Whether the combo differs from the file's.
        ChangedRole,
        CapturingRole,
        /// Why a recorded combo was refused; empty without an error.
        ErrorRole,
        /// "This may conflict with …" while a combo awaits confirmation, else empty.
        ConflictRole,
        /// Display form of that combo.
        ConflictComboRole,
    };

    /// @param rebinding must outlive the model
    /// @param words names the keys
    HotkeyRows(HotkeyRebinding &rebinding, Vocabulary words, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // Rows out of range are ignored.
    Q_INVOKABLE void beginCapture(int row);
    Q_INVOKABLE void cancelCapture();
    Q_INVOKABLE void confirmConflict();
    Q_INVOKABLE void cancelConflict();
    Q_INVOKABLE void reset(int row);
    Q_INVOKABLE void resetAll();

private:
    HotkeyRebinding &m_rebinding;
    Vocabulary m_words;
};

} // namespace quellora
