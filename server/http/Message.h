#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quellora::server {

/// The fields of an HTTP head, in their order. Names are compared without regard to case; a name
/// may stand several times.
class HeaderFields
{
public:
    using Field = std::pair<std::string, std::string>;

    /// Appends a field.
    void add(std::string name, std::string value);
    /// Replaces all fields of that name by one.
    void set(const std::string &name, std::string value);
    bool has(std::string_view name) const { return count(name) > 0; }
    std::size_t count(std::string_view name) const;
    /// The first value of that name; empty when there is none.
    std::string value(std::string_view name) const;
    auto begin() const { return m_fields.begin(); }
    auto end() const { return m_fields.end(); }

private:
    std::vector<Field> m_fields;
};

/// One request with its whole body. A plain value.
struct Request
{
    std::string method;
    /// Without the query, percent-decoded.
    std::string path;
    /// The decoded parameters of the query; the first of equal names wins.
    std::map<std::string, std::string> parameters;
    HeaderFields headers;
    std::string body;
    std::string peerAddress;
    int peerPort = 0;
    int localPort = 0;
    /// Names this request in the log and in the field X-Request-Id of its reply.
    std::string id;

    /// The first value of a header field; empty when there is none.
    std::string header(std::string_view name) const { return headers.value(name); }
    /// The value of a parameter, or nothing.
    std::optional<std::string> parameter(const std::string &name) const;
};

/// Takes the pieces of a streamed body. Called from the thread that writes them.
struct BodySink
{
    /// Returns whether the client is still connected.
    std::function<bool(std::string_view bytes)> write;
    /// Ends the body.
    std::function<void()> done;
};

/// The reply to a request. A plain value; a handler fills it in.
struct Response
{
    int status = 200;
    HeaderFields headers;
    std::string body;
    /// Replaces `body` by one that is written as it grows: called again and again until it ends the
    /// body or returns false. Empty for a reply that is complete.
    std::function<bool(BodySink &sink)> stream;

    /// Sets body and type.
    void setBody(std::string content, const std::string &type);
};

} // namespace quellora::server
