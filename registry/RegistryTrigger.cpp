#include "RegistryTrigger.h"

#include "EntryStore.h"

#include <Command/HttpRequest.h>
#include <Command/Query/Paging.h>
#include <Command/UrlPath.h>
#include <Command/WebSocketResponseObject.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionRequest.h>

#include <Poco/String.h>

namespace Kesa::Registry
{

using Kesa::Command::HttpRequest;
using Kesa::Command::Paging;
using Kesa::Command::UrlPath;
using Kesa::Service::SubscriptionError;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{

const std::string SERVICE = "registry";
const std::string RESOURCE = "services";

/// A list of one: this service, or its one resource.
Array::Ptr listOf(const std::string& name, const std::string& uri)
{
    Object::Ptr object = new Object;
    object->set("id", name);
    object->set("uri", uri);
    object->set("name", name);
    Array::Ptr list = new Array;
    list->add(object);
    return list;
}

bool isHere(const UrlPath& url)
{
    return url.isServiceEqual(SERVICE) && url.isResourceEqual(RESOURCE);
}

bool isEntry(const UrlPath& url)
{
    return url.getCharacteristic() == UrlPath::SERVICE_RESOURCE_ELEMENT && isHere(url);
}

/// Answers with the page of the list that was asked for; without paging with as many elements as a list may have.
void answerList(const Array::Ptr& list, const Kesa::Service::SubscriptionRequest& request,
                Kesa::Command::WebSocketResponseObject& response)
{
    std::vector<Poco::SharedPtr<Paging>> asked;
    request.extractRenderCriteria(asked);
    if (asked.empty() && list->size() <= Paging::PAGING_LIMIT_MAX)
        return response.setData(list);
    const Paging paging = asked.empty() ? Paging::createDefaultPaging() : *asked.front();
    response.setPaging(paging.createPagingInfo(*list, request.getUri()));
    response.setData(paging.applyArrayPaging(list));
}

/// The list at a URL; null if there is none.
Array::Ptr listAt(const UrlPath& url, const EntryStore& store)
{
    if (url.getCharacteristic() == UrlPath::ROOT)
        return listOf(SERVICE, "/" + SERVICE);
    if (url.getCharacteristic() == UrlPath::SERVICE && url.isServiceEqual(SERVICE))
        return listOf(RESOURCE, "/" + SERVICE + "/" + RESOURCE);
    if (url.getCharacteristic() != UrlPath::SERVICE_RESOURCE || !isHere(url))
        return Array::Ptr();
    Array::Ptr list = new Array;
    for (const EntryPtr& entry: store.entries())
        list->add(entry->json);
    return list;
}

/// The entry at a URL; null if there is none.
EntryPtr entryAt(const UrlPath& url, const EntryStore& store)
{
    return isEntry(url) ? store.find(Poco::toLower(url.getElement())) : nullptr;
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
    if (const Array::Ptr list = listAt(url, m_store))
    {
        answerList(list, request, response);
        return true;
    }
    if (const EntryPtr entry = entryAt(url, m_store))
    {
        response.setData(entry->json);
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
    if (!listAt(url, m_store) && !entryAt(url, m_store))
        payload.cancelSubscribing(SubscriptionError::event_name_unknown,
                                  "There is no \"" + url.getUri().getPath() +
                                      "\" here; \"/registry/services\" lists what there is.");
    else if (!payload.request.areCriteriaValid())
        payload.cancelSubscribing(SubscriptionError::syntax_error,
                                  "The query \"" + url.getUri().getQuery() + "\" cannot be understood.");
}

} // namespace Kesa::Registry
