#include "DamageProtocol.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <sys/uio.h>

namespace quellora::screencapture {

xcb_extension_t damageExtension = {"DAMAGE", 0};

namespace {

constexpr std::uint8_t queryVersionOpcode = 0;
constexpr std::uint8_t createOpcode = 1;
constexpr std::uint8_t reportRawRectangles = 0;

/// Opcodes and length are filled in by xcb.
struct QueryVersionRequest
{
    std::uint8_t majorOpcode = 0;
    std::uint8_t minorOpcode = 0;
    std::uint16_t length = 0;
    std::uint32_t majorVersion = 1;
    std::uint32_t minorVersion = 1;
};
static_assert(sizeof(QueryVersionRequest) == 12);

struct CreateRequest
{
    std::uint8_t majorOpcode = 0;
    std::uint8_t minorOpcode = 0;
    std::uint16_t length = 0;
    std::uint32_t damage = 0;
    std::uint32_t drawable = 0;
    std::uint8_t level = reportRawRectangles;
    std::array<std::uint8_t, 3> padding{};
};
static_assert(sizeof(CreateRequest) == 16);

struct NotifyEvent
{
    std::uint8_t type;
    std::uint8_t level;
    std::uint16_t sequence;
    std::uint32_t drawable;
    std::uint32_t damage;
    std::uint32_t timestamp;
    xcb_rectangle_t area;
    xcb_rectangle_t geometry;
};
static_assert(sizeof(NotifyEvent) == 32);

template <typename Request>
unsigned int send(xcb_connection_t *connection, Request &request, std::uint8_t opcode,
                  bool hasReply)
{
    // xcb wants two unused entries in front of the data.
    std::array<iovec, 3> parts{};
    parts[2] = {&request, sizeof request};
    const xcb_protocol_request_t protocol{1, &damageExtension, opcode,
                                          static_cast<std::uint8_t>(hasReply ? 0 : 1)};
    return xcb_send_request(connection, hasReply ? XCB_REQUEST_CHECKED : 0, &parts[2], &protocol);
}

} // namespace

bool negotiateDamage(xcb_connection_t *connection)
{
    QueryVersionRequest request;
    const unsigned int sequence = send(connection, request, queryVersionOpcode, true);
    xcb_generic_error_t *error = nullptr;
    void *reply = xcb_wait_for_reply(connection, sequence, &error);
    const bool answered = reply != nullptr;
    std::free(reply);
    std::free(error);
    return answered;
}

void watchDamage(xcb_connection_t *connection, xcb_window_t window)
{
    CreateRequest request;
    request.damage = xcb_generate_id(connection);
    request.drawable = window;
    send(connection, request, createOpcode, false);
}

std::optional<DamageEvent> damageFromEvent(xcb_connection_t *connection,
                                           const xcb_generic_event_t &event)
{
    const xcb_query_extension_reply_t *extension =
        xcb_get_extension_data(connection, &damageExtension);
    if (extension == nullptr || (event.response_type & 0x7f) != extension->first_event)
        return std::nullopt;
    NotifyEvent notify;
    std::memcpy(&notify, &event, sizeof notify);
    return DamageEvent{notify.drawable,
                       {notify.area.x, notify.area.y, notify.area.width, notify.area.height}};
}

} // namespace quellora::screencapture
