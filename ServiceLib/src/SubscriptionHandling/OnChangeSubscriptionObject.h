#pragma once

#include "SubscriptionObject.h"

namespace Kesa::Service
{

/// A subscription that sends when the subscribed data has really changed, at most once per update limit. A change
/// inside the limit stays pending, and the worker sends the newest state when the limit has passed.
class KESA_API OnChangeSubscriptionObject: public SubscriptionObject
{
public:
    OnChangeSubscriptionObject(const Net::WebSocketProxy& socket, const Command::WebSocketRequestObject& request);
    ~OnChangeSubscriptionObject() override;

    NotificationPtr subscribedDataChanged(const NotificationPtr& payload) override;
    uint32_t getIdleTime() const override;
    PostUpdateAction tryToSendUpdate() override;

protected:
    bool canSendNow() const override;
    void handleNewScheduler() const override;

private:
    /// True means that the two count as equal.
    typedef bool (*ChangeCompareFct)(const NotificationPtr&, const NotificationPtr&);

    void initializeDataCompare(const Command::WebSocketRequestObject& request);
    bool isNewNotification(const NotificationPtr& notification) const;
    PostUpdateAction sendUpdate(NotificationPtr notification);
    /// `number`: when the load of `notification` began, also for a load that failed.
    PostUpdateAction sendUpdate(const NotificationPtr& notification, Poco::UInt64 number);
    void sendIfNew(const NotificationPtr& notification);
    NotificationPtr loadWatched();

    Poco::Clock::ClockDiff m_updateLimit; ///< microseconds, fixed after construction
    bool m_hasPendingUpdate KESA_GUARDED_BY(m_updateMutex);
    NotificationPtr m_pendingNotification KESA_GUARDED_BY(m_updateMutex);
    ChangeCompareFct m_dataComparer; ///< fixed after construction
    /// When the newest pending change arrived: a load that began earlier does not serve it.
    Poco::UInt64 m_changeNumber KESA_GUARDED_BY(m_updateMutex);
};

} // namespace Kesa::Service
