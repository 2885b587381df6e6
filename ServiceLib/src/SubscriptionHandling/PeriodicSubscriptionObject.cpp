#include "PeriodicSubscriptionObject.h"

#include "LoadedNotification.h"

#include <Time/Now.h>

#include <algorithm>

namespace Kesa::Service
{

using Util::Mutex;
using Util::ScopedLock;

PeriodicSubscriptionObject::PeriodicSubscriptionObject(const Net::WebSocketProxy& socket,
                                                       const Command::WebSocketRequestObject& request)
    : SubscriptionObject(socket, request), m_interval(hasInterval() ? getIntervalTimeSpan() : 0), m_currentNumber(0)
{
}

Poco::Clock::ClockDiff PeriodicSubscriptionObject::nextPeriodicUpdate() const
{
    const Poco::Clock last = getLastUpdate();
    if (last == Poco::Clock(0))
        return 0;
    return std::max<Poco::Clock::ClockDiff>(m_interval - (Util::now() - last), 0);
}

bool PeriodicSubscriptionObject::canSendNow() const
{
    const Poco::Clock last = getLastUpdate();
    return last == Poco::Clock(0) || Util::now() - last >= m_interval;
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
    const Poco::UInt64 begun =
        payload.isNull() ? LoadedNotification::nextNumber() : LoadedNotification::numberOf(payload);
    const NotificationPtr result = payload.isNull() ? loadNotificationData() : adopt(payload);
    NotificationPtr own; // the neighbours may read the result while a tick stamps this one
    if (!result.isNull())
        own = new LoadedNotification(*this, *result);

    ScopedLock<Mutex> lock(m_updateMutex);
    if (begun >= m_currentNumber)
    {
        m_currentNumber = begun;
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
