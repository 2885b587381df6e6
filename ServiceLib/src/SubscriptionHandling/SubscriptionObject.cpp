#include "SubscriptionObject.h"

#include "CriteriaLookup.h"
#include "LoadedNotification.h"
#include "OnChangeSubscriptionObject.h"
#include "PeriodicSubscriptionObject.h"
#include "SubscriptionUpdater.h"

#include <Command/Query/Paging.h>
#include <Command/WebSocketResponseObject.h>
#include <LogStream.h>
#include <SubscriptionHandling/SubscriptionInterfaces.h>
#include <Time/Now.h>

#include <Poco/Bugcheck.h>
#include <Poco/Net/NetException.h>

#include <algorithm>

namespace Kesa
{
const std::string PROPERTY_KEY_UUID = "id";
}

namespace Kesa::Service
{

using Command::ResponseObject;
using Command::WebSocketRequestObject;
using Command::WebSocketResponseObject;
using Util::Mutex;
using Util::ScopedLock;

namespace
{

Poco::UInt64 nextSubscriptionNumber()
{
    static std::atomic<Poco::UInt64> counter{0};
    return ++counter;
}

} // namespace

SubscriptionObject::SubscriptionObjectPtr SubscriptionObject::Create(const Net::WebSocketProxy& socket,
                                                                     const WebSocketRequestObject& request)
{
    if (request.hasInterval())
        return new PeriodicSubscriptionObject(socket, request);
    return new OnChangeSubscriptionObject(socket, request);
}

SubscriptionObject::SubscriptionObject(const Net::WebSocketProxy& socket, const WebSocketRequestObject& request)
    : SubscriptionRequest(request, socket.address(), socket.peerAddress()),
      m_wsProxy(socket),
      m_dataSource(nullptr),
      m_scheduler(nullptr),
      m_lastUpdate(0),
      m_initialized(false),
      m_pagingObjectCheckType(NONE),
      m_lastNumber(0),
      m_lastEndNumber(0),
      m_sendCount(0),
      m_number(nextSubscriptionNumber()),
      m_presence(Presence::ENTERING)
{
    const Poco::JSON::Object* json = request.getJson();
    if (!json)
        Poco::Bugcheck::nullPointer("request.getJson()", __FILE__, __LINE__);
    copyAndInitFromJsonObject(*json);
    m_eventText = getEvent().toString();
    if (!hasUpdateLimit())
        KESA_LOG_DEBUG("New subscription without updateLimit - using default value of " << getUpdateLimit() << "ms.");
    initializePagingCheck(request);
}

SubscriptionObject::~SubscriptionObject() = default;

void SubscriptionObject::initializePagingCheck(const WebSocketRequestObject& request)
{
    const auto* criteria = findRenderCriteria<Command::Paging>(request);
    if (!criteria || criteria->empty())
        return;
    const auto* paging = dynamic_cast<const Command::Paging*>(criteria->front().get());
    if (!paging || !paging->isValid() || paging->getType() == Command::Paging::TYPE_TOTAL)
        return;
    switch (paging->getPagingRequestType())
    {
    case Command::Paging::OFFSET_LIMIT:
        m_pagingObjectCheckType = REMOVE;
        break;
    case Command::Paging::OFFSET:
        m_pagingObjectCheckType = NEXT_LINK;
        break;
    default:
        m_pagingObjectCheckType = ONE_PAGE;
    }
}

void SubscriptionObject::initialUpdate()
{
    ScopedLock<Mutex> lock(m_updateMutex);
    if (m_initialized)
        return;
    lock.unlock();
    const NotificationPtr notification = loadNotificationData(); // never under the lock
    lock.lock();
    KESA_LOG_DEBUG("initialUpdate"
                   << ": send initial update for subscription " << m_eventText);
    if (!isOutdated(notification))
        send(notification);
    m_initialized = true;
}

void SubscriptionObject::registerDataSource(ISubscriptionDataSource& source)
{
    m_dataSource = &source;
}

ISubscriptionDataSource* SubscriptionObject::getDataSource() const
{
    return m_dataSource;
}

const Net::WebSocketProxy* SubscriptionObject::getWebsocket() const
{
    return &m_wsProxy;
}

void SubscriptionObject::setScheduler(SubscriptionUpdater* scheduler)
{
    ScopedLock<Mutex> lock(m_updateMutex);
    m_scheduler = scheduler;
    handleNewScheduler();
}

Poco::Clock SubscriptionObject::getLastUpdate() const
{
    ScopedLock<Mutex> lock(m_updateMutex);
    return m_lastUpdate;
}

bool SubscriptionObject::announce()
{
    Presence expected = Presence::ENTERING;
    return m_presence.compare_exchange_strong(expected, Presence::ANNOUNCED);
}

bool SubscriptionObject::withdraw()
{
    return m_presence.exchange(Presence::WITHDRAWN) == Presence::ANNOUNCED;
}

bool SubscriptionObject::isWithdrawn() const
{
    return m_presence == Presence::WITHDRAWN;
}

SubscriptionObject::NotificationPtr SubscriptionObject::loadNotificationData() const
{
    ISubscriptionDataSource* dataSource = m_dataSource;
    if (!dataSource)
    {
        KESA_LOG_ERROR("Failed to retrieve subscription data - no data source defined");
        return NotificationPtr();
    }
    KESA_LOG_TRACE("Loading data for subscription '" << m_eventText << "'");
    Poco::SharedPtr<LoadedNotification> loaded = new LoadedNotification(*this);
    NotificationPtr notification = loaded;
    notification->setStatus("");
    notification->setEvent(getEvent());
    notification->setType(WebSocketRequestObject::TYPE_DATA);
    if (!dataSource->fetchData(*this, *notification))
    {
        KESA_LOG_ERROR("Failed to retrieve subscription data for subscription " << m_eventText);
        return NotificationPtr();
    }
    checkPagingObject(notification);
    loaded->seal();
    return notification;
}

void SubscriptionObject::checkPagingObject(NotificationPtr& notification) const
{
    if (m_pagingObjectCheckType == NONE || notification.isNull())
        return;
    const Poco::JSON::Object::Ptr paging = notification->getPaging();
    if (paging.isNull())
        return;
    const bool isRedundant =
        m_pagingObjectCheckType == REMOVE ||
        (m_pagingObjectCheckType == NEXT_LINK && !paging->has(ResponseObject::FIELD_PAGING_NEXT)) ||
        (m_pagingObjectCheckType == ONE_PAGE &&
         paging->optValue<unsigned int>(ResponseObject::FIELD_PAGING_TOTAL_PAGES, 0) == 1);
    if (isRedundant)
        notification->resetPagingObject();
}

bool SubscriptionObject::isOutdated(const NotificationPtr& notification) const
{
    const Poco::UInt64 number = LoadedNotification::numberOf(notification);
    ScopedLock<Mutex> lock(m_updateMutex);
    return number != 0 && number < m_lastNumber;
}

bool SubscriptionObject::mayBeOutdated(const NotificationPtr& notification) const
{
    const Poco::UInt64 number = LoadedNotification::numberOf(notification);
    ScopedLock<Mutex> lock(m_updateMutex);
    return number != 0 && number != m_lastNumber && number < m_lastEndNumber;
}

SubscriptionObject::NotificationPtr SubscriptionObject::adopt(const NotificationPtr& payload) const
{
    if (LoadedNotification::fitsEvent(payload, m_eventText))
        return payload;
    return new LoadedNotification(*this, *payload);
}

Poco::Clock::ClockDiff SubscriptionObject::remainingOf(Poco::Clock::ClockDiff period) const
{
    const Poco::Clock last = getLastUpdate();
    if (last == Poco::Clock(0))
        return 0;
    return std::clamp<Poco::Clock::ClockDiff>(period - (Util::now() - last), 0, period);
}

Poco::Clock SubscriptionObject::restsUntil() const
{
    const Poco::Clock last = getLastUpdate();
    return m_restAfterSend == 0 || last == Poco::Clock(0) ? Poco::Clock(0) : last + m_restAfterSend;
}

bool SubscriptionObject::send(NotificationPtr notification)
{
    ScopedLock<Mutex> lock(m_updateMutex);
    if (notification.isNull())
    {
        KESA_LOG_ERROR("SubscriptionObject: Failed to send invalid notification data!");
        return false;
    }
    transmitUpdate(*this, *notification);
    m_lastUpdate = Util::now(); // a failed write counts as a send
    m_lastNotification = notification;
    m_lastNumber = LoadedNotification::numberOf(notification);
    m_lastEndNumber = LoadedNotification::endNumberOf(notification);
    ++m_sendCount;
    return true;
}

void SubscriptionObject::transmitUpdate(const SubscriptionObject& subscription,
                                        const WebSocketResponseObject& notification)
{
    try
    {
        KESA_LOG_TRACE("Sending subscription notification for event '" << subscription.m_eventText << "' to "
                                                                       << subscription.peerAddress().toString());
        subscription.m_wsProxy.write(notification.sharedText(), subscription.m_number);
    }
    catch (const Poco::Net::WebSocketException& exc)
    {
        KESA_LOG_ERROR("Failed to send websocketSubscriptionUpdate. " << exc.className());
    }
    catch (...)
    {
        KESA_LOG_ERROR("Failed to send websocketSubscriptionUpdate. Unknown exception");
    }
}

SubscriptionObject::NotificationPtr SubscriptionObject::getLastNotificationData() const
{
    ScopedLock<Mutex> lock(m_updateMutex);
    return m_lastNotification;
}

void SubscriptionObject::schedule() const
{
    ScopedLock<Mutex> lock(m_updateMutex); // then the updater's mutex
    if (m_scheduler)
        m_scheduler->schedule(this);
    else
        KESA_LOG_WARNING("schedule"
                         << ": scheduler not set, subscription object is not fully initialised");
}

bool SubscriptionObject::isInitialized() const
{
    ScopedLock<Mutex> lock(m_updateMutex);
    return m_initialized;
}

Poco::UInt64 SubscriptionObject::sendCount() const
{
    ScopedLock<Mutex> lock(m_updateMutex);
    return m_sendCount;
}

} // namespace Kesa::Service
