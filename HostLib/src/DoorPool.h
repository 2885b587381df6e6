#pragma once

#include "Export.h"
#include "Mutex.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace Kesa::Host
{

struct DoorConnection;

/// The threads that handle requests, and the connections that wait for one of them. The caps of the front door bound
/// how many can wait. A thread is added when a request finds none free, up to the bound, and stays.
///
/// Threads:  submit() from any thread; start() and stop() from one at a time. Jobs run on the pool's own threads.
/// Shutdown: stop() (idempotent) waits for running jobs and drops the connections that still wait; the destructor calls
/// it.
class KESA_API DoorPool
{
public:
    typedef std::unique_ptr<DoorConnection> Connection;
    typedef std::function<void(Connection)> Job;

    /// `job` must not raise.
    explicit DoorPool(Job job): m_job(std::move(job)) {}
    ~DoorPool();
    DoorPool(const DoorPool&) = delete;
    DoorPool& operator=(const DoorPool&) = delete;

    /// Starts the first thread of so many at most.
    void start(unsigned threads);
    /// Hands a connection with a whole request to the next free thread. Dropped after stop().
    void submit(Connection connection);
    /// True if nobody waits for a thread, and half of the threads that there may be are enough for those at work: then
    /// one of these may look after a single client for a moment.
    bool isCalm() const;
    void stop();

private:
    void addThread() KESA_REQUIRES(m_mutex);
    void run();
    Connection next();

    const Job m_job;
    mutable Kesa::Util::FastMutex m_mutex;
    std::condition_variable_any m_hasWork;
    std::vector<std::thread> m_threads KESA_GUARDED_BY(m_mutex);
    std::size_t m_maxThreads KESA_GUARDED_BY(m_mutex) = 0;
    std::size_t m_free KESA_GUARDED_BY(m_mutex) = 0; ///< threads that wait for work
    std::deque<Connection> m_queue KESA_GUARDED_BY(m_mutex);
    bool m_isStopping KESA_GUARDED_BY(m_mutex) = false;
};

} // namespace Kesa::Host
