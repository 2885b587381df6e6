#include "SystemTrigger.h"

#include "ListView.h"

#include <Command/HttpRequest.h>
#include <Command/UrlPath.h>
#include <Command/WebSocketResponseObject.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionRequest.h>

#include <utility>

namespace SystemMonitor
{
namespace
{

using Kesa::Command::HttpRequest;
using Kesa::Command::UrlPath;
using Poco::JSON::Array;
using Poco::JSON::Object;

const std::string SERVICE = "system";

Object::Ptr entry(const std::string& id, const std::string& uri)
{
    Object::Ptr object = new Object;
    object->set("id", id);
    object->set("uri", uri);
    object->set("name", id);
    return object;
}

/// "/": this service, alone.
Array::Ptr services()
{
    Array::Ptr list = new Array;
    list->add(entry(SERVICE, "/" + SERVICE));
    return list;
}

/// "/system": its resources.
Array::Ptr resources(const Snapshot& snapshot)
{
    Array::Ptr list = new Array;
    for (const auto& [name, elements]: snapshot)
        list->add(entry(name, "/" + SERVICE + "/" + name));
    return list;
}

/// "/system/cpus" and its like; null if there is no such resource.
Array::Ptr elements(const Snapshot& snapshot, const std::string& resource)
{
    const auto found = snapshot.find(resource);
    if (found == snapshot.end())
        return Array::Ptr();
    Array::Ptr list = new Array;
    for (const auto& [id, element]: found->second)
        list->add(element);
    return list;
}

/// "/system/cpus/cpu0" and its like; null if there is no such element.
Object::Ptr element(const Snapshot& snapshot, const UrlPath& url)
{
    const auto resource = snapshot.find(url.getResource());
    if (resource == snapshot.end())
        return Object::Ptr();
    const auto found = resource->second.find(url.getElement());
    return found == resource->second.end() ? Object::Ptr() : found->second;
}

/// The list at a URL; null if there is none.
Array::Ptr list(const Snapshot& snapshot, const UrlPath& url)
{
    switch (url.getCharacteristic())
    {
    case UrlPath::ROOT:
        return services();
    case UrlPath::SERVICE:
        return url.isServiceEqual(SERVICE) ? resources(snapshot) : Array::Ptr();
    case UrlPath::SERVICE_RESOURCE:
        return url.isServiceEqual(SERVICE) ? elements(snapshot, url.getResource()) : Array::Ptr();
    default:
        return Array::Ptr();
    }
}

bool isElement(const UrlPath& url)
{
    return url.getCharacteristic() == UrlPath::SERVICE_RESOURCE_ELEMENT && url.isServiceEqual(SERVICE);
}

} // namespace

SystemTrigger::SystemTrigger(Snapshot first): m_snapshot(std::make_shared<const Snapshot>(std::move(first))) {}

SystemTrigger::SnapshotPtr SystemTrigger::current() const
{
    Kesa::Util::ScopedLock guard(m_mutex);
    return m_snapshot;
}

void SystemTrigger::update(Snapshot now)
{
    const SnapshotPtr before = current();
    const SnapshotPtr after = std::make_shared<const Snapshot>(std::move(now));
    {
        Kesa::Util::ScopedLock guard(m_mutex);
        m_snapshot = after;
    }
    // The new state stands before it is reported, because the library fetches it while it handles the report.
    for (const Change& change: difference(*before, *after))
        report(change);
}

void SystemTrigger::report(const Change& change)
{
    const auto tell = [&](HttpRequest::RequestType type)
    { changedElement(type, SERVICE, change.resource, change.id, change.data.get()); };
    switch (change.kind)
    {
    case Change::GONE:
        tell(HttpRequest::DELETE);
        break;
    case Change::CHANGED:
        tell(HttpRequest::POST);
        break;
    case Change::APPEARED:
        tell(HttpRequest::PUT);  // for those who follow the list
        tell(HttpRequest::POST); // for those who still follow an element that went and is back
        break;
    }
}

bool SystemTrigger::fetchData(const Kesa::Service::SubscriptionRequest& request,
                              Kesa::Command::WebSocketResponseObject& response)
{
    const SnapshotPtr snapshot = current();
    const UrlPath& url = request.getUrlPath();
    if (const Array::Ptr found = list(*snapshot, url))
    {
        answerList(found, request, response);
        return true;
    }
    if (!isElement(url))
        return false;
    if (const Object::Ptr found = element(*snapshot, url))
    {
        answerElement(found, request, response);
        return true;
    }
    if (request.getType() != Kesa::Command::WebSocketRequestObject::TYPE_SUBSCRIBE)
        return false; // a request over HTTP, which is answered with 404
    // It was there when the client subscribed. The error document says that it went; the empty data make it different
    // from the state before, and a state after it different again.
    response.setErrorStatus(Kesa::Command::StatusObject::gone, "\"" + url.getUri().getPath() + "\" no longer exists.");
    response.setData(Object::Ptr(new Object));
    return true;
}

void SystemTrigger::checkNewSubscription(Kesa::Service::SubscriptionSubscribingEventPayload& payload)
{
    using Kesa::Service::SubscriptionError;
    const SnapshotPtr snapshot = current();
    const UrlPath& url = payload.request.getUrlPath();
    const bool exists = list(*snapshot, url) || (isElement(url) && element(*snapshot, url));
    if (!exists)
        payload.cancelSubscribing(SubscriptionError::event_name_unknown,
                                  "There is no \"" + url.getUri().getPath() +
                                      "\" here; \"/system\" lists what there is.");
    else if (!payload.request.areCriteriaValid())
        payload.cancelSubscribing(SubscriptionError::syntax_error,
                                  "The query \"" + url.getUri().getQuery() + "\" cannot be understood.");
}

} // namespace SystemMonitor
