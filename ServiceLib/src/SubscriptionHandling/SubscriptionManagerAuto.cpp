#include "OnChangeSubscriptionObject.h"
#include "SubscriptionManager.h"

#include <Command/WebSocketResponseObject.h>
#include <LogStream.h>
#include <SubscriptionHandling/SubscriptionInterfaces.h>

#include <Poco/Bugcheck.h>
#include <Poco/NumberFormatter.h>

#include <algorithm>

namespace Kesa::Service
{

using Command::UrlPath;
using Command::WebSocketRequestObject;
using Command::WebSocketResponseObject;
using Net::WebSocketProxy;

namespace
{

bool wantsElements(const SubscriptionObject& subscription)
{
    return subscription.isAutosubscribe() && subscription.getUrlPath().getCharacteristic() == UrlPath::SERVICE_RESOURCE;
}

/// A change may find a subscription that has no data source yet, in which case its own thread derives the elements in a
/// moment, or one that is gone already.
bool canDerive(const SubscriptionObject& subscription)
{
    return subscription.getDataSource() && !subscription.isWithdrawn() && !subscription.getWebsocket()->hasEnded();
}

ISubscriptionDataSource& dataSourceOf(const SubscriptionObject& subscription)
{
    ISubscriptionDataSource* const dataSource = subscription.getDataSource();
    if (!dataSource)
        Poco::Bugcheck::nullPointer("data source of an auto-subscription", __FILE__, __LINE__);
    return *dataSource;
}

/// A query's value as it stands in a URL: only what would end it or change it is encoded.
std::string encodedValue(const std::string& value)
{
    static const std::string unsafe = "%&+#\"<>\\^`{|}";
    std::string text;
    for (const char c: value)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7f || unsafe.find(c) != std::string::npos)
            text.append("%").append(Poco::NumberFormatter::formatHex(static_cast<unsigned int>(byte), 2));
        else
            text.append(1, c);
    }
    return text;
}

/// Field selection and expansion of the list hold for each element; search, sorting and paging do not.
std::string elementQuery(const UrlPath& listUrl)
{
    std::string query;
    for (const auto& [key, value]: listUrl.getQueryParameters())
    {
        if (key == UrlPath::QUERY_FIELDS || key == UrlPath::QUERY_EXPAND)
            query.append(query.empty() ? "?" : "&").append(key).append("=").append(encodedValue(value));
    }
    return query;
}

/// The end of a URL with the fragment of this one, as Poco::URI writes it.
std::string fragmentSuffix(const Poco::URI& url)
{
    std::string suffix;
    Poco::URI::encode(url.getFragment(), "", suffix);
    return suffix.empty() ? suffix : "#" + suffix;
}

/// The URL without its query, scheme and host.
std::string pathAndFragment(const Poco::URI& url)
{
    std::string text;
    Poco::URI::encode(url.getPath(), "?#", text);
    return text + fragmentSuffix(url);
}

Poco::Optional<long> intervalOf(const SubscriptionObject& subscription)
{
    return subscription.hasInterval() ? Poco::Optional<long>(static_cast<long>(subscription.getInterval()))
                                      : Poco::Optional<long>();
}

Poco::Optional<long> updateLimitOf(const SubscriptionObject& subscription)
{
    return subscription.hasUpdateLimit() ? Poco::Optional<long>(static_cast<long>(subscription.getUpdateLimit()))
                                         : Poco::Optional<long>();
}

WebSocketRequestObject unsubscribeRequest(const std::string& url)
{
    return WebSocketRequestObject(WebSocketRequestObject::TYPE_UNSUBSCRIBE, url, Poco::Optional<long>(),
                                  Poco::Optional<long>(), nullptr, false);
}

} // namespace

void SubscriptionManager::loadElementUris(const SubscriptionObject& subscriptionObject,
                                          std::vector<std::string>& current)
{
    WebSocketResponseObject resource(subscriptionObject);
    resource.setType(WebSocketRequestObject::TYPE_DATA);
    dataSourceOf(subscriptionObject).fetchData(subscriptionObject, resource);
    const Poco::JSON::Array::Ptr elements = resource.getDataAsJsonArray();
    if (elements.isNull())
        return;
    const std::string end = elementQuery(subscriptionObject.getUrlPath()) + fragmentSuffix(subscriptionObject.getUri());
    for (const Poco::Dynamic::Var& member: *elements)
    {
        const auto element = member.extract<Poco::JSON::Object::Ptr>();
        const Poco::URI uri(element->get("uri").convert<std::string>());
        current.push_back(uri.getPathEtc() + end);
    }
}

void SubscriptionManager::handleAutoSubscribe(const SubscriptionObject& subscriptionObject)
{
    KESA_LOG_TRACE("handleAutoSubscribe");
    if (!wantsElements(subscriptionObject) || !canDerive(subscriptionObject))
        return;
    std::vector<std::string> wanted;
    loadElementUris(subscriptionObject, wanted);
    SubscriptionList existing;
    if (!m_subscriptionTree.getElementSubscriptionsPerWebsocket(subscriptionObject.getUrlPath(),
                                                                *subscriptionObject.getWebsocket(), existing))
    {
        KESA_LOG_ERROR("Loading elements for autoSubscribe failed");
        return;
    }
    SubscriptionList obsolete;
    for (const auto& element: existing)
    {
        if (!element->isAutosubscribe() || element->getUri().getFragment() != subscriptionObject.getUri().getFragment())
            continue;
        const auto followed = std::find(wanted.begin(), wanted.end(), element->getUri().toString());
        if (followed != wanted.end())
            wanted.erase(followed);
        else
            obsolete.push_back(element);
    }
    for (const std::string& url: wanted)
        subscribeElement(subscriptionObject, url);
    for (const auto& element: obsolete)
    {
        if (element.isNull())
            KESA_LOG_WARNING("removeSubscription: Subscription object or websocket already null.");
        else
            unsubscribeElement(*element, element->getUri().toString());
    }
}

void SubscriptionManager::subscribeElement(const SubscriptionObject& subscriptionObject, const std::string& url)
{
    WebSocketProxy proxy(*subscriptionObject.getWebsocket());
    const WebSocketRequestObject request(WebSocketRequestObject::TYPE_SUBSCRIBE, url, intervalOf(subscriptionObject),
                                         updateLimitOf(subscriptionObject), nullptr, false);
    if (!hasValidSubscriptionExpansionLevel(request))
    {
        proxy.write(WebSocketResponseObject(request, WebSocketResponseObject::invalideSubscriptionExpansionLevel, "")
                        .toJsonString());
        return;
    }
    SubscriptionObject::SubscriptionObjectPtr subscription = addSubscription(proxy, request);
    if (subscription->isCanceled())
    {
        const SubscriptionResult& result = subscription->result();
        proxy.write(WebSocketResponseObject(request, static_cast<Poco::UInt16>(result.getSubscriptionError()),
                                            result.getErrorMsg())
                        .toJsonString());
        return;
    }
    subscription->registerDataSource(dataSourceOf(subscriptionObject));
    proxy.write(WebSocketResponseObject(request).toJsonString());
    subscription->initialUpdate();
}

void SubscriptionManager::unsubscribeElement(const SubscriptionObject& element, const std::string& url)
{
    const WebSocketProxy proxy(*element.getWebsocket());
    const WebSocketRequestObject request = unsubscribeRequest(url);
    if (removeSubscription(proxy, request) == 0)
        KESA_LOG_DEBUG("removeSubscription: no subscriptions found for connection to "
                       << proxy.peerAddress().toString());
    else
        proxy.write(WebSocketResponseObject(request).toJsonString());
}

void SubscriptionManager::handleAutoUnSubscribe(const SubscriptionObject& subscriptionObject,
                                                const WebSocketRequestObject& request)
{
    KESA_LOG_TRACE("handleAutoUnSubscribe");
    if (!wantsElements(subscriptionObject))
        return;
    SubscriptionList existing;
    if (!m_subscriptionTree.getElementSubscriptionsPerWebsocket(subscriptionObject.getUrlPath(),
                                                                *subscriptionObject.getWebsocket(), existing))
    {
        KESA_LOG_ERROR("Loading elements for autoUnSubscribe failed");
        return;
    }
    if (request.hasPagingCriteria())
        keepThoseOfPage(subscriptionObject, request, existing);
    for (const auto& element: existing)
    {
        if (element.isNull())
        {
            KESA_LOG_WARNING("removeSubscription: Subscription object or websocket already null.");
            continue;
        }
        if (element->getUri().getFragment() != subscriptionObject.getUri().getFragment())
            continue;
        unsubscribeElement(*element, pathAndFragment(element->getUri()));
    }
}

void SubscriptionManager::keepThoseOfPage(const SubscriptionObject& subscriptionObject,
                                          const WebSocketRequestObject& request, SubscriptionList& elements)
{
    std::vector<std::string> page;
    {
        OnChangeSubscriptionObject pageOfList(*subscriptionObject.getWebsocket(), request);
        pageOfList.registerDataSource(dataSourceOf(subscriptionObject));
        loadElementUris(pageOfList, page);
    }
    elements.erase(
        std::remove_if(elements.begin(), elements.end(),
                       [&page](const auto& element)
                       { return std::find(page.begin(), page.end(), element->getUri().toString()) == page.end(); }),
        elements.end());
}

} // namespace Kesa::Service
