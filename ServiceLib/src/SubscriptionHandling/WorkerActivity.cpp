#include "WorkerActivity.h"

#include <LibraryThread.h>

#include <Poco/ThreadPool.h>

namespace Kesa::Service
{

using Util::FastMutex;
using Util::ScopedLock;

WorkerActivity::WorkerActivity(std::function<void()> body)
    : m_body(std::move(body)), m_running(false), m_stopped(true), m_threads(0)
{
}

WorkerActivity::~WorkerActivity()
{
    stop();
    wait();
}

void WorkerActivity::start()
{
    ScopedLock<FastMutex> lock(m_mutex);
    if (m_running)
        return;
    // Under the lock, so that the body cannot end before it counts as running.
    Poco::ThreadPool::defaultPool().start(*this);
    m_running = true;
    m_stopped = false;
    ++m_threads;
}

void WorkerActivity::stop()
{
    ScopedLock<FastMutex> lock(m_mutex);
    m_stopped = true;
}

void WorkerActivity::wait()
{
    ScopedLock<FastMutex> lock(m_mutex);
    while (m_threads > 0)
        m_ended.wait(static_cast<Poco::FastMutex&>(m_mutex));
}

void WorkerActivity::ending()
{
    ScopedLock<FastMutex> lock(m_mutex);
    m_running = false;
}

bool WorkerActivity::isRunning() const
{
    ScopedLock<FastMutex> lock(m_mutex);
    return m_running;
}

bool WorkerActivity::isStopped() const
{
    ScopedLock<FastMutex> lock(m_mutex);
    return m_stopped;
}

void WorkerActivity::run()
{
    {
        ScopedLock<FastMutex> lock(m_mutex); // waits for start() to have done its bookkeeping
    }
    {
        Util::LibraryThread mark;
        m_body();
    }
    // Last touch of this object: whoever waits may destroy it as soon as the lock is free.
    ScopedLock<FastMutex> lock(m_mutex);
    --m_threads;
    m_ended.broadcast();
}

} // namespace Kesa::Service
