#pragma once

#include "export/ExportFormat.h"

#include <QString>

#include <functional>

namespace quellora {

/// Asks the user for the file of an export. Main thread only.
class FileChooser
{
public:
    struct Choice
    {
        /// Empty if the user cancelled.
        QString path;
        /// The file is there already, and the user has agreed to replace it.
        bool replacesFile = false;
    };

    virtual ~FileChooser() = default;
    /// Shows the question, in place of one that is still open, and returns at once.
    /// @param suggestedName a file name without a folder
    /// @param onChosen called once, unless cancel() is called first
    virtual void choose(const QString &suggestedName, ExportFormat format,
                        std::function<void(const Choice &)> onChosen) = 0;
    /// Takes an open question away.
    virtual void cancel() = 0;
};

} // namespace quellora
