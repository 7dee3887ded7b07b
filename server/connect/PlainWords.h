#pragma once

#include "model/Answer.h"

#include <string>

namespace quellora::server {

/// What a provider was asked for.
enum class Asked { ModelList, Answer };

/// Tells the owner what went wrong with the server called @p name and what to do, with the
/// provider's own words in quotation marks. @p key never appears in it.
std::string plainWords(const UpstreamProblem &problem, Asked asked, const std::string &name,
                       const std::string &key);

} // namespace quellora::server
