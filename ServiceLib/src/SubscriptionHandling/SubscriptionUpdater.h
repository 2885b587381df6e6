#pragma once

#include "WorkerActivity.h"

#include <Export.h>
#include <Mutex.h>

#include <Poco/Clock.h>
#include <Poco/Event.h>
#include <Poco/SharedPtr.h>
#include <Poco/Types.h>

#include <deque>
#include <map>
#include <unordered_set>

namespace Kesa::Service
{

class SubscriptionObject;

/// The one worker of a subscription manager: keeps the registered subscriptions alive, holds a queue of those that want
/// a delivery attempt, and sleeps for as long as none of them can send.
///
/// Ownership: owns a share of each registered subscription. Addresses in the queue are used only after they were
///            looked up.
/// Threads:   every operation from any thread. The worker starts with the first scheduled subscription, on
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

    /// A queued subscription that has nothing to do before a moment of the clock.
    struct Resting
    {
        const SubscriptionObject* subscription;
        Poco::Clock until;
    };

    void addToSchedule(const SubscriptionObject* subscription) KESA_REQUIRES(m_mutex);
    void startWorker() KESA_REQUIRES(m_mutex);
    bool isShuttingDown() const;

    void processSchedule();
    void runPasses();
    /// Waits up to `idleTime` ms for a request and makes one pass over the queue. True when it sent something;
    /// `idleTime` becomes the wait of the next pass.
    bool processPass(long& idleTime);
    ScheduledSubscriptions takeQueue(bool signalled);
    void takeRested(ScheduledSubscriptions& working) KESA_REQUIRES(m_mutex);
    /// Attempts the subscription at the front of `working`; lowers `idleTime` to what it asks for. True when it sent
    /// something.
    bool processFront(ScheduledSubscriptions& working, long& idleTime);
    SubscriptionObjectPtr takeFront(ScheduledSubscriptions& working);
    void attempt(SubscriptionObject& subscription, long& idleTime);
    void keepScheduled(SubscriptionObject& subscription, long& idleTime);
    /// True when the subscription rests until its time has come; the worker's passes leave it alone until then.
    bool rest(const SubscriptionObject& subscription) KESA_EXCLUDES(m_mutex);
    long timeUntilRested() const;

    Util::Mutex m_mutex;        ///< recursive
    Poco::Event m_checkUpdates; ///< auto-reset; wakes the worker
    SubscriptionContainer m_registeredSubscriptions KESA_GUARDED_BY(m_mutex);
    ScheduledSubscriptions m_schedule KESA_GUARDED_BY(m_mutex); ///< in order of request, each at most once
    std::unordered_set<const SubscriptionObject*> m_queued KESA_GUARDED_BY(m_mutex); ///< the members of m_schedule
    /// Queued too, but apart, so that a pass costs nothing for those that are not due; by the subscriptions' numbers.
    std::map<Poco::UInt64, Resting> m_resting KESA_GUARDED_BY(m_mutex);
    Poco::Clock m_firstRestEnds;   ///< no resting subscription is due before; only the worker
    WorkerActivity scheduleWorker; // last, so that the worker ends before anything else goes
};

} // namespace Kesa::Service
