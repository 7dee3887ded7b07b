#include "model/EventLoop.h"

#include "model/Transfers.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include <future>

namespace quellora::server {

EventLoop::EventLoop()
    : m_context(std::make_unique<boost::asio::io_context>(1))
    , m_transfers(std::make_unique<Transfers>(*m_context))
{
    m_thread = std::thread([this] {
        const auto guard = boost::asio::make_work_guard(*m_context);
        m_context->run();
    });
}

EventLoop::~EventLoop()
{
    stop();
    m_transfers.reset();
}

void EventLoop::stop()
{
    m_context->stop();
    if (m_thread.joinable())
        m_thread.join();
}

void EventLoop::post(std::function<void()> task)
{
    boost::asio::post(*m_context, std::move(task));
}

void EventLoop::postAndWait(const std::function<void()> &task)
{
    std::promise<void> done;
    post([&] {
        task();
        done.set_value();
    });
    done.get_future().wait();
}

EventLoops::EventLoops(std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        m_loops.push_back(std::make_unique<EventLoop>());
}

EventLoop &EventLoops::next()
{
    return *m_loops[m_next++ % m_loops.size()];
}

void EventLoops::stop()
{
    for (const auto &loop : m_loops)
        loop->stop();
}

} // namespace quellora::server
