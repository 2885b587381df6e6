#include "DoorPool.h"

#include "DoorConnection.h"
#include "LibraryThread.h"
#include "LogStream.h"

#include <system_error>

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
    ScopedLock<FastMutex> lock(m_mutex);
    m_maxThreads = threads;
    addThread();
}

void DoorPool::addThread()
{
    m_threads.emplace_back([this] { run(); });
}

void DoorPool::submit(Connection connection)
{
    ScopedLock<FastMutex> lock(m_mutex);
    if (m_isStopping)
        return;
    m_queue.push_back(std::move(connection));
    m_hasWork.notify_one();
    if (m_queue.size() <= m_free || m_threads.size() >= m_maxThreads)
        return;
    try
    {
        addThread();
    }
    catch (const std::system_error& error) // the threads that there are go on
    {
        KESA_LOG_ERROR("The front door gets no further thread, requests wait for its " << m_threads.size() << ": "
                                                                                       << error.what());
    }
}

bool DoorPool::isCalm() const
{
    ScopedLock<FastMutex> lock(m_mutex);
    return m_queue.empty() && !m_isStopping && 2 * (m_threads.size() - m_free) <= m_maxThreads;
}

void DoorPool::stop()
{
    std::deque<Connection> dropped;
    std::vector<std::thread> threads;
    {
        ScopedLock<FastMutex> lock(m_mutex);
        m_isStopping = true;
        dropped.swap(m_queue);
        threads.swap(m_threads);
        m_hasWork.notify_all();
    }
    for (std::thread& thread: threads)
        thread.join();
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
    ++m_free;
    while (m_queue.empty() && !m_isStopping)
        m_hasWork.wait(lock);
    --m_free;
    if (m_isStopping)
        return nullptr;
    Connection connection = std::move(m_queue.front());
    m_queue.pop_front();
    return connection;
}

} // namespace Kesa::Host
