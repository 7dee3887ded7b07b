#pragma once

#include "http/Message.h"

#include <cstddef>
#include <string_view>

namespace quellora::server {

class EventLoop;

/// The client's side of a reply that grows. To be used on the loop of the connection only; calls
/// never lead to calls back into the stream.
class StreamOutput
{
public:
    virtual ~StreamOutput() = default;
    /// Replies with @p response instead of a stream. Only before begin(), and the last call.
    virtual void reply(Response response) = 0;
    /// Sends status and fields; the body follows with write().
    virtual void begin(const Response &head) = 0;
    virtual void write(std::string_view bytes) = 0;
    /// Bytes that were written but not taken by the network yet.
    virtual std::size_t buffered() const = 0;
    /// Ends the body. The last call.
    virtual void finish() = 0;
};

/// A reply that grows. All calls come on the loop of the connection, after the handler that
/// attached the stream to its response has returned.
class ResponseStream
{
public:
    virtual ~ResponseStream() = default;
    /// @p output may be used until finish(), reply() or clientGone().
    virtual void start(StreamOutput &output, EventLoop &loop) = 0;
    /// The buffer of the output has run empty after it was more than that.
    virtual void drained() = 0;
    /// The client has closed the connection or stopped reading.
    virtual void clientGone() = 0;
    /// The server shuts down and waits no longer: the stream ends now.
    virtual void serverStops() = 0;
};

} // namespace quellora::server
