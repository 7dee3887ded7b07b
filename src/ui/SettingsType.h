#pragma once

#include "base/Settings.h"

#include <QtQml/qqmlregistration.h>

namespace quellora {

/// The QML type of Settings, which base declares without QML.
struct SettingsType
{
    Q_GADGET
    QML_FOREIGN(quellora::Settings)
    QML_NAMED_ELEMENT(Settings)
    QML_UNCREATABLE("Provided by the models")
};

} // namespace quellora
