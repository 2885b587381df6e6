#pragma once

#include <GenericServiceBootstrap.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>

#include <Poco/Event.h>
#include <Poco/JSON/Object.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>

/// The data of a shop, and a few URLs that misbehave.
class TinyTrigger: public Kesa::Service::SubscriptionTrigger
{
public:
    bool fetchData(const Kesa::Service::SubscriptionRequest& request,
                   Kesa::Command::WebSocketResponseObject& response) override;
    void checkNewSubscription(Kesa::Service::SubscriptionSubscribingEventPayload& payload) override;

    /// Sets the price of the one order and reports it.
    void setPrice(int price);
    /// "/shop/orders/wait" is loaded only once this is set.
    Poco::Event canLoad{Poco::Event::EVENT_MANUALRESET};
    std::atomic<int> loads{0};
    std::function<void()> onLoad; ///< set before the start

private:
    Poco::JSON::Object::Ptr order() const;

    std::atomic<int> m_price{1};
};

/// A service around it, whose start and stop fail on demand.
class TinyService: public Kesa::Service::GenericServiceBootstrap
{
public:
    ~TinyService() override { shutdown(); }

    Poco::SharedPtr<TinyTrigger> trigger{new TinyTrigger};
    bool startSucceeds = true;
    bool stopSucceeds = true;
    int stops = 0;

protected:
    bool startupImpl() override { return startSucceeds; }
    bool shutdownImpl() override
    {
        ++stops;
        return stopSucceeds;
    }
    Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> createSubscriptionInterface() override { return trigger; }
};
