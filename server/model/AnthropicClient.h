#pragma once

#include "config/Config.h"
#include "model/ModelClient.h"
#include "model/UpstreamTransfer.h"

namespace quellora::server {

/// Answers through the Anthropic Messages API (POST /v1/messages, streamed, with picture).
class AnthropicClient : public ModelClient
{
public:
    AnthropicClient(UpstreamSettings settings, TimingSettings timing);
    AnswerOutcome answer(const ModelRequest &request, const TextSink &sink,
                         StopToken stop) override;

private:
    UpstreamSettings m_settings;
    UpstreamTransfer m_transfer;
};

} // namespace quellora::server
