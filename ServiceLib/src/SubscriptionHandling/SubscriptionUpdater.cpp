#include "SubscriptionUpdater.h"

#include "LibraryCall.h"
#include "SubscriptionObject.h"

#include <DebugUtils.h>
#include <LogStream.h>
#include <Time/Now.h>

#include <Poco/Bugcheck.h>
#include <Poco/Exception.h>
#include <Poco/Thread.h>

#include <algorithm>

namespace Kesa::Service
{

using Util::Mutex;
using Util::ScopedLock;

namespace
{
constexpr long MAX_IDLE_TIME_MS = 5000;    ///< the longest wait of the worker
constexpr int MAX_FRUITLESS_PASSES = 1000; ///< so many passes in a row that sent nothing, and the worker slows down
constexpr long FRUITLESS_WAIT_MS = 1;      ///< after each further one

const Poco::Clock NEVER(Poco::Clock::CLOCKVAL_MAX);

/// Each visit of a queued subscription says so in the log, so with these lines wanted none may be left out.
bool isEachVisitLogged()
{
    return Logging::Log::IsLogLevelActive(Poco::Message::PRIO_DEBUG);
}
} // namespace

SubscriptionUpdater::SubscriptionUpdater()
    : m_checkUpdates(Poco::Event::EVENT_AUTORESET),
      m_firstRestEnds(NEVER),
      scheduleWorker([this] { processSchedule(); })
{
}

SubscriptionUpdater::~SubscriptionUpdater()
{
    KESA_LOG_TRACE("SubscriptionUpdater::dtor");
    SubscriptionContainer released; // the subscriptions' destructors run after the lock is free
    {
        ScopedLock<Mutex> lock(m_mutex);
        released.swap(m_registeredSubscriptions);
        scheduleWorker.stop();
        m_checkUpdates.set();
    }
    scheduleWorker.wait();
}

bool SubscriptionUpdater::isShuttingDown() const
{
    return scheduleWorker.isRunning() && scheduleWorker.isStopped();
}

void SubscriptionUpdater::add(SubscriptionObjectPtr subscription)
{
    if (subscription.isNull())
        return;
    {
        ScopedLock<Mutex> lock(m_mutex);
        if (isShuttingDown())
            return;
        m_registeredSubscriptions.emplace(subscription.get(), subscription);
    }
    // Without m_mutex: the subscription's own mutex comes first, everywhere.
    subscription->setScheduler(this);
    ScopedLock<Mutex> lock(m_mutex);
    const bool hasGone = m_registeredSubscriptions.count(subscription.get()) == 0;
    lock.unlock();
    if (hasGone)
        subscription->setScheduler(nullptr);
}

void SubscriptionUpdater::remove(SubscriptionObjectPtr subscription)
{
    KESA_LOG_TRACE("SubscriptionUpdater::remove");
    {
        ScopedLock<Mutex> lock(m_mutex);
        const auto entry = m_registeredSubscriptions.find(subscription.get());
        if (entry == m_registeredSubscriptions.end())
        {
            KESA_LOG_DEBUG("SubscriptionUpdater::remove: subscription not found");
            return;
        }
        m_registeredSubscriptions.erase(entry);
        m_resting.erase(subscription->m_number);
    }
    subscription->setScheduler(nullptr);
}

void SubscriptionUpdater::clear()
{
    KESA_LOG_TRACE("SubscriptionUpdater::clear");
    SubscriptionContainer released;
    {
        ScopedLock<Mutex> lock(m_mutex);
        released.swap(m_registeredSubscriptions);
        m_resting.clear();
    }
    for (auto& [address, subscription]: released)
    {
        if (!subscription.isNull())
            subscription->setScheduler(nullptr);
    }
}

void SubscriptionUpdater::schedule(const SubscriptionObject* subscription)
{
    ScopedLock<Mutex> lock(m_mutex);
    addToSchedule(subscription);
    m_checkUpdates.set();
}

void SubscriptionUpdater::addToSchedule(const SubscriptionObject* subscription)
{
    if (isShuttingDown())
    {
        KESA_LOG_DEBUG("addToSchedule"
                       << ": SubscriptionUpdater is shutting down.");
        return;
    }
    if (m_registeredSubscriptions.count(subscription) == 0)
    {
        KESA_LOG_WARNING("addToSchedule"
                         << ": subscription not registered.");
        return;
    }
    if (m_resting.count(subscription->m_number) == 0 && m_queued.insert(subscription).second)
    {
        KESA_LOG_TRACE("subscription scheduled");
        m_schedule.push_back(subscription);
    }
    else
    {
        KESA_LOG_TRACE("subscription already scheduled");
    }
    startWorker();
}

void SubscriptionUpdater::startWorker()
{
    if (scheduleWorker.isRunning() || (m_schedule.empty() && m_resting.empty()))
        return;
    try
    {
        scheduleWorker.start();
    }
    catch (const Poco::Exception& exc) // the entry stays queued; the next request tries again
    {
        KESA_LOG_ERROR("SubscriptionUpdater: cannot start its worker, updates wait: " << exc.displayText());
    }
}

void SubscriptionUpdater::processSchedule()
{
    static const bool named = []
    {
        DebugUtils::setThreadName("SubscrUpdt", "SubscriptionUpdater::processSchedule");
        return true;
    }();
    static_cast<void>(named);
    KESA_LOG_TRACE("started processSchedule");
    try
    {
        runPasses();
    }
    catch (const Poco::Exception& exc)
    {
        KESA_LOG_ERROR("SubscriptionUpdater::"
                       << "processSchedule"
                       << " caught " << exc.displayText());
    }
    catch (const std::exception& exc)
    {
        KESA_LOG_ERROR("SubscriptionUpdater::"
                       << "processSchedule"
                       << " caught " << exc.what());
    }
    catch (...)
    {
        KESA_LOG_ERROR("SubscriptionUpdater::"
                       << "processSchedule"
                       << " caught UNKNOWN exception");
    }
    KESA_LOG_TRACE("stopped processSchedule");

    // One step with the queue: what was scheduled meanwhile gets its worker here, what comes later starts one itself.
    ScopedLock<Mutex> lock(m_mutex);
    const bool wasStopped = scheduleWorker.isStopped();
    scheduleWorker.ending();
    if (!wasStopped)
        startWorker();
}

void SubscriptionUpdater::runPasses()
{
    long idleTime = 0;
    int fruitlessPasses = 0;
    while (!scheduleWorker.isStopped())
    {
        const bool hasSent = processPass(idleTime);
        fruitlessPasses = hasSent ? 0 : std::min(fruitlessPasses + 1, MAX_FRUITLESS_PASSES);
        if (fruitlessPasses == MAX_FRUITLESS_PASSES)
            Poco::Thread::sleep(FRUITLESS_WAIT_MS);
    }
}

bool SubscriptionUpdater::processPass(long& idleTime)
{
    const bool signalled = m_checkUpdates.tryWait(idleTime);
    ScheduledSubscriptions working = takeQueue(signalled);
    idleTime = MAX_IDLE_TIME_MS;
    bool hasSent = false;
    while (!working.empty())
        hasSent = processFront(working, idleTime) || hasSent;
    idleTime = std::min(idleTime, timeUntilRested());
    return hasSent;
}

SubscriptionUpdater::ScheduledSubscriptions SubscriptionUpdater::takeQueue(bool signalled)
{
    ScheduledSubscriptions working;
    std::unordered_set<const SubscriptionObject*> queued; // goes when the lock is free again
    ScopedLock<Mutex> lock(m_mutex);
    working.swap(m_schedule);
    queued.swap(m_queued);
    takeRested(working);
    if (signalled || !working.empty())
        KESA_LOG_TRACE("check for update for " << working.size() << " scheduled subscriptions ("
                                               << m_registeredSubscriptions.size() << " registered)");
    return working;
}

void SubscriptionUpdater::takeRested(ScheduledSubscriptions& working)
{
    const Poco::Clock now = isEachVisitLogged() ? NEVER : Util::now();
    if (now < m_firstRestEnds)
        return;
    m_firstRestEnds = NEVER;
    ScheduledSubscriptions rested;
    for (auto entry = m_resting.begin(); entry != m_resting.end();)
    {
        if (entry->second.until <= now)
        {
            rested.push_back(entry->second.subscription);
            entry = m_resting.erase(entry);
        }
        else
        {
            m_firstRestEnds = std::min(m_firstRestEnds, entry->second.until);
            ++entry;
        }
    }
    working.insert(working.begin(), rested.begin(), rested.end());
}

bool SubscriptionUpdater::processFront(ScheduledSubscriptions& working, long& idleTime)
{
    SubscriptionObjectPtr subscription = takeFront(working); // keeps it alive even if it is removed meanwhile
    if (subscription.isNull())
        return false;
    const Poco::UInt64 sentBefore = subscription->sendCount();
    try
    {
        attempt(*subscription, idleTime);
    }
    catch (const Poco::Exception& exc)
    {
        KESA_LOG_ERROR("SubscriptionUpdater::"
                       << "processSchedule"
                       << ": Caught '" << exc.displayText() << "' while call of update subscription");
    }
    return subscription->sendCount() != sentBefore;
}

SubscriptionUpdater::SubscriptionObjectPtr SubscriptionUpdater::takeFront(ScheduledSubscriptions& working)
{
    ScopedLock<Mutex> lock(m_mutex);
    const auto entry = m_registeredSubscriptions.find(working.front());
    working.pop_front();
    if (entry == m_registeredSubscriptions.end()) // removed meanwhile
        return SubscriptionObjectPtr();
    const SubscriptionObjectPtr subscription = entry->second;
    if (subscription.isNull())
    {
        KESA_LOG_DEBUG("remove invalidated subscriptions");
        m_registeredSubscriptions.erase(entry);
    }
    return subscription;
}

void SubscriptionUpdater::attempt(SubscriptionObject& subscription, long& idleTime)
{
    SubscriptionObject::PostUpdateAction action;
    {
        LibraryCall call; // changes that the data source reports run when the attempt is over
        action = subscription.tryToSendUpdate();
    }
    switch (action)
    {
    case SubscriptionObject::KEEP_SCHEDULED:
        keepScheduled(subscription, idleTime);
        return;
    case SubscriptionObject::REMOVE_FROM_SCHEDULE:
        return;
    }
    Poco::Bugcheck::unexpected(__FILE__, __LINE__);
}

void SubscriptionUpdater::keepScheduled(SubscriptionObject& subscription, long& idleTime)
{
    if (rest(subscription))
        return;
    if (idleTime >= static_cast<long>(subscription.getIdleTime()))
    {
        const long remaining = subscription.getIdleTime();
        const bool isTruncated = remaining == 0 && !subscription.canSendNow(); // less than a millisecond is left
        idleTime = isTruncated ? std::min(idleTime, 1L) : remaining;
    }
    ScopedLock<Mutex> lock(m_mutex);
    KESA_LOG_DEBUG("re-schedule subscription");
    addToSchedule(&subscription);
}

bool SubscriptionUpdater::rest(const SubscriptionObject& subscription)
{
    const Poco::Clock until = subscription.restsUntil(); // takes the subscription's mutex, so before m_mutex
    if (until <= Util::now() || isEachVisitLogged())
        return false;
    ScopedLock<Mutex> lock(m_mutex);
    if (m_registeredSubscriptions.count(&subscription) == 0)
        return false;
    m_resting[subscription.m_number] = {&subscription, until};
    m_firstRestEnds = std::min(m_firstRestEnds, until);
    return true;
}

long SubscriptionUpdater::timeUntilRested() const
{
    if (m_firstRestEnds == NEVER)
        return MAX_IDLE_TIME_MS;
    const Poco::Clock::ClockDiff remaining = m_firstRestEnds - Util::now();
    return remaining <= 0 ? 0 : static_cast<long>((remaining + 999) / 1000); // not a moment too early
}

} // namespace Kesa::Service
