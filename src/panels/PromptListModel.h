#pragma once

#include "base/PromptPresets.h"

#include <QAbstractListModel>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// The user's prompts for the menu of the prompt box: all of them, or those that match what was
/// typed after a slash. Main thread only.
class PromptListModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the panels' model")
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    Q_PROPERTY(bool isAvailable READ isAvailable NOTIFY isAvailableChanged)
public:
    enum Role {
        NameRole = Qt::UserRole + 1,
        /// The text in one line.
        PreviewRole,
        /// JSON key of the hot key that captures and sends with the prompt.
        HotkeyRole,
    };

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// Lists @p prompts, all of them.
    void setPrompts(const QList<PromptPreset> &prompts);
    /// The listed prompts.
    int count() const { return int(m_shown.size()); }
    /// Whether there are prompts at all.
    bool isAvailable() const { return !m_prompts.isEmpty(); }

    /// Lists all prompts.
    Q_INVOKABLE void showAll();
    /// Lists the prompts that the prompt box's text asks for: a slash, then the start of a name or
    /// of a word in it. Returns whether there are any; a text that is something else, such as a
    /// path, asks for none.
    Q_INVOKABLE bool showMatches(const QString &typed);
    /// The prompt's text; empty for an invalid row.
    Q_INVOKABLE QString textAt(int row) const;

Q_SIGNALS:
    void countChanged();
    void isAvailableChanged();

private:
    void show(const QList<PromptPreset> &prompts);

    QList<PromptPreset> m_prompts;
    QList<PromptPreset> m_shown;
};

} // namespace quellora
