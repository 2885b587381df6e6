#include "PeriodicSubscriptionObject.h"

#include "LoadedNotification.h"

namespace Kesa::Service
{

using Util::Mutex;
using Util::ScopedLock;

PeriodicSubscriptionObject::PeriodicSubscriptionObject(const Net::WebSocketProxy& socket,
                                                       const Command::WebSocketRequestObject& request)
    : SubscriptionObject(socket, request), m_interval(hasInterval() ? getIntervalTimeSpan() : 0), m_currentNumber(0)
{
    m_restAfterSend = m_interval; // a change sends nothing by itself
}

Poco::Clock::ClockDiff PeriodicSubscriptionObject::nextPeriodicUpdate() const
{
    return remainingOf(m_interval);
}

bool PeriodicSubscriptionObject::canSendNow() const
{
    return nextPeriodicUpdate() == 0;
}

uint32_t PeriodicSubscriptionObject::getIdleTime() const
{
    return static_cast<uint32_t>(nextPeriodicUpdate() / 1000);
}

void PeriodicSubscriptionObject::handleNewScheduler() const
{
    schedule();
}

SubscriptionObject::NotificationPtr PeriodicSubscriptionObject::subscribedDataChanged(const NotificationPtr& payload)
{
    Poco::UInt64 number = LoadedNotification::nextNumber(); // stands also for a load that fails
    const NotificationPtr result = payload.isNull() ? loadNotificationData() : adopt(payload);
    NotificationPtr own;
    if (!result.isNull())
    {
        number = LoadedNotification::numberOf(result);
        own = new LoadedNotification(*this, *result); // neighbours may read the result while a tick stamps this one
    }

    ScopedLock<Mutex> lock(m_updateMutex);
    if (number >= m_currentNumber) // else a load that began later has brought its state already
    {
        m_currentNumber = number;
        m_currentNotification = own;
    }
    return result;
}

SubscriptionObject::PostUpdateAction PeriodicSubscriptionObject::tryToSendUpdate()
{
    ScopedLock<Mutex> lock(m_updateMutex);
    if (m_currentNotification.isNull() || isOutdated(m_currentNotification))
        m_currentNotification = getLastNotificationData();
    if (m_currentNotification.isNull() || !canSendNow())
        return KEEP_SCHEDULED;
    m_currentNotification->setTimeStamp();
    send(m_currentNotification);
    return KEEP_SCHEDULED;
}

} // namespace Kesa::Service
