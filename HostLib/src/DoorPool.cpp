#include "DoorPool.h"

#include "DoorConnection.h"
#include "LibraryThread.h"

namespace Kesa::Host
{

using Kesa::Util::FastMutex;
using Kesa::Util::ScopedLock;

DoorPool::~DoorPool()
{
    stop();
}

void DoorPool::start(unsigned threads)
{
    for (unsigned i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { run(); });
}

void DoorPool::submit(Connection connection)
{
    ScopedLock<FastMutex> lock(m_mutex);
    if (m_isStopping)
        return;
    m_queue.push_back(std::move(connection));
    m_hasWork.notify_one();
}

void DoorPool::stop()
{
    std::deque<Connection> dropped;
    {
        ScopedLock<FastMutex> lock(m_mutex);
        m_isStopping = true;
        dropped.swap(m_queue);
        m_hasWork.notify_all();
    }
    for (std::thread& thread: m_threads)
        thread.join();
    m_threads.clear();
}

void DoorPool::run()
{
    Kesa::Util::LibraryThread mark;
    while (Connection connection = next())
        m_job(std::move(connection));
}

DoorPool::Connection DoorPool::next()
{
    ScopedLock<FastMutex> lock(m_mutex);
    while (m_queue.empty() && !m_isStopping)
        m_hasWork.wait(lock);
    if (m_isStopping)
        return nullptr;
    Connection connection = std::move(m_queue.front());
    m_queue.pop_front();
    return connection;
}

} // namespace Kesa::Host
