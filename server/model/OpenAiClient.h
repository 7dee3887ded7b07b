#pragma once

#include "config/Config.h"
#include "model/ModelClient.h"
#include "model/UpstreamTransfer.h"

namespace quellora::server {

/// Answers through any server that speaks the OpenAI chat format (POST /v1/chat/completions,
/// streamed, picture as data address): llama.cpp, Ollama, vLLM and the like. The base address may
/// be given with or without its trailing "/v1".
class OpenAiClient : public ModelClient
{
public:
    OpenAiClient(UpstreamSettings settings, TimingSettings timing);
    AnswerOutcome answer(const ModelRequest &request, const TextSink &sink,
                         StopToken stop) override;

private:
    UpstreamSettings m_settings;
    UpstreamTransfer m_transfer;
};

} // namespace quellora::server
