#pragma once

#include "SubscriptionObject.h"

namespace Kesa::Service
{

/// A subscription that sends the current state once per interval, changed or not. A change only replaces the state that
/// the next tick sends. Ticks are measured from the last send and not from a fixed grid, so a late one shifts those
/// after it.
class KESA_API PeriodicSubscriptionObject: public SubscriptionObject
{
public:
    PeriodicSubscriptionObject(const Net::WebSocketProxy& socket, const Command::WebSocketRequestObject& request);

    NotificationPtr subscribedDataChanged(const NotificationPtr& payload) override;
    uint32_t getIdleTime() const override;
    PostUpdateAction tryToSendUpdate() override;

protected:
    bool canSendNow() const override;
    void handleNewScheduler() const override;

private:
    Poco::Clock::ClockDiff nextPeriodicUpdate() const;

    Poco::Clock::ClockDiff m_interval; ///< microseconds, fixed after construction
    /// The state to send at the next tick. Nobody else holds it, since each tick stamps it.
    NotificationPtr m_currentNotification KESA_GUARDED_BY(m_updateMutex);
    Poco::UInt64 m_currentNumber KESA_GUARDED_BY(m_updateMutex); ///< of the newest load that a change has brought
};

} // namespace Kesa::Service
