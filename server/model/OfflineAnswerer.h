#pragma once

#include "model/ModelClient.h"
#include "model/TextRecognizer.h"

namespace quellora::server {

/// Answers when no model is configured: says so, and shows what could be read off the screenshot.
class OfflineAnswerer : public ModelClient
{
public:
    explicit OfflineAnswerer(OfflineSettings settings);
    AnswerOutcome answer(const ModelRequest &request, const TextSink &sink,
                         StopToken stop) override;

private:
    TextRecognizer m_recognizer;
};

/// Markdown of one page as the offline answer shows it, in pieces to be streamed.
std::vector<std::string> offlineMarkdown(const ReadPage &page);
/// Whether the lines of a block read like a program.
bool looksLikeCode(const ReadBlock &block);

} // namespace quellora::server
