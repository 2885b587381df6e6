#include "SubscriptionUpdater.h"

#include "LibraryCall.h"
#include "SubscriptionObject.h"

#include <DebugUtils.h>
#include <LogStream.h>

#include <Poco/Bugcheck.h>
#include <Poco/Exception.h>

#include <algorithm>

namespace Kesa::Service
{

using Util::Mutex;
using Util::ScopedLock;

namespace
{
constexpr long MAX_IDLE_TIME_MS = 5000;    ///< the longest wait of the worker
constexpr int MAX_FRUITLESS_PASSES = 1000; ///< so many passes without any result, and the worker no longer spins
} // namespace

SubscriptionUpdater::SubscriptionUpdater()
    : m_checkUpdates(Poco::Event::EVENT_AUTORESET), m_fruitlessPasses(0), scheduleWorker([this] { processSchedule(); })
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
    if (m_queued.insert(subscription).second)
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
    if (scheduleWorker.isRunning() || m_schedule.empty())
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
    m_fruitlessPasses = 0;
    while (!scheduleWorker.isStopped())
        idleTime = processPass(idleTime);
}

long SubscriptionUpdater::processPass(long idleTime)
{
    const bool signalled = m_checkUpdates.tryWait(idleTime);
    ScheduledSubscriptions working;
    {
        ScopedLock<Mutex> lock(m_mutex);
        working.swap(m_schedule);
        m_queued.clear();
        if (signalled || !working.empty())
            KESA_LOG_TRACE("check for update for " << working.size() << " scheduled subscriptions ("
                                                   << m_registeredSubscriptions.size() << " registered)");
    }
    long nextIdleTime = MAX_IDLE_TIME_MS;
    bool isFruitless = true;
    while (!working.empty())
    {
        if (processFront(working, nextIdleTime))
            isFruitless = false;
    }
    m_fruitlessPasses = isFruitless && nextIdleTime == 0 ? m_fruitlessPasses + 1 : 0;
    if (m_fruitlessPasses >= MAX_FRUITLESS_PASSES)
        return std::max(nextIdleTime, 1L);
    return nextIdleTime;
}

bool SubscriptionUpdater::processFront(ScheduledSubscriptions& working, long& idleTime)
{
    SubscriptionObjectPtr subscription = takeFront(working); // keeps it alive even if it is removed meanwhile
    if (subscription.isNull())
        return false;
    try
    {
        return attempt(*subscription, idleTime);
    }
    catch (const Poco::Exception& exc)
    {
        KESA_LOG_ERROR("SubscriptionUpdater::"
                       << "processSchedule"
                       << ": Caught '" << exc.displayText() << "' while call of update subscription");
    }
    return true;
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

bool SubscriptionUpdater::attempt(SubscriptionObject& subscription, long& idleTime)
{
    const Poco::UInt64 sentBefore = subscription.sendCount();
    SubscriptionObject::PostUpdateAction action;
    {
        LibraryCall call; // changes that the data source reports run when the attempt is over
        action = subscription.tryToSendUpdate();
    }
    switch (action)
    {
    case SubscriptionObject::KEEP_SCHEDULED:
        keepScheduled(subscription, idleTime);
        return subscription.sendCount() != sentBefore;
    case SubscriptionObject::REMOVE_FROM_SCHEDULE:
        return true;
    }
    Poco::Bugcheck::unexpected(__FILE__, __LINE__);
    return true;
}

void SubscriptionUpdater::keepScheduled(SubscriptionObject& subscription, long& idleTime)
{
    if (idleTime >= static_cast<long>(subscription.getIdleTime()))
    {
        long remaining = subscription.getIdleTime();
        if (remaining == 0 && !subscription.canSendNow()) // less than a millisecond is left
            remaining = 1;
        idleTime = std::min(idleTime, remaining);
    }
    ScopedLock<Mutex> lock(m_mutex);
    KESA_LOG_DEBUG("re-schedule subscription");
    addToSchedule(&subscription);
}

} // namespace Kesa::Service
