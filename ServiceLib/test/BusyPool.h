#pragma once

#include <Poco/Event.h>
#include <Poco/Runnable.h>
#include <Poco/Thread.h>
#include <Poco/ThreadPool.h>

#include <atomic>

namespace Kesa::Test
{

/// Takes all threads of the default pool for its own lifetime.
class BusyPool: private Poco::Runnable
{
public:
    BusyPool(): m_end(Poco::Event::EVENT_MANUALRESET)
    {
        for (Poco::ThreadPool& pool = Poco::ThreadPool::defaultPool(); pool.available() > 0;)
        {
            ++m_inside;
            pool.start(*this);
        }
    }
    ~BusyPool() override
    {
        m_end.set();
        while (m_inside > 0 || Poco::ThreadPool::defaultPool().available() == 0)
            Poco::Thread::yield();
    }
    BusyPool(const BusyPool&) = delete;
    BusyPool& operator=(const BusyPool&) = delete;

private:
    void run() override
    {
        m_end.wait();
        --m_inside; // the last touch of this object
    }

    Poco::Event m_end;
    std::atomic<int> m_inside{0};
};

} // namespace Kesa::Test
