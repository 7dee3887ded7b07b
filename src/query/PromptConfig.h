#pragma once

#include "backend/Records.h"

#include <QString>

#include <optional>

namespace quellora {

/// The instruction text that goes with a capture.
class PromptConfig
{
public:
    /// The text in force: the user's own when not empty (blanks count as text), else the backend's
    /// default prompt when a configuration is present (even when empty), else builtIn().
    static QString current(const std::optional<QString> &userPrompt,
                           const std::optional<AppConfigResponse> &config);
    /// The built-in instruction text.
    static QString builtIn();
};

} // namespace quellora
