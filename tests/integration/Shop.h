#pragma once

#include <Command/WebSocketResponseObject.h>
#include <GenericServiceBootstrap.h>
#include <ServiceHost.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <map>
#include <mutex>
#include <string>

namespace Kesa::Test
{

/// The data of a service /shop with the one resource /shop/orders, in memory.
///
/// Threads: set() and remove() from any thread.
class Orders: public Service::SubscriptionTrigger
{
public:
    typedef Poco::SharedPtr<Orders> Ptr;

    /// Stores the order and reports it: as new (PUT) or as changed (POST). A note makes it as long as a test needs it.
    void set(const std::string& id, int amount, const std::string& note = "")
    {
        Poco::JSON::Object::Ptr order = new Poco::JSON::Object;
        order->set("id", id);
        order->set("amount", amount);
        if (!note.empty())
            order->set("note", note);
        bool isNew = false;
        {
            std::lock_guard lock(m_mutex);
            isNew = m_orders.insert_or_assign(id, order).second;
        }
        changedElement(isNew ? Command::HttpRequest::PUT : Command::HttpRequest::POST, "shop", "orders", id,
                       order.get());
    }

    bool fetchData(const Service::SubscriptionRequest& request, Command::WebSocketResponseObject& response) override
    {
        const Command::UrlPath url(request.getEvent());
        std::lock_guard lock(m_mutex);
        if (url.getCharacteristic() == Command::UrlPath::SERVICE_RESOURCE_ELEMENT)
        {
            const auto found = m_orders.find(url.getElement());
            if (!exists(url) || found == m_orders.end())
                return false;
            response.setData(found->second);
            return true;
        }
        Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
        for (const auto& [id, order]: m_orders)
            list->add(order);
        response.setData(list);
        return exists(url);
    }

    void checkNewSubscription(Service::SubscriptionSubscribingEventPayload& payload) override
    {
        const Command::UrlPath url(payload.request.getEvent());
        std::lock_guard lock(m_mutex);
        const bool isElement = url.getCharacteristic() == Command::UrlPath::SERVICE_RESOURCE_ELEMENT;
        if (!exists(url) || (isElement && m_orders.count(url.getElement()) == 0))
            payload.cancelSubscribing(Service::SubscriptionError::event_name_unknown,
                                      "there is no such URL in the shop");
    }

private:
    static bool exists(const Command::UrlPath& url)
    {
        switch (url.getCharacteristic())
        {
        case Command::UrlPath::ROOT:
            return true;
        case Command::UrlPath::SERVICE:
            return url.isServiceEqual("shop");
        case Command::UrlPath::SERVICE_RESOURCE:
        case Command::UrlPath::SERVICE_RESOURCE_ELEMENT:
            return url.isServiceEqual("shop") && url.isResourceEqual("orders");
        default:
            return false;
        }
    }

    std::mutex m_mutex;
    std::map<std::string, Poco::JSON::Object::Ptr> m_orders; ///< guarded by m_mutex
};

/// The running shop, on a port that the kernel chose. There is an order from the start: /shop/orders/1.
class Shop
{
public:
    Shop(): host(m_bootstrap, options())
    {
        host.start();
        orders->set("1", 10);
    }
    ~Shop() { host.stop(); }
    Shop(const Shop&) = delete;
    Shop& operator=(const Shop&) = delete;

    Orders::Ptr orders = new Orders;

private:
    class Bootstrap: public Service::GenericServiceBootstrap
    {
    public:
        explicit Bootstrap(const Orders::Ptr& orders): m_orders(orders) {}

    protected:
        bool startupImpl() override { return true; }
        bool shutdownImpl() override { return true; }
        Service::SubscriptionTrigger::Ptr createSubscriptionInterface() override { return m_orders; }

    private:
        const Orders::Ptr m_orders;
    };

    static Host::ServiceHost::Options options()
    {
        Host::ServiceHost::Options options;
        options.port = 0;
        return options;
    }

    Bootstrap m_bootstrap{orders};

public:
    Host::ServiceHost host;
};

} // namespace Kesa::Test
