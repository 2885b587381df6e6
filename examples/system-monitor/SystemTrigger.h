#pragma once

#include "Snapshot.h"

#include <Mutex.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>

#include <Poco/SharedPtr.h>

#include <memory>
#include <string>

namespace SystemMonitor
{

/// The data of the service, and the place where it tells the library what has changed.
///
/// The library asks it twice: checkNewSubscription() whether a client may follow a URL, and fetchData() what is to be
/// seen there now. It answers both from the last snapshot, so no client ever waits for /proc.
///
/// Threads: any, at once. One thread at a time calls update().
class SystemTrigger: public Kesa::Service::SubscriptionTrigger
{
public:
    typedef Poco::SharedPtr<SystemTrigger> Ptr;

    explicit SystemTrigger(Snapshot first);

    /// Makes `now` the state that clients see, and reports what is different from the state before.
    void update(Snapshot now);

    /// Fills in what stands at the URL of `request`: an array for "/", "/system" and a resource, an object for an
    /// element.
    bool fetchData(const Kesa::Service::SubscriptionRequest& request,
                   Kesa::Command::WebSocketResponseObject& response) override;
    /// Refuses a URL that does not exist with 404, and a query that makes no sense with 400.
    void checkNewSubscription(Kesa::Service::SubscriptionSubscribingEventPayload& payload) override;

private:
    typedef std::shared_ptr<const Snapshot> SnapshotPtr;

    SnapshotPtr current() const;
    void report(const Change& change);

    mutable Kesa::Util::FastMutex m_mutex; ///< guards the pointer; what it points to never changes
    SnapshotPtr m_snapshot KESA_GUARDED_BY(m_mutex);
};

} // namespace SystemMonitor
