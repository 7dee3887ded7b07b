#pragma once

#include <QAbstractListModel>
#include <QColor>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace quellora {

/// List model of the swatches for the response text colour, with the current choice. Main thread
/// only.
class TextColors : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the settings' model")
    /// Row of the chosen swatch; -1 for a custom colour.
    Q_PROPERTY(int chosenRow READ chosenRow NOTIFY chosenRowChanged)
public:
    enum Role { IdRole = Qt::UserRole + 1, NameRole, HexRole, ColorRole };

    /// Normalises user input to "#rrggbb" in lower case; nullopt if it is not a colour of six hex
    /// digits. Surrounding white space and one leading "#" are ignored.
    static std::optional<QString> normalizedHex(const QString &input);

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// Selects the theme whose colours are shown.
    void setLightTheme(bool isLight);
    /// Sets the current override; empty for none.
    void setChosenHex(const QString &hex);
    int chosenRow() const;
    /// The value to store for a row; empty for the theme's colour.
    QString hexAt(int row) const;

Q_SIGNALS:
    void chosenRowChanged();

private:
    bool m_isLight = false;
    QString m_chosenHex;
};

} // namespace quellora
