#include "panels/PanelsModule.h"

#include <QtGlobal>

void qml_register_types_Quellora_Panels();

namespace quellora {

void usePanelsModule()
{
    // A static library drops what nobody names.
    static volatile auto keepModule = &qml_register_types_Quellora_Panels;
    Q_UNUSED(keepModule)
}

} // namespace quellora
