// A service as a stranger writes it. Ends with 0 when all that the library promised to strangers holds.

#include "Data/Recipe.h"
#include "Log.h"
#include "Time/Stopwatch.h"

#include <ApplicationServices.h>
#include <ClientConnectionManager.h>
#include <Command/UrlPath.h>
#include <Command/WebSocketResponseObject.h>
#include <GenericServiceBootstrap.h>
#include <ServiceHost.h>
#include <ServiceNotifications.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionMatching.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>
#include <Time/Timestamp.h>
#include <Websocket/WebsocketConnectionManager.h>

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/StreamCopier.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <typeinfo>

namespace
{

class Kitchen: public Kesa::Service::SubscriptionTrigger
{
public:
    bool fetchData(const Kesa::Service::SubscriptionRequest& request,
                   Kesa::Command::WebSocketResponseObject& response) override
    {
        if (Kesa::Command::UrlPath(request.getEvent()).getElement() != m_soup.name)
            return false;
        Poco::JSON::Object::Ptr data = new Poco::JSON::Object;
        data->set("id", m_soup.name);
        data->set("minutes", m_soup.minutes);
        response.setData(data);
        return true;
    }

    void checkNewSubscription(Kesa::Service::SubscriptionSubscribingEventPayload&) override {}

private:
    const Recipe m_soup{"soup", 25};
};

class Restaurant: public Kesa::Service::GenericServiceBootstrap
{
public:
    Poco::SharedPtr<Kitchen> kitchen = new Kitchen;

protected:
    bool startupImpl() override { return true; }
    bool shutdownImpl() override { return true; }
    Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> createSubscriptionInterface() override { return kitchen; }
};

void require(bool holds, const char* what)
{
    if (!holds)
        throw std::runtime_error(std::string("does not hold: ") + what);
    Stranger::log(what);
}

/// What the library registered is found under the stranger's own idea of each type.
void findServices(const Restaurant& restaurant)
{
    require(!ApplicationServices::getService<Kesa::Service::ServiceNotifications>().isNull(),
            "notifications are found");
    require(!ApplicationServices::getService<Kesa::Net::ClientConnectionManager>().isNull(), "access rules are found");
    require(!ApplicationServices::getService<Kesa::Net::WebsocketConnectionManager>().isNull(),
            "connections are found");
    auto trigger = ApplicationServices::getService<Kesa::Service::SubscriptionTrigger>();
    require(trigger.get() == restaurant.kitchen.get(), "the trigger is found and is ours");
    require(!trigger.cast<Kitchen>().isNull(), "its dynamic type crosses the border");
}

void askOverHttp(Poco::UInt16 port)
{
    Poco::Net::HTTPClientSession session("127.0.0.1", port);
    Poco::Net::HTTPRequest request("GET", "/restaurant/menu/soup", "HTTP/1.1");
    session.sendRequest(request);
    Poco::Net::HTTPResponse response;
    std::string body;
    Poco::StreamCopier::copyToString(session.receiveResponse(response), body);
    require(response.getStatus() == 200, "the service answers over HTTP");
    require(body.find("\"minutes\":25") != std::string::npos, "with its data");
}

void run()
{
    Stopwatch stopwatch;
    Restaurant restaurant;
    require(Kesa::Timestamp::createTimestamp().asMilliseconds() < 60'000, "time counts from the service's start");
    Kesa::Host::ServiceHost::Options options;
    options.port = 0;
    Kesa::Host::ServiceHost host(restaurant, options);
    host.start();
    findServices(restaurant);
    askOverHttp(host.port());
    host.stop();
    require(ApplicationServices::getService<Kesa::Service::SubscriptionTrigger>().isNull(),
            "after the stop it is gone");
    require(stopwatch.elapsed() < std::chrono::minutes(1), "all in good time");
}

} // namespace

int main()
{
    try
    {
        run();
        return EXIT_SUCCESS;
    }
    catch (const Poco::Exception& exception) // the library's exceptions are known across the border
    {
        Stranger::log(exception.displayText());
    }
    catch (const std::exception& exception)
    {
        Stranger::log(exception.what());
    }
    return EXIT_FAILURE;
}
