#include "RegistryTrigger.h"

#include "EntryStore.h"

#include <Command/HttpRequest.h>
#include <Command/UrlPath.h>
#include <Command/WebSocketResponseObject.h>
#include <DataAnswer.h>
#include <QueryCheck.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionRequest.h>

namespace Kesa::Registry
{

using Kesa::Command::HttpRequest;
using Kesa::Command::UrlPath;
using Kesa::Host::DataAnswer;
using Kesa::Host::DataRow;
using Kesa::Service::SubscriptionError;
using Poco::JSON::Object;

namespace
{

const std::string SERVICE = "registry";
const std::string RESOURCE = "services";

typedef std::vector<DataRow> Rows;

/// A list of one: this service, or its one resource.
Rows listOf(const std::string& name, const std::string& uri)
{
    Object::Ptr object = new Object;
    object->set("id", name);
    object->set("uri", uri);
    object->set("name", name);
    return Rows{DataRow(object)};
}

bool isHere(const UrlPath& url)
{
    return url.isServiceEqual(SERVICE) && url.isResourceEqual(RESOURCE);
}

bool isEntry(const UrlPath& url)
{
    return url.getCharacteristic() == UrlPath::SERVICE_RESOURCE_ELEMENT && isHere(url);
}

bool isList(const UrlPath& url)
{
    const UrlPath::Characteristic level = url.getCharacteristic();
    return level == UrlPath::ROOT || (level == UrlPath::SERVICE && url.isServiceEqual(SERVICE)) ||
           (level == UrlPath::SERVICE_RESOURCE && isHere(url));
}

/// What stands in the list at a URL.
Rows rowsAt(const UrlPath& url, const EntryStore& store)
{
    if (url.getCharacteristic() == UrlPath::ROOT)
        return listOf(SERVICE, "/" + SERVICE);
    if (url.getCharacteristic() == UrlPath::SERVICE)
        return listOf(RESOURCE, "/" + SERVICE + "/" + RESOURCE);
    Rows rows;
    for (const EntryPtr& entry: store.entries())
        rows.emplace_back(entry->json);
    return rows;
}

/// The entry at a URL; null if there is none.
EntryPtr entryAt(const UrlPath& url, const EntryStore& store)
{
    return isEntry(url) ? store.find(url.getElement()) : nullptr;
}

} // namespace

void RegistryTrigger::reportAdded(const Entry& entry)
{
    changedElement(HttpRequest::PUT, SERVICE, RESOURCE, entry.id, entry.json.get());
}

void RegistryTrigger::reportRemoved(const Entry& entry)
{
    changedElement(HttpRequest::DELETE, SERVICE, RESOURCE, entry.id, entry.json.get());
}

bool RegistryTrigger::fetchData(const Kesa::Service::SubscriptionRequest& request,
                                Kesa::Command::WebSocketResponseObject& response)
{
    const UrlPath& url = request.getUrlPath();
    if (isList(url))
    {
        DataAnswer::list(rowsAt(url, m_store), request).fill(response);
        return true;
    }
    if (const EntryPtr entry = entryAt(url, m_store))
    {
        DataAnswer::element(DataRow(entry->json), request).fill(response);
        return true;
    }
    if (!isEntry(url) || request.getType() != Kesa::Command::WebSocketRequestObject::TYPE_SUBSCRIBE)
        return false;
    // It was there when the client subscribed. The empty data tell this state from the one before.
    response.setErrorStatus(Kesa::Command::StatusObject::gone, "\"" + url.getUri().getPath() + "\" is gone.");
    response.setData(Object::Ptr(new Object));
    return true;
}

void RegistryTrigger::checkNewSubscription(Kesa::Service::SubscriptionSubscribingEventPayload& payload)
{
    const UrlPath& url = payload.request.getUrlPath();
    if (!isList(url) && !entryAt(url, m_store))
        return payload.cancelSubscribing(SubscriptionError::event_name_unknown,
                                         "There is no \"" + url.getUri().getPath() +
                                             "\" here; \"/registry/services\" lists what there is.");
    const Kesa::Host::QueryVerdict verdict = Kesa::Host::checkQuery(payload.request);
    if (verdict.code != 0)
        payload.cancelSubscribing(static_cast<SubscriptionError>(verdict.code), verdict.message);
}

} // namespace Kesa::Registry
