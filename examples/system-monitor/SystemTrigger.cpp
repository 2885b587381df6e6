#include "SystemTrigger.h"

#include <Command/HttpRequest.h>
#include <Command/UrlPath.h>
#include <Command/WebSocketResponseObject.h>
#include <DataAnswer.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionRequest.h>

#include <optional>
#include <utility>

namespace SystemMonitor
{
namespace
{

using Kesa::Command::HttpRequest;
using Kesa::Command::UrlPath;
using Kesa::Host::DataAnswer;
using Kesa::Host::DataRow;
using Poco::JSON::Object;

typedef std::vector<DataRow> List;

const std::string SERVICE = "system";

DataRow entry(const std::string& id, const std::string& uri)
{
    Object::Ptr object = new Object;
    object->set("id", id);
    object->set("uri", uri);
    object->set("name", id);
    return DataRow(object);
}

/// "/": this service, alone.
List services()
{
    return {entry(SERVICE, "/" + SERVICE)};
}

/// "/system": its resources.
List resources(const Snapshot& snapshot)
{
    List list;
    for (const auto& [name, elements]: snapshot)
        list.push_back(entry(name, "/" + SERVICE + "/" + name));
    return list;
}

/// "/system/cpus" and its like; nothing if there is no such resource.
std::optional<List> elements(const Snapshot& snapshot, const std::string& resource)
{
    const auto found = snapshot.find(resource);
    if (found == snapshot.end())
        return std::nullopt;
    List list;
    for (const auto& [id, element]: found->second)
        list.emplace_back(element);
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

/// The list at a URL; nothing if there is none.
std::optional<List> list(const Snapshot& snapshot, const UrlPath& url)
{
    switch (url.getCharacteristic())
    {
    case UrlPath::ROOT:
        return services();
    case UrlPath::SERVICE:
        return url.isServiceEqual(SERVICE) ? std::optional(resources(snapshot)) : std::nullopt;
    case UrlPath::SERVICE_RESOURCE:
        return url.isServiceEqual(SERVICE) ? elements(snapshot, url.getResource()) : std::nullopt;
    default:
        return std::nullopt;
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
    if (std::optional<List> found = list(*snapshot, url))
    {
        DataAnswer::list(std::move(*found), request).fill(response); // as the query of the request asks
        return true;
    }
    if (!isElement(url))
        return false;
    if (const Object::Ptr found = element(*snapshot, url))
    {
        DataAnswer::element(DataRow(found), request).fill(response);
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
    const bool exists = list(*snapshot, url).has_value() || (isElement(url) && element(*snapshot, url));
    if (!exists)
        payload.cancelSubscribing(SubscriptionError::event_name_unknown,
                                  "There is no \"" + url.getUri().getPath() +
                                      "\" here; \"/system\" lists what there is.");
    else if (!payload.request.areCriteriaValid())
        payload.cancelSubscribing(SubscriptionError::syntax_error,
                                  "The query \"" + url.getUri().getQuery() + "\" cannot be understood.");
}

} // namespace SystemMonitor
