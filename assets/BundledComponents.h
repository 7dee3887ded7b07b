#pragma once

#include <QList>
#include <QString>

namespace quellora {

/// Work of others that is compiled into the program.
struct BundledComponent
{
    QString name;
    QString version;
    /// Short name of the licence, such as "MIT".
    QString license;
    /// The whole licence.
    QString licenseText;
};

/// The components in the order of their names.
QList<BundledComponent> bundledComponents();

} // namespace quellora
