#include <SubscriptionHandling/SubscriptionTrigger.h>

#include "LibraryCall.h"
#include "SubscriptionManager.h"
#include "SubscriptionObject.h"

#include <Command/WebSocketResponseObject.h>
#include <LogStream.h>

#include <Poco/Delegate.h>

namespace Kesa::Service
{

using Command::HttpRequest;
using Command::UrlPath;
using Util::FastMutex;
using Util::ScopedLock;

namespace
{

/// Gives the parser an absolute URL; no connection is ever made to this address, and subscriptions match on the path
/// alone.
const std::string DEFAULT_URLPREFIX = "http://[::1]:443/";

typedef Poco::Delegate<SubscriptionTrigger, SubscriptionSubscribingEventPayload, false> SubscribingDelegate;

/// A copy that shares nothing with the reporter's object, at no depth.
Poco::JSON::Object::Ptr copyPayload(const Poco::JSON::Object* payload)
{
    if (!payload)
        return nullptr;
    Command::WebSocketResponseObject carrier;
    carrier.setData(Poco::JSON::Object::Ptr(new Poco::JSON::Object(*payload)));
    carrier.takeSnapshot();
    return carrier.getDataAsJsonObject();
}

} // namespace

/// Keeps the manager from going for its own lifetime; without one while the trigger is detached.
class SubscriptionTrigger::ManagerUse
{
public:
    explicit ManagerUse(const SubscriptionTrigger& trigger): m_trigger(trigger), m_manager(trigger.acquireManager()) {}
    ~ManagerUse()
    {
        if (m_manager)
            m_trigger.releaseManager();
    }
    ManagerUse(const ManagerUse&) = delete;
    ManagerUse& operator=(const ManagerUse&) = delete;

    SubscriptionManager* manager() const { return m_manager; }

private:
    const SubscriptionTrigger& m_trigger;
    SubscriptionManager* const m_manager;
};

SubscriptionTrigger::SubscriptionTrigger()
    : m_sDefaultUrlPrefix(DEFAULT_URLPREFIX), m_subscriptionManager(nullptr), m_users(0)
{
}

SubscriptionTrigger::~SubscriptionTrigger()
{
    deinitialise();
}

bool SubscriptionTrigger::isAttached() const
{
    ScopedLock<FastMutex> lock(m_managerMutex);
    return m_subscriptionManager != nullptr;
}

SubscriptionManager* SubscriptionTrigger::acquireManager() const
{
    ScopedLock<FastMutex> lock(m_managerMutex);
    if (m_subscriptionManager)
        ++m_users;
    return m_subscriptionManager;
}

void SubscriptionTrigger::releaseManager() const
{
    ScopedLock<FastMutex> lock(m_managerMutex);
    if (--m_users == 0)
        m_unused.broadcast();
}

void SubscriptionTrigger::initialise(SubscriptionManager& newManager)
{
    {
        ScopedLock<FastMutex> lock(m_managerMutex);
        if (m_subscriptionManager)
            return;
        m_subscriptionManager = &newManager;
    }
    connect(newManager);
    newManager.SubscriptionSubscribing += SubscribingDelegate(this, &SubscriptionTrigger::checkNewSubscription);
}

void SubscriptionTrigger::deinitialise()
{
    {
        const ManagerUse use(*this);
        if (!use.manager())
            return;
        disconnect(*use.manager());
        use.manager()->SubscriptionSubscribing -= SubscribingDelegate(this, &SubscriptionTrigger::checkNewSubscription);
    }
    ScopedLock<FastMutex> lock(m_managerMutex);
    m_subscriptionManager = nullptr;
    while (m_users > 0)
        m_unused.wait(static_cast<Poco::FastMutex&>(m_managerMutex));
}

bool SubscriptionTrigger::iterateAllSubscriptions(const HttpRequest::RequestType& type, const UrlPath& urlpath,
                                                  const Poco::JSON::Object* pSourceObj) const
{
    if (LibraryCall::isInside() && isAttached())
    {
        const Poco::JSON::Object::Ptr payload = copyPayload(pSourceObj);
        LibraryCall::defer([this, type, urlpath, payload] { iterateAllSubscriptions(type, urlpath, payload.get()); });
        return true;
    }
    const ManagerUse use(*this);
    if (!use.manager())
    {
        KESA_LOG_ERROR("SubscriptionManager not available.");
        return false;
    }
    use.manager()->updateSubscriptionsFromRequest(type, Command::RequestBase(urlpath), pSourceObj);
    return true;
}

bool SubscriptionTrigger::byRequest(const HttpRequest& request) const
{
    const Poco::JSON::Object::Ptr payload = request.asJson(); // alive for the length of the call
    return iterateAllSubscriptions(request.getType(), request.getUrlPath(), payload.get());
}

bool SubscriptionTrigger::byDeleteRequest(const HttpRequest& request, const Poco::JSON::Object* deletedObject) const
{
    return iterateAllSubscriptions(request.getType(), request.getUrlPath(), deletedObject);
}

bool SubscriptionTrigger::manualTrigger(const HttpRequest::RequestType& type, const UrlPath& urlpath,
                                        const Poco::JSON::Object* pSourceObj)
{
    return iterateAllSubscriptions(type, urlpath, pSourceObj);
}

bool SubscriptionTrigger::changedResourceCollection(HttpRequest::RequestType reqType, const std::string& service,
                                                    const std::string& resource, const Poco::JSON::Object* pSourceObj)
{
    const std::string resourceUrl = m_sDefaultUrlPrefix + service + "/" + resource;
    const Poco::URI resourceUri(resourceUrl);
    const UrlPath resourcePath(resourceUri);
    KESA_LOG_TRACE("changedResourceCollection"
                   << " " << reqType << " on Resource: " << service << "." << resource);
    return iterateAllSubscriptions(reqType, resourcePath, pSourceObj);
}

bool SubscriptionTrigger::changedElement(HttpRequest::RequestType reqType, const std::string& service,
                                         const std::string& resource, const std::string& element,
                                         const Poco::JSON::Object* pSourceObj)
{
    const std::string resourceUrl = m_sDefaultUrlPrefix + service + "/" + resource + "/" + element;
    const Poco::URI resourceUri(resourceUrl);
    const UrlPath resourcePath(resourceUri);
    KESA_LOG_TRACE("changedElement"
                   << " " << reqType << " on Element: " << service << "." << resource << "." << element);
    return iterateAllSubscriptions(reqType, resourcePath, pSourceObj);
}

void SubscriptionTrigger::sendUpdate(SubscriptionObject*& subscription)
{
    if (!subscription)
        return;
    LibraryCall call;
    subscription->subscribedDataChanged(SubscriptionObject::NotificationPtr());
}

} // namespace Kesa::Service
