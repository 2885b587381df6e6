#include "TinyService.h"

#include <Command/HttpRequest.h>
#include <Command/WebSocketResponseObject.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionRequest.h>

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>

#include <limits>

using Kesa::Command::WebSocketResponseObject;

bool TinyTrigger::fetchData(const Kesa::Service::SubscriptionRequest& request, WebSocketResponseObject& response)
{
    ++loads;
    if (onLoad)
        onLoad();
    const auto& url = request.getUrlPath();
    const std::string& element = url.getElement();
    if (url.getService() != "shop" || (!url.getResource().empty() && url.getResource() != "orders"))
        return false;
    if (element == "raise")
        throw Poco::RuntimeException("the database is on fire");
    if (element == "wait")
        canLoad.wait();
    if (element == "gone")
        response.setErrorStatus(410, "The order was canceled.");
    else if (element == "nothing")
        return true;
    else if (element.empty())
    {
        Poco::JSON::Array::Ptr orders(new Poco::JSON::Array);
        orders->add(order());
        response.setData(orders);
        Poco::JSON::Object::Ptr paging(new Poco::JSON::Object);
        paging->set("total", 1);
        if (!url.getResource().empty())
            response.setPaging(paging);
    }
    else if (element == "1" || element == "wait" || element == "client")
        response.setData(order());
    else
        return false;
    if (element == "client")
        response.getDataAsJsonObject()->set("client", request.peerAddress().host().toString());
    return true;
}

void TinyTrigger::checkNewSubscription(Kesa::Service::SubscriptionSubscribingEventPayload& payload)
{
    if (payload.request.getUrlPath().getService() != "shop")
        payload.cancelSubscribing(Kesa::Service::SubscriptionError::event_name_unknown, "There is only a shop.");
}

void TinyTrigger::setPrice(int price)
{
    m_price = price;
    const auto changed = order();
    changedElement(Kesa::Command::HttpRequest::POST, "shop", "orders", "1", changed.get());
}

Poco::JSON::Object::Ptr TinyTrigger::order() const
{
    Poco::JSON::Object::Ptr object(new Poco::JSON::Object);
    object->set("id", "1");
    object->set("price", static_cast<int>(m_price));
    object->set("weight", std::numeric_limits<double>::quiet_NaN());
    return object;
}
