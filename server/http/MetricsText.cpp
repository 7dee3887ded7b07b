#include "http/MetricsText.h"

#include <array>
#include <cstdio>
#include <string_view>
#include <vector>

namespace quellora::server {
namespace {

/// @p value of a label, with the characters escaped that the format gives a meaning.
std::string escaped(const std::string &value)
{
    std::string text;
    for (const char c : value) {
        if (c == '\\' || c == '"')
            text += '\\';
        if (c == '\n')
            text += "\\n";
        else
            text += c;
    }
    return text;
}

std::string decimal(double value)
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.9g", value);
    return text.data();
}

std::string stateName(CircuitBreaker::State state)
{
    switch (state) {
    case CircuitBreaker::State::Open:
        return "open";
    case CircuitBreaker::State::HalfOpen:
        return "half-open";
    case CircuitBreaker::State::Closed:
        break;
    }
    return "closed";
}

/// Collects the text, one metric after the other.
class Writer
{
public:
    void begin(std::string_view name, std::string_view type, std::string_view help)
    {
        m_name = name;
        m_text.append("# HELP ").append(name).append(" ").append(help).append("\n# TYPE ");
        m_text.append(name).append(" ").append(type).append("\n");
    }
    void sample(const std::string &value, const std::vector<std::string> &names = {},
                const std::vector<std::string> &labels = {}, std::string_view suffix = "")
    {
        m_text.append(m_name).append(suffix);
        for (std::size_t i = 0; i < names.size() && i < labels.size(); ++i) {
            m_text.append(i == 0 ? "{" : ",").append(names[i]).append("=\"");
            m_text.append(escaped(labels[i])).append("\"");
        }
        m_text.append(names.empty() ? " " : "} ").append(value).append("\n");
    }
    void single(std::string_view name, std::string_view type, std::string_view help,
                const std::string &value)
    {
        begin(name, type, help);
        sample(value);
    }
    void family(std::string_view name, std::string_view help, const CounterFamily &family,
                const std::vector<std::string> &names)
    {
        begin(name, "counter", help);
        for (const auto &[labels, count] : family.counts())
            sample(std::to_string(count), names, labels);
    }
    void histogram(std::string_view name, std::string_view help, const DurationHistogram &durations)
    {
        begin(name, "histogram", help);
        std::uint64_t sum = 0;
        for (std::size_t range = 0; range < DurationHistogram::bounds.size(); ++range) {
            sum += durations.count(range);
            sample(std::to_string(sum), {"le"}, {decimal(DurationHistogram::bounds[range])},
                   "_bucket");
        }
        // Counted once, so that the last range and the count agree while others record.
        sum += durations.count(DurationHistogram::bounds.size());
        sample(std::to_string(sum), {"le"}, {"+Inf"}, "_bucket");
        sample(decimal(durations.sumSeconds()), {}, {}, "_sum");
        sample(std::to_string(sum), {}, {}, "_count");
    }
    std::string take() { return std::move(m_text); }

private:
    std::string m_name;
    std::string m_text;
};

} // namespace

std::string metricsText(const Metrics &metrics, const std::map<std::string, std::size_t> &queues,
                        const std::vector<ModelStanding> &models)
{
    Writer writer;
    writer.begin("quellora_build_info", "gauge", "Version of the program; always 1.");
    writer.sample("1", {"version"}, {QUELLORA_VERSION});
    writer.family("quellora_requests_total", "Requests answered, by route and HTTP status.",
                  metrics.requests, {"route", "status"});
    writer.histogram("quellora_first_text_seconds",
                     "Time from the arrival of a question to the first text of its answer.",
                     metrics.firstText);
    writer.single("quellora_running_answers", "gauge", "Answers that are being streamed now.",
                  std::to_string(metrics.runningAnswers.load()));
    writer.single("quellora_connections", "gauge", "Open connections of clients.",
                  std::to_string(metrics.connections.load()));
    writer.family("quellora_tokens_total", "Tokens counted, by model and direction.",
                  metrics.tokens, {"model", "direction"});
    writer.family("quellora_provider_errors_total",
                  "Answers that a model provider failed, by model and kind.",
                  metrics.providerErrors, {"model", "kind"});
    writer.family("quellora_retries_total",
                  "Failed attempts after which the model was asked again.", metrics.retries,
                  {"model"});
    writer.family("quellora_fallbacks_total",
                  "Answers for which another model was asked, by the model that failed.",
                  metrics.fallbacks, {"model"});
    writer.begin("quellora_model_breaker_info", "gauge",
                 "How the circuit breaker of a model stands; always 1.");
    for (const ModelStanding &model : models)
        writer.sample("1", {"model", "state"}, {model.model, stateName(model.breaker.state)});
    writer.begin("quellora_model_breaker_openings_total", "counter",
                 "How often the circuit breaker of a model has opened.");
    for (const ModelStanding &model : models)
        writer.sample(std::to_string(model.breaker.openings), {"model"}, {model.model});
    writer.single("quellora_requests_refused_for_load_total", "counter",
                  "Requests refused because too many waited for a worker.",
                  std::to_string(metrics.refusedForLoad.load()));
    writer.begin("quellora_worker_queue_jobs", "gauge", "Jobs that wait for a thread, by pool.");
    for (const auto &[pool, waiting] : queues)
        writer.sample(std::to_string(waiting), {"pool"}, {pool});
    return writer.take();
}

} // namespace quellora::server
