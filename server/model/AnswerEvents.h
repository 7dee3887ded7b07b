#pragma once

#include "model/ProviderFault.h"
#include "store/UsageLedger.h"

#include <functional>
#include <optional>
#include <string_view>

namespace quellora::server {

/// What one event of a provider's stream means for the transfer.
enum class StreamStep { Continue, Finished, Broken };

/// Interprets the events of one answer. Used on the answer's loop only.
class AnswerEvents
{
public:
    using Text = std::function<void(std::string_view text)>;

    virtual ~AnswerEvents() = default;
    /// Takes the data of one event and passes the text in it to @p text.
    virtual StreamStep read(std::string_view data, const Text &text) = 0;
    /// The provider's own count, once it has sent one.
    virtual std::optional<TokenCount> tokens() const = 0;
    /// Whether a stream that ends here holds the whole answer, although its last event is missing.
    virtual bool isWhole() const { return false; }
    /// Why the model has stopped.
    virtual AnswerEnding ending() const { return AnswerEnding::Whole; }
    /// What the body of a refusal is about, or an error event of a stream, whose @p status is 0.
    virtual ProviderFault faultOf(int status, std::string_view body) const = 0;
};

} // namespace quellora::server
