#include "DoorPool.h"

#include "DoorConnection.h"
#include "LibraryThread.h"
#include "LogStream.h"

#include <algorithm>
#include <chrono>
#include <iterator>
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
    while (m_threads.size() < std::min(threads, KEPT_THREADS))
        addThread();
}

void DoorPool::addThread()
{
    for (std::thread& ended: m_ended)
        ended.join(); // at once: it needs nothing any more
    m_ended.clear();
    m_threads.emplace_back([this] { run(); });
}

bool DoorPool::needsThread() const
{
    return m_queue.size() > m_free && m_threads.size() < m_maxThreads;
}

void DoorPool::submit(Connection connection)
{
    ScopedLock<FastMutex> lock(m_mutex);
    if (m_isStopping)
        return;
    m_queue.push_back(std::move(connection));
    m_hasWork.notify_one();
    try
    {
        if (needsThread())
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
        std::move(m_ended.begin(), m_ended.end(), std::back_inserter(threads));
        m_ended.clear();
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
    if (!waitForWork(lock))
        return nullptr;
    Connection connection = std::move(m_queue.front());
    m_queue.pop_front();
    return connection;
}

/// False if there is none and the thread has to end.
bool DoorPool::waitForWork(ScopedLock<FastMutex>& lock)
{
    ++m_free;
    bool isTooLong = false;
    while (m_queue.empty() && !m_isStopping && !isTooLong)
        isTooLong = m_hasWork.wait_for(lock, std::chrono::milliseconds(IDLE_TIME)) == std::cv_status::timeout &&
                    m_threads.size() > KEPT_THREADS;
    --m_free;
    if (m_isStopping)
        return false;
    if (m_queue.empty())
        leave();
    return !m_queue.empty();
}

/// Takes the thread that calls out of the pool.
void DoorPool::leave()
{
    const auto own =
        std::find_if(m_threads.begin(), m_threads.end(),
                     [](const std::thread& thread) { return thread.get_id() == std::this_thread::get_id(); });
    m_ended.push_back(std::move(*own));
    m_threads.erase(own);
}

} // namespace Kesa::Host
