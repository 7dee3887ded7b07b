#pragma once

#include <QAbstractListModel>
#include <QColor>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace quellora {

/// The colours offered for the response text and which of them is chosen. Main thread only.
class TextColors : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the settings' model")
    /// Row of the chosen swatch; -1 for a colour of the user's own.
    Q_PROPERTY(int chosenRow READ chosenRow NOTIFY chosenRowChanged)
public:
    enum Role { IdRole = Qt::UserRole + 1, NameRole, HexRole, ColorRole };

    /// Turns what was typed into "#rrggbb" in lower case; nothing when it is no colour. Blanks
    /// around it and one leading "#" do not count.
    static std::optional<QString> normalizedHex(const QString &typed);

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// The theme's own colours are part of the list.
    void setLightTheme(bool isLight);
    /// The override in force; empty for none.
    void setChosenHex(const QString &hex);
    int chosenRow() const;
    /// What choosing a row stores; empty for the theme's colour.
    QString hexAt(int row) const;

Q_SIGNALS:
    void chosenRowChanged();

private:
    bool m_isLight = false;
    QString m_chosenHex;
};

} // namespace quellora
