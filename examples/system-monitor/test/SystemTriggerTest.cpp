#include "SystemTrigger.h"

#include <Command/WebSocketResponseObject.h>
#include <Poco/JSON/Parser.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionRequest.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Kesa::Command;
using namespace Kesa::Service;
using namespace SystemMonitor;
using testing::ElementsAre;
using testing::HasSubstr;

Poco::JSON::Object::Ptr object(const std::string& json)
{
    return Poco::JSON::Parser().parse(json).extract<Poco::JSON::Object::Ptr>();
}

Snapshot snapshot()
{
    return {{"cpus", {{"all", object(R"({"id":"all","x":1})")}, {"cpu0", object(R"({"id":"cpu0","x":1,"y":2})")}}},
            {"memory", {}}};
}

SubscriptionRequest request(const std::string& event)
{
    return SubscriptionRequest(
        WebSocketRequestObject(WebSocketRequestObject::TYPE_SUBSCRIBE, event, {}, {}, nullptr, false));
}

/// What a client would read: the data, or the code of an error, or "nothing".
std::string fetched(SystemTrigger& trigger, const std::string& event)
{
    const SubscriptionRequest asked = request(event);
    WebSocketResponseObject response(asked);
    if (!trigger.fetchData(asked, response))
        return "nothing";
    std::ostringstream text;
    if (response.getObject()->has("code"))
        text << response.getObject()->getValue<int>("code") << " ";
    Poco::JSON::Stringifier::stringify(response.getData(), text);
    return text.str();
}

struct UrlCase
{
    const char* event;
    const char* data;
    SubscriptionError refusal;
};

class SystemTriggerUrls: public testing::TestWithParam<UrlCase>
{
protected:
    SystemTrigger trigger{snapshot()};
};

TEST_P(SystemTriggerUrls, GiveTheirData)
{
    EXPECT_EQ(fetched(trigger, GetParam().event), GetParam().data);
}

TEST_P(SystemTriggerUrls, MayBeFollowedIfTheyExist)
{
    SubscriptionRequest asked = request(GetParam().event);
    SubscriptionSubscribingEventPayload payload(asked);
    trigger.checkNewSubscription(payload);
    EXPECT_EQ(asked.result().getSubscriptionError(), GetParam().refusal);
    EXPECT_EQ(asked.result().hasErrorMsg(), asked.isCanceled());
}

constexpr auto NONE = SubscriptionError::none;
constexpr auto UNKNOWN = SubscriptionError::event_name_unknown;

INSTANTIATE_TEST_SUITE_P(
    All, SystemTriggerUrls,
    testing::Values(
        UrlCase{"/", R"([{"id":"system","name":"system","uri":"/system"}])", NONE},
        UrlCase{
            "/system",
            R"([{"id":"cpus","name":"cpus","uri":"/system/cpus"},{"id":"memory","name":"memory","uri":"/system/memory"}])",
            NONE},
        UrlCase{"/system/cpus", R"([{"id":"all","x":1},{"id":"cpu0","x":1,"y":2}])", NONE},
        UrlCase{"/system/cpus/", R"([{"id":"all","x":1},{"id":"cpu0","x":1,"y":2}])", NONE},
        UrlCase{"/system/memory", "[]", NONE}, UrlCase{"/system/cpus/cpu0", R"({"id":"cpu0","x":1,"y":2})", NONE},
        UrlCase{"/system/cpus/cpu0?$fields=y", R"({"id":"cpu0","y":2})", NONE},
        UrlCase{"/system/cpus?y=2", R"([{"id":"cpu0","x":1,"y":2}])", NONE},
        UrlCase{"/system/cpus?$q=cpu0", R"([{"id":"cpu0","x":1,"y":2}])", NONE},
        UrlCase{"/system/cpus?$limit=none", R"([{"id":"all","x":1},{"id":"cpu0","x":1,"y":2}])",
                SubscriptionError::syntax_error},
        UrlCase{"/other", "nothing", UNKNOWN}, UrlCase{"/other/cpus", "nothing", UNKNOWN},
        UrlCase{"/other/cpus/cpu0", "nothing", UNKNOWN}, UrlCase{"/system/tapes", "nothing", UNKNOWN},
        UrlCase{"/system/cpus/cpu0/x", "nothing", UNKNOWN}, UrlCase{"/system/$id", "nothing", UNKNOWN},
        UrlCase{"/system/cpus/$spec", "nothing", UNKNOWN}, UrlCase{"/system/cpus/cpu9", "410 {}", UNKNOWN},
        UrlCase{"/system/tapes/1", "410 {}", UNKNOWN}));

TEST(SystemTrigger, HasNothingForARequestOverHttpWhereNothingIs)
{
    SystemTrigger trigger(snapshot());
    const SubscriptionRequest asked(
        WebSocketRequestObject(WebSocketRequestObject::TYPE_DATA, "/system/cpus/cpu9", {}, {}, nullptr, false));
    WebSocketResponseObject response(asked);
    EXPECT_FALSE(trigger.fetchData(asked, response));
}

TEST(SystemTrigger, TellsAClientWhichUrlItRefused)
{
    SystemTrigger trigger(snapshot());
    SubscriptionRequest asked = request("/system/cpus/cpu9?x=1");
    SubscriptionSubscribingEventPayload payload(asked);
    trigger.checkNewSubscription(payload);
    EXPECT_THAT(asked.result().getErrorMsg(), HasSubstr("/system/cpus/cpu9"));
}

/// Notes what would go to the subscriptions, and what they would fetch then.
class RecordingTrigger: public SystemTrigger
{
public:
    using SystemTrigger::SystemTrigger;

    bool changedElement(HttpRequest::RequestType type, const std::string& service, const std::string& resource,
                        const std::string& id, const Poco::JSON::Object* data) override
    {
        std::ostringstream text;
        text << type << " /" << service << "/" << resource << "/" << id << " ";
        data->stringify(text);
        text << ", then " << fetched(*this, "/" + service + "/" + resource + "/" + id);
        reports.push_back(text.str());
        return true;
    }

    std::vector<std::string> reports;
};

TEST(SystemTrigger, ReportsWhatChangedWhenTheNewStateStands)
{
    RecordingTrigger trigger(snapshot());
    Snapshot next = snapshot();
    next["cpus"].erase("all");
    next["cpus"]["cpu0"] = object(R"({"id":"cpu0","x":1,"y":3})");
    next["memory"]["ram"] = object(R"({"id":"ram"})");
    trigger.update(std::move(next));
    EXPECT_THAT(trigger.reports, ElementsAre(R"(DELETE /system/cpus/all {"id":"all","x":1}, then 410 {})",
                                             R"(POST /system/cpus/cpu0 {"y":3}, then {"id":"cpu0","x":1,"y":3})",
                                             R"(PUT /system/memory/ram {"id":"ram"}, then {"id":"ram"})",
                                             R"(POST /system/memory/ram {"id":"ram"}, then {"id":"ram"})"));
}

TEST(SystemTrigger, ReportsNothingWhereNothingChanged)
{
    RecordingTrigger trigger(snapshot());
    trigger.update(snapshot());
    EXPECT_TRUE(trigger.reports.empty());
}

} // namespace
