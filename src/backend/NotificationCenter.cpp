#include "backend/NotificationCenter.h"

namespace quellora {

NotificationCenter &NotificationCenter::shared()
{
    static NotificationCenter center;
    return center;
}

} // namespace quellora
