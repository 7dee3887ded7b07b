#pragma once

#include "base/Settings.h"

#include <QtQml/qqmlregistration.h>

namespace quellora {

/// Registers Settings as a QML type; `base` does not depend on QML.
struct SettingsType
{
    Q_GADGET
    QML_FOREIGN(quellora::Settings)
    QML_NAMED_ELEMENT(Settings)
    QML_UNCREATABLE("Provided by the models")
};

} // namespace quellora
