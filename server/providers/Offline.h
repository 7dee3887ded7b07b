#pragma once

#include "model/TextRecognizer.h"

#include <string>
#include <vector>

namespace quellora::server {

/// The Markdown that shows one page in an offline answer, in pieces to be streamed.
std::vector<std::string> offlineMarkdown(const ReadPage &page);

} // namespace quellora::server
