#include "OnChangeSubscriptionObject.h"

#include "LoadedNotification.h"
#include "SubscriptionSurveillance.h"

#include <LogStream.h>

#include <algorithm>

namespace Kesa::Service
{

using Command::UrlPath;
using Util::Mutex;
using Util::ScopedLock;

SubscriptionSurveillance WATCHDOG;

OnChangeSubscriptionObject::OnChangeSubscriptionObject(const Net::WebSocketProxy& socket,
                                                       const Command::WebSocketRequestObject& request)
    : SubscriptionObject(socket, request),
      m_updateLimit(getUpdateLimitTimeSpan()),
      m_hasPendingUpdate(false),
      m_dataComparer(nullptr),
      m_changeNumber(0)
{
    initializeDataCompare(request);
}

OnChangeSubscriptionObject::~OnChangeSubscriptionObject()
{
    WATCHDOG.remove(this);
}

void OnChangeSubscriptionObject::initializeDataCompare(const Command::WebSocketRequestObject& request)
{
    switch (request.getUrlPath().getCharacteristic())
    {
    case UrlPath::ROOT:
    case UrlPath::SERVICE:
    case UrlPath::SERVICE_RESOURCE:
        m_dataComparer = &SubscriptionObject::isEqualDataList;
        break;
    default:
        m_dataComparer = &SubscriptionObject::isEqualData;
    }
    WATCHDOG.add(this);
}

bool OnChangeSubscriptionObject::canSendNow() const
{
    return remainingOf(m_updateLimit) == 0;
}

uint32_t OnChangeSubscriptionObject::getIdleTime() const
{
    constexpr uint32_t idleTimeBeforeInitialUpdate = 10; // look again soon
    if (!isInitialized())
        return idleTimeBeforeInitialUpdate;
    return static_cast<uint32_t>(remainingOf(m_updateLimit) / 1000);
}

void OnChangeSubscriptionObject::handleNewScheduler() const {} // schedules only when something has changed

bool OnChangeSubscriptionObject::isNewNotification(const NotificationPtr& notification) const
{
    return !m_dataComparer || !LoadedNotification::compare(m_dataComparer, getLastNotificationData(), notification);
}

SubscriptionObject::NotificationPtr OnChangeSubscriptionObject::loadWatched()
{
    WATCHDOG.update(this, SubscriptionSurveillance::START_LOADING_DATA);
    try
    {
        const NotificationPtr notification = loadNotificationData();
        WATCHDOG.update(this, SubscriptionSurveillance::FINISHED_LOADING_DATA);
        return notification;
    }
    catch (...) // the data source's; this change ends here, so its clocks do too
    {
        WATCHDOG.update(this, SubscriptionSurveillance::FINISHED);
        throw;
    }
}

SubscriptionObject::NotificationPtr OnChangeSubscriptionObject::subscribedDataChanged(const NotificationPtr& payload)
{
    NotificationPtr result;
    WATCHDOG.update(this, SubscriptionSurveillance::TRIGGERED);
    // A neighbour's load began after the change was reported, so it serves this change.
    const Poco::UInt64 changeNumber =
        payload.isNull() ? LoadedNotification::nextNumber() : LoadedNotification::numberOf(payload);
    if (!isInitialized())
        KESA_LOG_WARNING("subscribedDataChanged"
                         << ": can't send update yet - subscription is not fully initialised");
    else if (!payload.isNull())
        result = adopt(payload);
    else if (canSendNow())
        result = loadWatched(); // never under the lock

    ScopedLock<Mutex> lock(m_updateMutex);
    m_hasPendingUpdate = true;
    m_pendingNotification = nullptr; // out of date now
    m_changeNumber = std::max(m_changeNumber, changeNumber);
    if (result.isNull() || sendUpdate(result) == KEEP_SCHEDULED)
    {
        KESA_LOG_DEBUG("subscribedDataChanged"
                       << ": can't send update directly - forward it to scheduler");
        schedule();
    }
    return result;
}

SubscriptionObject::PostUpdateAction OnChangeSubscriptionObject::tryToSendUpdate()
{
    ScopedLock<Mutex> lock(m_updateMutex);
    if (!m_hasPendingUpdate)
    {
        KESA_LOG_WARNING("tryToSendUpdate"
                         << ": no change pending.");
        return REMOVE_FROM_SCHEDULE;
    }
    if (!isInitialized())
    {
        KESA_LOG_WARNING("tryToSendUpdate"
                         << ": subscription is not fully initialised yet.");
        return KEEP_SCHEDULED;
    }
    NotificationPtr notification;
    if (!m_pendingNotification.isNull())
    {
        notification.swap(m_pendingNotification);
        return sendUpdate(notification);
    }
    lock.unlock();
    const Poco::UInt64 begun = LoadedNotification::nextNumber(); // known also when the load fails
    notification = loadWatched();
    return sendUpdate(notification, begun);
}

SubscriptionObject::PostUpdateAction OnChangeSubscriptionObject::sendUpdate(NotificationPtr notification)
{
    return sendUpdate(notification, LoadedNotification::numberOf(notification));
}

SubscriptionObject::PostUpdateAction OnChangeSubscriptionObject::sendUpdate(const NotificationPtr& notification,
                                                                            Poco::UInt64 number)
{
    ScopedLock<Mutex> lock(m_updateMutex);
    if (m_hasPendingUpdate)
    {
        KESA_LOG_DEBUG("OnChangeSubscriptionObject: send update for " << notification->getEvent().toString());
        if (mayBeOutdated(notification)) // not sent; the worker loads again
            return KEEP_SCHEDULED;
        // A change that arrived after the load had begun is still to be served.
        const bool missesAChange = number != 0 && number < m_changeNumber;
        if (!canSendNow())
        {
            m_pendingNotification = missesAChange ? NotificationPtr() : notification;
            KESA_LOG_DEBUG("sendUpdate"
                           << ": can't send now - keep scheduled.");
            return KEEP_SCHEDULED;
        }
        if (!notification.isNull())
            sendIfNew(notification);
        if (missesAChange)
        {
            // The changes before it are served; the time of the one that was missed is measured from here.
            WATCHDOG.update(this, SubscriptionSurveillance::FINISHED);
            WATCHDOG.update(this, SubscriptionSurveillance::TRIGGERED);
            return KEEP_SCHEDULED;
        }
    }
    WATCHDOG.update(this, SubscriptionSurveillance::FINISHED);
    m_hasPendingUpdate = false;
    return REMOVE_FROM_SCHEDULE;
}

void OnChangeSubscriptionObject::sendIfNew(const NotificationPtr& notification)
{
    WATCHDOG.update(this, SubscriptionSurveillance::SENDING_UPDATE);
    if (isNewNotification(notification))
    {
        KESA_LOG_TRACE("sendUpdate"
                       << ": data is changed - send update");
        send(notification);
    }
    else
    {
        KESA_LOG_TRACE("sendUpdate"
                       << ": data is unchanged - skip update");
    }
}

} // namespace Kesa::Service
