#include "model/EventStreamReader.h"

#include <utility>

namespace quellora::server {
namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

} // namespace

EventStreamReader::EventStreamReader(Handler handler, std::size_t maxEventBytes)
    : m_handler(std::move(handler)), m_maxEventBytes(maxEventBytes)
{}

bool EventStreamReader::feed(std::string_view bytes)
{
    while (!bytes.empty()) {
        if (m_afterCarriageReturn && bytes.front() == '\n') {
            bytes.remove_prefix(1);
            m_afterCarriageReturn = false;
            continue;
        }
        m_afterCarriageReturn = false;
        const std::size_t end = bytes.find_first_of("\r\n");
        m_line.append(bytes.substr(0, end));
        if (m_line.size() + m_data.size() > m_maxEventBytes)
            return false;
        if (end == std::string_view::npos)
            return true;
        m_afterCarriageReturn = bytes[end] == '\r';
        bytes.remove_prefix(end + 1);
        if (!endLine())
            return false;
    }
    return true;
}

bool EventStreamReader::endLine()
{
    std::string line;
    line.swap(m_line);
    std::string_view view = line;
    if (std::exchange(m_isFirstLine, false) && view.starts_with(byteOrderMark))
        view.remove_prefix(byteOrderMark.size());
    if (view.empty())
        return dispatch();
    if (view.rfind("data:", 0) != 0)
        return true;
    view.remove_prefix(5);
    if (!view.empty() && view.front() == ' ')
        view.remove_prefix(1);
    if (m_hasData)
        m_data += '\n';
    m_data += view;
    m_hasData = true;
    return true;
}

bool EventStreamReader::dispatch()
{
    if (!m_hasData)
        return true;
    std::string data;
    data.swap(m_data);
    m_hasData = false;
    return m_handler(data);
}

bool EventStreamReader::finish()
{
    if (!m_line.empty() && !endLine())
        return false;
    return dispatch();
}

} // namespace quellora::server
