#pragma once

#include "export/FileChooser.h"

#include <utility>

namespace quellora {

/// A FileChooser that the test answers.
class FakeFileChooser : public FileChooser
{
public:
    void choose(const QString &suggestedName, ExportFormat format,
                std::function<void(const Choice &)> onChosen) override
    {
        name = suggestedName;
        askedFormat = format;
        answer = std::move(onChosen);
    }
    void cancel() override
    {
        ++cancels;
        answer = nullptr;
    }

    QString name;
    ExportFormat askedFormat = ExportFormat::Markdown;
    /// Set while the question is open.
    std::function<void(const Choice &)> answer;
    int cancels = 0;
};

} // namespace quellora
