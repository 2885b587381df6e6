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
/// how many can wait. A thread is added when a request finds none free, and goes when it has been free for a while.
///
/// Threads:  submit() from any thread; start() and stop() from one at a time. Jobs run on the pool's own threads.
/// Shutdown: stop() (idempotent) waits for running jobs and drops the connections that still wait; the destructor calls
/// it.
class KESA_API DoorPool
{
public:
    typedef std::unique_ptr<DoorConnection> Connection;
    typedef std::function<void(Connection)> Job;

    static constexpr unsigned KEPT_THREADS = 8; ///< stay, however long they are free: enough for quick handlers
    static constexpr long IDLE_TIME = 2000;     ///< ms after which any other thread that is free goes

    /// `job` must not raise.
    explicit DoorPool(Job job): m_job(std::move(job)) {}
    ~DoorPool();
    DoorPool(const DoorPool&) = delete;
    DoorPool& operator=(const DoorPool&) = delete;

    /// Starts the threads that stay; at most so many there will be in all.
    void start(unsigned threads);
    /// Hands a connection with a whole request to the next free thread. Dropped after stop().
    void submit(Connection connection);
    /// True if nobody waits for a thread, and half of the threads that there may be are enough for those at work: then
    /// one of these may look after a single client for a moment.
    bool isCalm() const;
    void stop();

private:
    void addThread() KESA_REQUIRES(m_mutex);
    bool needsThread() const KESA_REQUIRES(m_mutex);
    void run();
    /// Null when the thread that calls has to end.
    Connection next();
    bool waitForWork(Kesa::Util::ScopedLock<Kesa::Util::FastMutex>& lock) KESA_REQUIRES(m_mutex);
    void leave() KESA_REQUIRES(m_mutex);

    const Job m_job;
    mutable Kesa::Util::FastMutex m_mutex;
    std::condition_variable_any m_hasWork;
    std::vector<std::thread> m_threads KESA_GUARDED_BY(m_mutex);
    std::vector<std::thread> m_ended KESA_GUARDED_BY(m_mutex); ///< that went by themselves, to be joined
    std::size_t m_maxThreads KESA_GUARDED_BY(m_mutex) = 0;
    std::size_t m_free KESA_GUARDED_BY(m_mutex) = 0; ///< threads that wait for work
    std::deque<Connection> m_queue KESA_GUARDED_BY(m_mutex);
    bool m_isStopping KESA_GUARDED_BY(m_mutex) = false;
};

} // namespace Kesa::Host
