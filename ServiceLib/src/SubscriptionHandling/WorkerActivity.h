#pragma once

#include <Mutex.h>

#include <Poco/Condition.h>
#include <Poco/Runnable.h>

#include <functional>

namespace Kesa::Service
{

/// A function that runs on a thread of Poco::ThreadPool::defaultPool() until it is told to stop. Unlike Poco::Activity
/// it touches nothing of its own once wait() has returned, and it may be started again as soon as its body has said
/// that it ends.
///
/// Threads:  every operation from any thread.
/// Shutdown: stop(), wake the body, wait(). Not from the body.
class WorkerActivity: private Poco::Runnable
{
public:
    explicit WorkerActivity(std::function<void()> body);
    ~WorkerActivity() override;
    WorkerActivity(const WorkerActivity&) = delete;
    WorkerActivity& operator=(const WorkerActivity&) = delete;

    /// Starts the body. Raises Poco::NoThreadAvailableException when the pool has no thread; nothing has changed then.
    void start();
    /// Tells the body to end.
    void stop();
    /// Waits until no body is running.
    void wait();
    /// Called by the body as its last decision: from here on the activity counts as not running and may be started
    /// again.
    void ending();

    bool isRunning() const;
    /// True before the first start and after stop().
    bool isStopped() const;

private:
    void run() override;

    const std::function<void()> m_body;
    mutable Util::FastMutex m_mutex;
    Poco::Condition m_ended; ///< signalled when a thread leaves run()
    bool m_running KESA_GUARDED_BY(m_mutex);
    bool m_stopped KESA_GUARDED_BY(m_mutex);
    int m_threads
        KESA_GUARDED_BY(m_mutex); ///< threads inside run(); two for a moment when a body is followed by the next
};

} // namespace Kesa::Service
