#pragma once

#include <string>
#include <string_view>

namespace quellora::server {

/// A complete HTML page around @p bodyHtml.
std::string pageHtml(std::string_view title, std::string_view bodyHtml);
/// Body of the page at a fixed path, empty when there is none. @p setupHint says in HTML what to
/// set to configure a model.
std::string fixedPageBody(std::string_view path, std::string_view setupHint);
/// The style sheet of all pages.
std::string_view pageStyle();

} // namespace quellora::server
