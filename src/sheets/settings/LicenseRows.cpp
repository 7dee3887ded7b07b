#include "sheets/settings/LicenseRows.h"

namespace quellora {

int LicenseRows::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_components.size());
}

QVariant LicenseRows::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const BundledComponent &component = m_components[index.row()];
    switch (role) {
    case NameRole:
        return component.name;
    case VersionRole:
        return component.version;
    case LicenseRole:
        return component.license;
    case TextRole:
        return component.licenseText;
    default:
        return {};
    }
}

QHash<int, QByteArray> LicenseRows::roleNames() const
{
    return {
        {NameRole, "name"}, {VersionRole, "version"}, {LicenseRole, "license"}, {TextRole, "text"}};
}

} // namespace quellora
