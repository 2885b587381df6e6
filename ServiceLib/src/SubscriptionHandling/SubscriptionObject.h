#pragma once

#include <Mutex.h>
#include <SubscriptionHandling/SubscriptionRequest.h>
#include <Websocket/WebSocketProxy.h>

#include <Poco/Clock.h>
#include <Poco/SharedPtr.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace Kesa
{
/// The member by which an element is told from others.
KESA_API extern const std::string PROPERTY_KEY_UUID;
} // namespace Kesa

namespace Kesa::Command
{
class WebSocketResponseObject;
}

namespace Kesa::Service
{

class ISubscriptionDataSource;
class SubscriptionUpdater;

/// One subscription of one client: the request, and the state of its delivery.
///
/// Calling order: Create, insertion into the tree, SubscriptionUpdater::add, registerDataSource, initialUpdate. A
/// change may reach the object before it has a data source and before it is initialised.
///
/// Ownership: shared by the tree and the updater; a running delivery holds a further share. Borrows data source and
///            scheduler.
/// Threads:   the client's request (initialUpdate), those who report changes (subscribedDataChanged) and the worker
///            (tryToSendUpdate, getIdleTime) meet here. Lock order: m_updateMutex, then the updater's mutex or the
///            connection's. A load never runs under m_updateMutex; the socket write does.
/// Errors:    a failed write is logged and counts as sent; an exception of the data source goes to the caller.
class KESA_API SubscriptionObject: public SubscriptionRequest
{
public:
    enum PostUpdateAction : int
    {
        KEEP_SCHEDULED = 0,      ///< try again later
        REMOVE_FROM_SCHEDULE = 1 ///< nothing more to do for now
    };

    /// What happens to the paging block of each loaded notification.
    enum PagingObjectCheck
    {
        NONE = 0,      ///< keep it
        REMOVE = 1,    ///< always remove it
        NEXT_LINK = 2, ///< remove it when it has no next link
        ONE_PAGE = 3   ///< remove it when the result is exactly one page
    };

    typedef Poco::SharedPtr<Command::WebSocketResponseObject> NotificationPtr;
    typedef Poco::SharedPtr<SubscriptionObject> SubscriptionObjectPtr;
    typedef SubscriptionObjectPtr Ptr;

    /// A periodic subscription when the request has an interval, else one on change. Raises
    /// Poco::NullPointerException for a request without JSON.
    static SubscriptionObjectPtr Create(const Net::WebSocketProxy& socket,
                                        const Command::WebSocketRequestObject& request);

    ~SubscriptionObject() override;

    /// Sends the first notification, once. After a failed load the subscription counts as initialised all the same.
    void initialUpdate();

    /// Borrows the source for as long as the subscription lives. Called once, before initialUpdate.
    void registerDataSource(ISubscriptionDataSource& source);
    ISubscriptionDataSource* getDataSource() const;
    const Net::WebSocketProxy* getWebsocket() const;
    /// Sets or, with null, takes away who retries. Called by the updater, without its lock.
    void setScheduler(SubscriptionUpdater* scheduler);
    Poco::Clock getLastUpdate() const;

    /// The subscribed data has changed. `payload` is what the previous subscription of the same group returned, or
    /// empty. Returns the notification that later subscriptions of the group may reuse.
    virtual NotificationPtr subscribedDataChanged(const NotificationPtr& payload) = 0;
    /// Milliseconds until this subscription may send again.
    virtual uint32_t getIdleTime() const = 0;
    /// An attempt of the worker.
    virtual PostUpdateAction tryToSendUpdate() = 0;

    /// Marks the subscription as announced to the listeners; false if it was withdrawn meanwhile.
    bool announce();
    /// Marks it as withdrawn; true if it had been announced, so that the caller has to tell the listeners.
    bool withdraw();
    bool isWithdrawn() const;

protected:
    SubscriptionObject(const Net::WebSocketProxy& socket, const Command::WebSocketRequestObject& request);

    /// Whether the rate limit allows sending now.
    virtual bool canSendNow() const = 0;
    /// Called after each change of the scheduler.
    virtual void handleNewScheduler() const = 0;

    bool send(NotificationPtr notification);
    NotificationPtr loadNotificationData() const;
    NotificationPtr getLastNotificationData() const;
    void schedule() const;
    bool isInitialized() const;

    /// True when the load of the last one sent began after this one's: the client must not see an older state again.
    bool isOutdated(const NotificationPtr& notification) const;
    /// True also when the two loads met, so that nobody can tell which one looked first.
    bool mayBeOutdated(const NotificationPtr& notification) const;
    /// The neighbour's notification under this subscription's own event; the same object where the events are equal.
    NotificationPtr adopt(const NotificationPtr& payload) const;
    /// Microseconds until `period` has passed since the last send, from 0 to `period`; 0 when nothing was sent yet.
    Poco::Clock::ClockDiff remainingOf(Poco::Clock::ClockDiff period) const;

    static bool isEqualData(const NotificationPtr& dataA, const NotificationPtr& dataB);
    static bool isEqualDataList(const NotificationPtr& dataA, const NotificationPtr& dataB);
    static bool firstLevelCompare(const Poco::JSON::Object::Ptr& objDataA, const Poco::JSON::Object::Ptr& objDataB,
                                  uint8_t level);
    static bool firstLevelCompare(const Poco::JSON::Array::Ptr& arrayDataA, const Poco::JSON::Array::Ptr& arrayDataB,
                                  uint8_t level);

    mutable Util::Mutex m_updateMutex; ///< recursive; guards the state of delivery, also that of the derived classes
    /// For so many microseconds after a send an attempt has nothing to do; 0 when every attempt may have. Fixed after
    /// construction.
    Poco::Clock::ClockDiff m_restAfterSend = 0;

private:
    friend class SubscriptionUpdater;

    enum class Presence
    {
        ENTERING,
        ANNOUNCED,
        WITHDRAWN
    };

    static void transmitUpdate(const SubscriptionObject& subscription,
                               const Command::WebSocketResponseObject& notification);
    void checkPagingObject(NotificationPtr& notification) const;
    void initializePagingCheck(const Command::WebSocketRequestObject& request);
    Poco::UInt64 sendCount() const;
    /// Before this moment an attempt has nothing to do; 0 when there is no such moment.
    Poco::Clock restsUntil() const;

    const Net::WebSocketProxy m_wsProxy;
    std::atomic<ISubscriptionDataSource*> m_dataSource; ///< atomic: a change may come before it is registered
    SubscriptionUpdater* m_scheduler KESA_GUARDED_BY(m_updateMutex);
    Poco::Clock m_lastUpdate KESA_GUARDED_BY(m_updateMutex); ///< 0 means never sent
    NotificationPtr m_lastNotification KESA_GUARDED_BY(m_updateMutex);
    bool m_initialized KESA_GUARDED_BY(m_updateMutex);
    PagingObjectCheck m_pagingObjectCheckType; ///< fixed after construction

    Poco::UInt64 m_lastNumber KESA_GUARDED_BY(m_updateMutex);    ///< of the load that was sent last
    Poco::UInt64 m_lastEndNumber KESA_GUARDED_BY(m_updateMutex); ///< the same, of its end
    Poco::UInt64 m_sendCount KESA_GUARDED_BY(m_updateMutex);
    /// Process-wide, rising, never reused: a waiting notification is replaced by a newer one of the same number.
    const Poco::UInt64 m_number;
    std::string m_eventText; ///< of the event URI; fixed after construction
    std::atomic<Presence> m_presence;
};

} // namespace Kesa::Service
