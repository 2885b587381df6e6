#pragma once

#include "WorkerActivity.h"

#include <Export.h>
#include <Mutex.h>

#include <Poco/Event.h>
#include <Poco/SharedPtr.h>

#include <deque>
#include <map>
#include <unordered_set>

namespace Kesa::Service
{

class SubscriptionObject;

/// The one worker of a subscription manager: keeps the registered subscriptions alive, holds a queue of those that want
/// a delivery attempt, and sleeps for as long as none of them can send.
///
/// Ownership: owns a share of each registered subscription. Addresses in the queue are used only after they were looked
/// up. Threads:   every operation from any thread. The worker starts with the first scheduled subscription, on
///            Poco::ThreadPool::defaultPool(), and holds no lock while it delivers. Lock order: a subscription's own
///            mutex before m_mutex.
/// Errors:    an exception of a delivery is logged; that subscription leaves the queue until it is scheduled again.
/// Shutdown:  clear(), then the destructor, which waits for the worker. Not from the worker.
class KESA_API SubscriptionUpdater
{
public:
    typedef Poco::SharedPtr<SubscriptionObject> SubscriptionObjectPtr;

    SubscriptionUpdater();
    ~SubscriptionUpdater();
    SubscriptionUpdater(const SubscriptionUpdater&) = delete;
    SubscriptionUpdater& operator=(const SubscriptionUpdater&) = delete;

    /// Registers a subscription and becomes its scheduler. Nothing for an empty pointer, and while shutting down.
    void add(SubscriptionObjectPtr subscription);
    /// Lets go of a subscription.
    void remove(SubscriptionObjectPtr subscription);
    /// Lets go of all.
    void clear();
    /// Queues a registered subscription for an attempt, once, and wakes the worker.
    void schedule(const SubscriptionObject* subscription);

private:
    typedef std::map<const SubscriptionObject*, SubscriptionObjectPtr> SubscriptionContainer;
    typedef std::deque<const SubscriptionObject*> ScheduledSubscriptions;

    void addToSchedule(const SubscriptionObject* subscription) KESA_REQUIRES(m_mutex);
    void startWorker() KESA_REQUIRES(m_mutex);
    bool isShuttingDown() const;

    void processSchedule();
    void runPasses();
    /// One pass over the queue; the time in ms until the next one.
    long processPass(long idleTime);
    /// Attempts the subscription at the front of `working`; lowers `idleTime` to what it asks for. True when it sent
    /// something or left the queue.
    bool processFront(ScheduledSubscriptions& working, long& idleTime);
    bool attempt(SubscriptionObject& subscription, long& idleTime);
    void keepScheduled(SubscriptionObject& subscription, long& idleTime);
    SubscriptionObjectPtr takeFront(ScheduledSubscriptions& working);

    Util::Mutex m_mutex;        ///< recursive
    Poco::Event m_checkUpdates; ///< auto-reset; wakes the worker
    SubscriptionContainer m_registeredSubscriptions KESA_GUARDED_BY(m_mutex);
    ScheduledSubscriptions m_schedule KESA_GUARDED_BY(m_mutex); ///< in order of request, each at most once
    std::unordered_set<const SubscriptionObject*> m_queued KESA_GUARDED_BY(m_mutex); ///< the members of m_schedule
    int m_fruitlessPasses;         ///< in a row, without a wait; only the worker
    WorkerActivity scheduleWorker; // last, so that the worker ends before anything else goes
};

} // namespace Kesa::Service
