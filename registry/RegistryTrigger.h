#pragma once

#include "Entry.h"

#include <SubscriptionHandling/SubscriptionTrigger.h>

#include <Poco/SharedPtr.h>

namespace Kesa::Registry
{

class EntryStore;

/// The entries as the data of a service, so that clients can follow them: "/registry/services" is the list,
/// "/registry/services/<id>" one entry.
///
/// Ownership: borrows the store.
/// Threads:   any, at once.
class RegistryTrigger: public Kesa::Service::SubscriptionTrigger
{
public:
    typedef Poco::SharedPtr<RegistryTrigger> Ptr;

    explicit RegistryTrigger(const EntryStore& store): m_store(store) {}

    /// Tells those who follow that an entry came or went; after the store has changed.
    void reportAdded(const Entry& entry);
    void reportRemoved(const Entry& entry);

    /// Fills in what stands at the URL: an array for "/", "/registry" and the list, an object for an entry.
    bool fetchData(const Kesa::Service::SubscriptionRequest& request,
                   Kesa::Command::WebSocketResponseObject& response) override;
    /// Refuses a URL that does not exist with 404, and a query that makes no sense with 400.
    void checkNewSubscription(Kesa::Service::SubscriptionSubscribingEventPayload& payload) override;

private:
    const EntryStore& m_store;
};

} // namespace Kesa::Registry
