#include <SubscriptionHandling/SubscriptionTrigger.h>

#include "LibraryCall.h"
#include "SubscriptionManager.h"
#include "SubscriptionObject.h"

#include <LogStream.h>

#include <Poco/Delegate.h>

namespace Kesa::Service
{

using Command::HttpRequest;
using Command::UrlPath;
using Util::ReadLock;
using Util::WriteLock;

namespace
{

/// Gives the parser an absolute URL; no connection is ever made to this address, and subscriptions match on the path
/// alone.
const std::string DEFAULT_URLPREFIX = "http://[::1]:443/";

typedef Poco::Delegate<SubscriptionTrigger, SubscriptionSubscribingEventPayload, false> SubscribingDelegate;

/// A copy that shares nothing with the reporter's object.
Poco::JSON::Object::Ptr copyPayload(const Poco::JSON::Object* payload)
{
    return payload ? new Poco::JSON::Object(*payload) : nullptr;
}

} // namespace

SubscriptionTrigger::SubscriptionTrigger(): m_sDefaultUrlPrefix(DEFAULT_URLPREFIX), m_subscriptionManager(nullptr) {}

SubscriptionTrigger::~SubscriptionTrigger()
{
    deinitialise();
}

SubscriptionManager* SubscriptionTrigger::manager() const
{
    ReadLock lock(m_managerLock);
    return m_subscriptionManager;
}

void SubscriptionTrigger::initialise(SubscriptionManager& newManager)
{
    {
        WriteLock lock(m_managerLock);
        if (m_subscriptionManager)
            return;
        m_subscriptionManager = &newManager;
    }
    connect(newManager);
    newManager.SubscriptionSubscribing += SubscribingDelegate(this, &SubscriptionTrigger::checkNewSubscription);
}

void SubscriptionTrigger::deinitialise()
{
    SubscriptionManager* const attached = manager();
    if (!attached)
        return;
    disconnect(*attached);
    attached->SubscriptionSubscribing -= SubscribingDelegate(this, &SubscriptionTrigger::checkNewSubscription);
    WriteLock lock(m_managerLock); // waits for changes that are being handed over
    m_subscriptionManager = nullptr;
}

bool SubscriptionTrigger::iterateAllSubscriptions(const HttpRequest::RequestType& type, const UrlPath& urlpath,
                                                  const Poco::JSON::Object* pSourceObj) const
{
    if (LibraryCall::isInside() && manager())
    {
        const Poco::JSON::Object::Ptr payload = copyPayload(pSourceObj);
        LibraryCall::defer([this, type, urlpath, payload] { iterateAllSubscriptions(type, urlpath, payload.get()); });
        return true;
    }
    ReadLock lock(m_managerLock);
    if (!m_subscriptionManager)
    {
        KESA_LOG_ERROR("SubscriptionManager not available.");
        return false;
    }
    m_subscriptionManager->updateSubscriptionsFromRequest(type, Command::RequestBase(urlpath), pSourceObj);
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
