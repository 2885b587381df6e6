// A complete service: /clock/times/now is this machine's time, told every second to whoever follows it.
#include <Command/HttpRequest.h>
#include <Command/WebSocketResponseObject.h>
#include <GenericServiceBootstrap.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/Event.h>
#include <Poco/Thread.h>
#include <ServiceHost.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionRequest.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>
using namespace Kesa::Command;
using namespace Kesa::Service;
const UrlPath NOW("/clock/times/now");

// The data. The library asks for them and is told when they change.
class ClockTrigger: public SubscriptionTrigger
{
public:
    // What stands at a URL now. False: nothing does.
    bool fetchData(const SubscriptionRequest& request, WebSocketResponseObject& response) override
    {
        if (request.getUrlPath() != NOW)
            return false;
        Poco::JSON::Object::Ptr now = new Poco::JSON::Object;
        now->set("id", "now").set("uri", "/clock/times/now");
        now->set("time", Poco::DateTimeFormatter::format(Poco::Timestamp(), "%H:%M:%S"));
        response.setData(now);
        return true;
    }

    // Whether a client may follow a URL.
    void checkNewSubscription(SubscriptionSubscribingEventPayload& payload) override
    {
        if (payload.request.getUrlPath() != NOW)
            payload.cancelSubscribing(SubscriptionError::event_name_unknown, "Only /clock/times/now can be followed.");
    }
};

// The start and stop of the service.
class ClockService: public GenericServiceBootstrap
{
public:
    ~ClockService() override { shutdown(); }

protected:
    Poco::SharedPtr<SubscriptionTrigger> createSubscriptionInterface() override { return m_trigger = new ClockTrigger; }
    bool startupImpl() override
    {
        m_thread.startFunc([this] { run(); });
        return true;
    }
    bool shutdownImpl() override
    {
        m_stop.set();
        m_thread.join();
        return true;
    }

private:
    void run()
    {
        while (!m_stop.tryWait(1000))
            m_trigger->changedElement(HttpRequest::POST, "clock", "times", "now", nullptr);
    }

    Poco::SharedPtr<ClockTrigger> m_trigger;
    Poco::Thread m_thread;
    Poco::Event m_stop;
};

int main()
{
    Kesa::Host::ServiceHost::Options options;
    options.port = 8930;
    options.name = "clock"; // at the registry: "kesa watch clock/times/now" finds it
    ClockService service;
    return Kesa::Host::ServiceHost(service, options).run(); // until SIGTERM or SIGINT
}
