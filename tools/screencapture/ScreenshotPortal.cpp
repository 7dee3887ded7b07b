#include "ScreenshotPortal.h"

#include "PortalFile.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include <dlfcn.h>
#include <unistd.h>

namespace quellora::screencapture {

namespace {

using namespace std::string_view_literals;

constexpr const char *busLibrary = "libsystemd.so.0";
constexpr const char *portalName = "org.freedesktop.portal.Desktop";
constexpr const char *portalPath = "/org/freedesktop/portal/desktop";
constexpr const char *screenshotInterface = "org.freedesktop.portal.Screenshot";
constexpr const char *requestInterface = "org.freedesktop.portal.Request";
constexpr const char *busName = "org.freedesktop.DBus";
constexpr const char *busPath = "/org/freedesktop/DBus";

// Subscribed to before the call, because the answer may follow at once. Any path: portals before
// version 0.9 do not derive the request's path from handle_token.
constexpr const char *responseRule = "type='signal',interface='org.freedesktop.portal.Request',"
                                     "member='Response'";
constexpr const char *ownerRule = "type='signal',sender='org.freedesktop.DBus',"
                                  "interface='org.freedesktop.DBus',member='NameOwnerChanged',"
                                  "arg0='org.freedesktop.portal.Desktop'";

using Clock = std::chrono::steady_clock;

Failure portalFailure(const std::string &why)
{
    return {ExitStatus::PortalFailed, "the desktop has not taken a picture: " + why};
}

Failure noSessionBus(const std::string &why)
{
    return {
        ExitStatus::NoSessionBus,
        "Quellora does not run, and there is no session bus to ask the desktop for a picture: " +
            why};
}

Failure brokenBus(int result)
{
    return portalFailure(std::string("the session bus: ") + std::strerror(-result));
}

Failure timeOver()
{
    return portalFailure("it does not answer in time");
}

/// The functions of the bus library that are used here, under their names without "sd_bus_".
class BusLibrary
{
    // Never unloaded.
    void *m_handle = ::dlopen(busLibrary, RTLD_NOW | RTLD_LOCAL);
    bool m_isComplete = m_handle != nullptr;

    template <typename Function>
    Function symbol(const char *name)
    {
        void *address = m_handle ? ::dlsym(m_handle, name) : nullptr;
        m_isComplete = m_isComplete && address;
        return reinterpret_cast<Function>(address);
    }

public:
// NOLINTBEGIN(bugprone-macro-parentheses): a name that is declared
#define BUS_FUNCTION(name)                                                                         \
    decltype(&sd_bus_##name) name = symbol<decltype(&sd_bus_##name)>("sd_bus_" #name)
    // NOLINTEND(bugprone-macro-parentheses)
    BUS_FUNCTION(open_user);
    BUS_FUNCTION(is_ready);
    BUS_FUNCTION(close_unref);
    BUS_FUNCTION(process);
    BUS_FUNCTION(wait);
    BUS_FUNCTION(call);
    BUS_FUNCTION(error_free);
    BUS_FUNCTION(message_new_method_call);
    BUS_FUNCTION(message_append);
    BUS_FUNCTION(message_unref);
    BUS_FUNCTION(message_read);
    BUS_FUNCTION(message_skip);
    BUS_FUNCTION(message_enter_container);
    BUS_FUNCTION(message_exit_container);
    BUS_FUNCTION(message_has_signature);
    BUS_FUNCTION(message_is_signal);
    BUS_FUNCTION(message_get_path);
    BUS_FUNCTION(message_get_sender);
#undef BUS_FUNCTION

    bool isComplete() const
    {
        return m_isComplete;
    }
};

class Question
{
public:
    Question(const BusLibrary &library, std::chrono::milliseconds limit)
        : m_library(library), m_end(Clock::now() + limit)
    {}
    ~Question()
    {
        // Also withdraws a request that is under way.
        m_library.close_unref(m_bus);
    }
    Question(const Question &) = delete;
    Question &operator=(const Question &) = delete;

    tl::expected<PortalAnswer, Failure> ask()
    {
        if (auto connected = connect(); !connected)
            return tl::unexpected(connected.error());
        for (const char *rule : {responseRule, ownerRule}) {
            if (auto added = subscribe(rule); !added)
                return tl::unexpected(added.error());
        }
        PortalAnswer answer{{}, fileTime()};
        if (auto sent = request(); !sent)
            return tl::unexpected(sent.error());
        auto uri = response();
        if (!uri)
            return tl::unexpected(uri.error());
        answer.uri = *std::move(uri);
        return answer;
    }

private:
    struct Unref
    {
        const BusLibrary &library;
        void operator()(sd_bus_message *message) const { library.message_unref(message); }
    };
    using Message = std::unique_ptr<sd_bus_message, Unref>;

    Message own(sd_bus_message *message) const { return Message(message, Unref{m_library}); }

    /// Microseconds that are left; never 0, which stands for the library's own limit.
    std::uint64_t left() const
    {
        const auto time =
            std::chrono::duration_cast<std::chrono::microseconds>(m_end - Clock::now());
        return static_cast<std::uint64_t>(std::max<std::int64_t>(time.count(), 1));
    }
    bool isOver() const { return Clock::now() >= m_end; }

    /// Does one step of the connection's work, or waits for some.
    /// @return a message, or none
    tl::expected<Message, Failure> next()
    {
        sd_bus_message *message = nullptr;
        const int done = m_library.process(m_bus, &message);
        if (done < 0)
            return tl::unexpected(brokenBus(done));
        if (done == 0) {
            if (isOver())
                return tl::unexpected(timeOver());
            if (const int waited = m_library.wait(m_bus, left()); waited < 0 && waited != -EINTR)
                return tl::unexpected(brokenBus(waited));
        }
        return own(message);
    }

    tl::expected<void, Failure> connect()
    {
        if (const int opened = m_library.open_user(&m_bus); opened < 0)
            return tl::unexpected(noSessionBus(std::strerror(-opened)));
        for (;;) {
            const int ready = m_library.is_ready(m_bus);
            if (ready > 0)
                return {};
            if (ready < 0 || !next())
                return tl::unexpected(
                    noSessionBus(isOver() ? "it does not answer in time" : "the connection fails"));
        }
    }

    /// Calls a method and waits for its reply.
    /// @param fill appends the arguments; a negative result stands for lack of memory
    /// @return PortalFailed, or NoPortal if nobody offers the method
    template <typename Fill>
    tl::expected<Message, Failure> call(const char *service, const char *path,
                                        const char *interface, const char *method, Fill fill)
    {
        sd_bus_message *created = nullptr;
        if (const int result = m_library.message_new_method_call(m_bus, &created, service, path,
                                                                 interface, method);
            result < 0)
            return tl::unexpected(brokenBus(result));
        const Message message = own(created);
        if (const int result = fill(message.get()); result < 0)
            return tl::unexpected(brokenBus(result));
        sd_bus_error error = SD_BUS_ERROR_NULL;
        sd_bus_message *reply = nullptr;
        const int result = m_library.call(m_bus, message.get(), left(), &error, &reply);
        if (result >= 0)
            return own(reply);
        const std::string name = error.name ? error.name : "";
        const std::string text = error.message ? error.message : std::strerror(-result);
        m_library.error_free(&error);
        if (isOver())
            return tl::unexpected(timeOver());
        constexpr std::array missing{
            "org.freedesktop.DBus.Error.ServiceUnknown"sv,
            "org.freedesktop.DBus.Error.NameHasNoOwner"sv,
            "org.freedesktop.DBus.Error.UnknownObject"sv,
            "org.freedesktop.DBus.Error.UnknownInterface"sv,
            "org.freedesktop.DBus.Error.UnknownMethod"sv,
        };
        if (std::ranges::find(missing, name) != missing.end() ||
            name.starts_with("org.freedesktop.DBus.Error.Spawn."))
            return tl::unexpected(
                Failure{ExitStatus::NoPortal, "Quellora does not run, and the desktop has no "
                                              "Screenshot portal: " +
                                                  text});
        return tl::unexpected(portalFailure(text));
    }

    tl::expected<void, Failure> subscribe(const char *rule)
    {
        return call(busName, busPath, busName, "AddMatch",
                    [&](sd_bus_message *message) {
                        return m_library.message_append(message, "s", rule);
                    })
            .map([](const Message &) {});
    }

    tl::expected<void, Failure> request()
    {
        const std::string token = "quellora_" + std::to_string(::getpid());
        const auto reply =
            call(portalName, portalPath, screenshotInterface, "Screenshot",
                 [&](sd_bus_message *message) {
                     // No parent window.
                     return m_library.message_append(message, "sa{sv}", "", 2, "handle_token", "s",
                                                     token.c_str(), "interactive", "b", 0);
                 });
        if (!reply)
            return tl::unexpected(reply.error());
        const char *handle = nullptr;
        if (m_library.message_read(reply->get(), "o", &handle) < 0)
            return tl::unexpected(portalFailure("its reply is malformed"));
        m_handle = handle;
        const char *owner = m_library.message_get_sender(reply->get());
        m_owner = owner ? owner : "";
        return {};
    }

    tl::expected<std::string, Failure> response()
    {
        for (;;) {
            const auto message = next();
            if (!message)
                return tl::unexpected(message.error());
            if (!*message)
                continue;
            if (isResponse(message->get()))
                return readResponse(message->get());
            if (isEnd(message->get()))
                return tl::unexpected(portalFailure("its portal has ended"));
        }
    }

    bool isResponse(sd_bus_message *message) const
    {
        const char *path = m_library.message_get_path(message);
        const char *sender = m_library.message_get_sender(message);
        return m_library.message_is_signal(message, requestInterface, "Response") > 0 && path &&
               sender && path == m_handle && sender == m_owner;
    }

    bool isEnd(sd_bus_message *message) const
    {
        const char *sender = m_library.message_get_sender(message);
        const char *name = nullptr;
        const char *before = nullptr;
        const char *after = nullptr;
        return m_library.message_is_signal(message, busName, "NameOwnerChanged") > 0 && sender &&
               sender == std::string_view(busName) &&
               m_library.message_read(message, "sss", &name, &before, &after) > 0 &&
               before == m_owner;
    }

    tl::expected<std::string, Failure> readResponse(sd_bus_message *message) const
    {
        constexpr std::uint32_t done = 0;
        constexpr std::uint32_t cancelled = 1;
        const auto malformed = [] {
            return tl::unexpected(portalFailure("its response is malformed"));
        };
        std::uint32_t code = 0;
        if (m_library.message_has_signature(message, "ua{sv}") <= 0 ||
            m_library.message_read(message, "u", &code) < 0)
            return malformed();
        if (code == cancelled)
            return tl::unexpected(Failure{ExitStatus::Refused,
                                          "the desktop or its user does not permit the picture"});
        if (code != done)
            // GNOME's portal does not tell apart a refusal that it has stored.
            return tl::unexpected(
                portalFailure("the portal ended the request with code " + std::to_string(code) +
                              "; it has failed, or the user has refused earlier"));
        if (m_library.message_enter_container(message, 'a', "{sv}") < 0)
            return malformed();
        while (m_library.message_enter_container(message, 'e', "sv") > 0) {
            const char *key = nullptr;
            if (m_library.message_read(message, "s", &key) < 0)
                return malformed();
            if (key == "uri"sv) {
                const char *uri = nullptr;
                if (m_library.message_read(message, "v", "s", &uri) < 0)
                    return malformed();
                return uri;
            }
            if (m_library.message_skip(message, "v") < 0 ||
                m_library.message_exit_container(message) < 0)
                return malformed();
        }
        return tl::unexpected(portalFailure("its response names no picture"));
    }

    const BusLibrary &m_library;
    const Clock::time_point m_end;
    sd_bus *m_bus = nullptr;
    /// The request's path.
    std::string m_handle;
    /// The portal's unique name on the bus.
    std::string m_owner;
};

} // namespace

tl::expected<PortalAnswer, Failure> askScreenshotPortal(std::chrono::milliseconds limit)
{
    const BusLibrary library;
    if (!library.isComplete())
        return tl::unexpected(noSessionBus(std::string(busLibrary) + " cannot be loaded"));
    return Question(library, limit).ask();
}

} // namespace quellora::screencapture
