#pragma once

#include "overlay/ResponseScrollbarModel.h"

#include <algorithm>

namespace quellora {

/// Sets @p bar from a page's scroll position in pixels, like the response display.
inline void reportPosition(ResponseScrollbarModel &bar, double scrollTop, double scrollHeight,
                           double clientHeight)
{
    const double extent = scrollHeight - clientHeight;
    bar.setPosition(clientHeight < scrollHeight, clientHeight / std::max(scrollHeight, 1.0),
                    extent >= 1 ? scrollTop / extent : scrollTop);
}

} // namespace quellora
