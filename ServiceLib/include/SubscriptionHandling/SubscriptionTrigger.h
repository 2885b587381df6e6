#pragma once

#include "Command/HttpRequest.h"
#include "Command/UrlPath.h"
#include "Export.h"
#include "Mutex.h"
#include "SubscriptionEventFilter.h"
#include "SubscriptionInterfaces.h"

#include <Poco/Condition.h>
#include <Poco/JSON/Object.h>
#include <Poco/SharedPtr.h>

#include <string>

namespace Kesa::Service
{

class SubscriptionManager;

/// Through this a service reports what has changed. A service derives from it and implements fetchData() and
/// checkNewSubscription().
///
/// The result of every trigger operation means that the change was handed to the subscriptions, not that one matched.
/// False, with an Error in the log, means that the service is not started.
///
/// Threads: the trigger operations from any thread, several at once. They are legal too inside a callback of the
/// library, that is, in a data source, a veto or a listener: the change is copied and takes effect as soon as the
/// library has released its locks on that thread.
/// Errors: an exception of a data source or of a listener goes to the caller, but for a change that was put off, where
/// it is logged.
class KESA_API SubscriptionTrigger: public ISubscriptionInterface, public SubscriptionEventFilter
{
public:
    typedef Poco::SharedPtr<SubscriptionTrigger> Ptr;

    SubscriptionTrigger();
    /// Detaches the trigger.
    ~SubscriptionTrigger() override;
    SubscriptionTrigger(const SubscriptionTrigger&) = delete;
    SubscriptionTrigger& operator=(const SubscriptionTrigger&) = delete;

    bool fetchData(const SubscriptionRequest& request, Command::WebSocketResponseObject& response) override = 0;
    void checkNewSubscription(SubscriptionSubscribingEventPayload& payload) override = 0;

protected:
    void sendUpdate(SubscriptionObject*& subscription) override;

public:
    /// A request was handled: its method, URL and body say what changed.
    virtual bool byRequest(const Command::HttpRequest& request) const;
    /// The same for a DELETE, whose body is not in the request: `deletedObject` is what went; may be null.
    virtual bool byDeleteRequest(const Command::HttpRequest& request, const Poco::JSON::Object* deletedObject) const;
    /// Something changed at `urlpath`. `pSourceObj` holds the members that changed; null when they are not known.
    virtual bool manualTrigger(const Command::HttpRequest::RequestType& type, const Command::UrlPath& urlpath,
                               const Poco::JSON::Object* pSourceObj);
    /// A resource as a whole changed. Names are put into a URL as they are, so reserved characters have to be encoded.
    virtual bool changedResourceCollection(Command::HttpRequest::RequestType reqType, const std::string& service,
                                           const std::string& resource, const Poco::JSON::Object* pSourceObj);
    /// An element appeared (PUT), changed (POST) or went (DELETE).
    virtual bool changedElement(Command::HttpRequest::RequestType reqType, const std::string& service,
                                const std::string& resource, const std::string& element,
                                const Poco::JSON::Object* pSourceObj);

    /// Attaches the trigger to the manager; ignored while it is attached. Called at the service's start.
    void initialise(SubscriptionManager& manager);
    /// Detaches it; waits for the changes that other threads are reporting, so not from inside a callback. Called at
    /// the service's stop.
    void deinitialise();

protected:
    /// The one funnel of all triggers.
    bool iterateAllSubscriptions(const Command::HttpRequest::RequestType& type, const Command::UrlPath& urlpath,
                                 const Poco::JSON::Object* pSourceObj) const;

    const std::string m_sDefaultUrlPrefix;

private:
    class ManagerUse;

    bool isAttached() const;
    SubscriptionManager* acquireManager() const;
    void releaseManager() const;

    /// Guards the pointer and the number of its users, and is held only to read or change them. No lock is held while a
    /// change is handed over: under steady changes a waiting stop would never get it.
    mutable Util::FastMutex m_managerMutex;
    mutable Poco::Condition m_unused; ///< signalled when the last user has left
    SubscriptionManager* m_subscriptionManager KESA_GUARDED_BY(m_managerMutex);
    mutable unsigned int m_users KESA_GUARDED_BY(m_managerMutex); ///< changes that are being handed over
};

} // namespace Kesa::Service
