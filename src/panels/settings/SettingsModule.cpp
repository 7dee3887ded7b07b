#include "panels/settings/SettingsModule.h"

#include <QtGlobal>

void qml_register_types_Quellora_Settings();

namespace quellora {

void useSettingsModule()
{
    // A static library drops what nobody names.
    static volatile auto keepModule = &qml_register_types_Quellora_Settings;
    Q_UNUSED(keepModule)
}

} // namespace quellora
