#pragma once

#include "DataAnswer.h"

#include "SubscriptionHandling/SubscriptionTrigger.h"

#include <Poco/SharedPtr.h>
#include <Poco/URI.h>

#include <memory>

namespace Kesa::Service
{
class ServiceDataAccessPoint;
}

namespace Kesa::Host
{

/// The trigger of a service whose data stand in a data access point. It answers from there whatever is asked, over HTTP
/// and for subscriptions alike, so that the service's author writes no fetchData() and no checkNewSubscription() at
/// all:
///
///     Poco::SharedPtr<SubscriptionTrigger> createSubscriptionInterface() override
///     {
///         return new Kesa::Host::DataAccessTrigger(store);
///     }
///
/// HTTP requests that write go to the data access point too, and are reported. Whoever changes the data in another way
/// calls created(), updated() or deleted() afterwards, or the operations of the base class.
///
/// To override: read() for what is not in the data access point, on both roads; checkNewSubscription() to refuse more.
/// Ownership: shares the data access point.
/// Threads:   every operation from any thread, at once.
/// Errors:    exceptions of the data access point go to the caller.
class KESA_API DataAccessTrigger: public Service::SubscriptionTrigger
{
public:
    typedef Poco::SharedPtr<DataAccessTrigger> Ptr;

    /// `data` must not be null: Poco::NullPointerException.
    explicit DataAccessTrigger(const Poco::SharedPtr<Service::ServiceDataAccessPoint>& data);
    ~DataAccessTrigger() override;

    /// What stands at the request's URL, as its query asks; or a refusal: 404 where nothing stands, 400 for a query
    /// that cannot be understood or names a member that the resource does not declare, 403 for too deep an expansion.
    virtual DataAnswer read(const Command::RequestBase& request);

    /// Fills in what read() gives. An element that went since it was subscribed to gives the error status 410 and an
    /// empty object.
    bool fetchData(const Service::SubscriptionRequest& request, Command::WebSocketResponseObject& response) override;
    /// Refuses what read() would refuse, in the same words.
    void checkNewSubscription(Service::SubscriptionSubscribingEventPayload& payload) override;

    /// Tells the subscriptions that an element is there now; to be called after it was stored. `url` is its own, and
    /// `element` all of it. The result is as of all operations of a trigger.
    bool created(const Poco::URI& url, const Poco::JSON::Object::Ptr& element);
    /// That an element was updated: `members` are those that were given.
    bool updated(const Poco::URI& url, const Poco::JSON::Object::Ptr& members);
    /// That an element, or those of its members that the query of `url` names, went; `element` is what went or what
    /// is left.
    bool deleted(const Poco::URI& url, const Poco::JSON::Object::Ptr& element);

    /// Where the data stand; lives as long as the trigger.
    Service::ServiceDataAccessPoint& data() { return *m_data; }

private:
    struct Parts;

    Poco::SharedPtr<Service::ServiceDataAccessPoint> m_data;
    const std::unique_ptr<Parts> m_parts;
};

} // namespace Kesa::Host
