#pragma once

#include "backend/Records.h"

#include <QString>

#include <optional>

namespace quellora {

/// Selects the instruction text that is sent with a capture.
class PromptConfig
{
public:
    /// The effective text: the user's prompt unless empty (blanks count as text), else the default
    /// prompt of the backend's configuration if there is one (even if empty), else builtIn().
    static QString current(const std::optional<QString> &userPrompt,
                           const std::optional<AppConfigResponse> &config);
    /// The built-in fallback.
    static QString builtIn();
};

} // namespace quellora
