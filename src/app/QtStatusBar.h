#pragma once

#include "app/StatusBar.h"

namespace quellora {

/// Status items through the toolkit's system tray: the desktop's own protocol where there is one,
/// the older embedding protocol otherwise. Needs the widget application object.
class QtStatusBar : public StatusBar
{
public:
    std::unique_ptr<StatusItem> makeItem() override;
};

} // namespace quellora
