#include "Eventually.h"
#include "LoopbackConnection.h"
#include "Replies.h"
#include "Requests.h"
#include "SubscriptionManager.h"
#include "TestTrigger.h"

#include <CapturedLog.h>
#include <SubscriptionHandling/ISubscriptionDelegateFactory.h>
#include <WebSocketGenericRequestProcessor.h>
#include <Websocket/WebsocketEventPayload.h>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kesa::Service;
using namespace Kesa::Test;
using Kesa::Command::HttpRequest;
using Kesa::Command::RequestBase;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr auto TRACE = Poco::Message::PRIO_TRACE;
constexpr auto DEBUG = Poco::Message::PRIO_DEBUG;
constexpr auto WARNING = Poco::Message::PRIO_WARNING;
constexpr auto ERROR = Poco::Message::PRIO_ERROR;

const char* const AUTO = R"(,"autosubscribe":true,"updateLimit":0)";

/// A shop whose list of orders a client follows together with its elements.
class AutoSubscriptionTest: public testing::Test
{
protected:
    AutoSubscriptionTest()
    {
        trigger.initialise(manager);
        manager.SubscriptionRemoved += removals();
        haveOrders({"1", "2", "3"});
    }
    ~AutoSubscriptionTest() override
    {
        manager.SubscriptionRemoved -= removals();
        trigger.deinitialise();
    }

    /// The shop's orders are these now; nobody is told.
    void haveOrders(const std::vector<std::string>& ids)
    {
        trigger.deliver("/shop/orders", list(ids));
        for (const std::string& id: ids)
            trigger.deliver("/shop/orders/" + id, R"({"id":")" + id + "\"}");
    }
    static std::string list(const std::vector<std::string>& ids)
    {
        std::string text;
        for (const std::string& id: ids)
            text += (text.empty() ? "" : ",") + (R"({"id":")" + id + R"(","uri":"/shop/orders/)" + id + "\"}");
        return "[" + text + "]";
    }
    void reportOrders()
    {
        manager.updateSubscriptionsFromRequest(HttpRequest::POST, RequestBase(Poco::URI("/shop/orders")), nullptr);
    }

    void receive(const std::string& text)
    {
        Kesa::Net::WebSocketProxy proxy = client.proxy();
        Kesa::Net::WebsocketDataEventPayload payload(proxy);
        payload.data = text;
        processor.webSocketRequestReceived(payload);
    }
    void subscribe(const std::string& event, const std::string& members = AUTO)
    {
        receive(requestText("subscribe", event, members));
    }
    void unsubscribe(const std::string& event, const std::string& members = "")
    {
        receive(requestText("unsubscribe", event, members));
    }
    std::vector<std::string> replies() { return describeAll(client); }
    int removeAll() { return manager.removeAllSubscriptions(client.proxy()); }

    LoopbackConnection client;
    std::vector<std::string> removed; ///< the URLs of the subscriptions that went
    TestTrigger trigger;              // outlives the manager, whose worker loads through it
    SubscriptionManager manager;
    WebSocketGenericRequestProcessor processor{
        &manager, Poco::SharedPtr<ISubscriptionDelegateFactory>(new DefaultSubscriptionDelegateFactory(&trigger))};

private:
    void onRemoved(SubscriptionRemovedEventPayload& payload)
    {
        removed.push_back(payload.subscription.getUri().toString());
    }
    Poco::Delegate<AutoSubscriptionTest, SubscriptionRemovedEventPayload, false> removals()
    {
        return {this, &AutoSubscriptionTest::onRemoved};
    }
};

// Deriving

TEST_F(AutoSubscriptionTest, EachElementIsFollowedInTheOrderOfTheList)
{
    haveOrders({"3", "1", "2"});
    subscribe("/shop/orders");
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders ok", "data /shop/orders", "subscribe /shop/orders/3 ok",
                                       "data /shop/orders/3", "subscribe /shop/orders/1 ok", "data /shop/orders/1",
                                       "subscribe /shop/orders/2 ok", "data /shop/orders/2"));
    EXPECT_EQ(removeAll(), 4);
    EXPECT_THAT(replies(), IsEmpty()) << "nothing is acknowledged when a connection goes";
}

TEST_F(AutoSubscriptionTest, ADerivedSubscriptionHearsOfChanges)
{
    subscribe("/shop/orders");
    replies();
    trigger.deliver("/shop/orders/2", R"({"id":"2","amount":5})");
    trigger.changedElement(HttpRequest::POST, "shop", "orders", "2", nullptr);
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders/1 ok", "data /shop/orders/1",
                                       "subscribe /shop/orders/2 ok", "data /shop/orders/2",
                                       "subscribe /shop/orders/3 ok", "data /shop/orders/3", "data /shop/orders/2"))
        << "the list's subscription derives again, then the first subscription to the order gets its update";
}

TEST_F(AutoSubscriptionTest, TheFlagHasNoEffectOnAnElementServiceOrRoot)
{
    trigger.deliver("/shop", list({"1"}));
    trigger.deliver("/", list({"1"}));
    CapturedLog log;
    for (const char* event: {"/shop/orders/1", "/shop", "/"})
    {
        subscribe(event);
        EXPECT_THAT(replies(), ElementsAre("subscribe " + std::string(event) + " ok", "data " + std::string(event)));
    }
    EXPECT_EQ(log.count(TRACE, "handleAutoSubscribe"), 3U);
    EXPECT_EQ(removeAll(), 3);
}

TEST_F(AutoSubscriptionTest, WithoutTheFlagNothingIsDerived)
{
    subscribe("/shop/orders", "");
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders ok", "data /shop/orders"));
}

TEST_F(AutoSubscriptionTest, AnEmptyListDerivesNothing)
{
    haveOrders({});
    CapturedLog log(WARNING);
    subscribe("/shop/orders");
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders ok", "data /shop/orders"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(AutoSubscriptionTest, AnAnswerThatIsNoArrayDerivesNothing)
{
    trigger.deliver("/shop/orders", R"({"uri":"/shop/orders/1"})");
    CapturedLog log(WARNING);
    subscribe("/shop/orders");
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders ok", "data /shop/orders"));
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_EQ(trigger.loads(), 2);
}

struct Derivation
{
    const char* name;
    const char* list;    ///< the URL of the resource's subscription
    const char* uri;     ///< what the data source says of the one element
    const char* element; ///< the URL that is derived
};

class Derivations: public AutoSubscriptionTest, public testing::WithParamInterface<Derivation>
{
};

TEST_P(Derivations, GiveTheElementsUrl)
{
    trigger.deliver("/shop/orders", std::string(R"([{"id":"1","uri":")") + GetParam().uri + "\"}]");
    trigger.deliver("/shop/orders/a b%", "{}");
    subscribe(GetParam().list);
    const std::vector<std::string> got = replies();
    ASSERT_EQ(got.size(), 4U);
    EXPECT_EQ(got[2], "subscribe " + std::string(GetParam().element) + " ok");
    EXPECT_EQ(got[3], "data " + std::string(GetParam().element));

    const std::string path = "/shop/orders";
    const std::string followed = GetParam().list;
    const std::size_t fragment = std::min(followed.find('#'), followed.size());
    unsubscribe(path + followed.substr(fragment), R"(,"autosubscribe":true)");
    EXPECT_THAT(removed, ElementsAre(testing::_, GetParam().element));
}

INSTANTIATE_TEST_SUITE_P(
    All, Derivations,
    testing::Values(
        Derivation{"Plain", "/shop/orders", "/shop/orders/1", "/shop/orders/1"},
        Derivation{"FieldsAndExpansionOnly",
                   "/shop/orders?$sortby=name&$fields=id,name&$q=x&$offset=0&$limit=5&$expand=lines&a=b",
                   "/shop/orders/1", "/shop/orders/1?$fields=id,name&$expand=lines"},
        Derivation{"Fragment", "/shop/orders?$fields=id#f", "/shop/orders/1", "/shop/orders/1?$fields=id#f"},
        Derivation{"EncodedValues", "/shop/orders?$fields=a%26b%23,%C3%A9#caf%C3%A9%20%25", "/shop/orders/1",
                   "/shop/orders/1?$fields=a%26b%23,%C3%A9#caf%C3%A9%20%25"},
        Derivation{"EncodedKey", "/shop/orders?%24fields=id", "/shop/orders/1", "/shop/orders/1?$fields=id"},
        Derivation{"EncodedPath", "/shop/orders", "/shop/orders/a%20b%25", "/shop/orders/a%20b%25"},
        Derivation{"SchemeAndHostAreDropped", "/shop/orders", "http://host:80/shop/orders/1", "/shop/orders/1"},
        Derivation{"ASecondQuestionMark", "/shop/orders?$fields=id", "/shop/orders/1?a=b",
                   "/shop/orders/1?a=b?$fields=id"}),
    [](const auto& derivation) { return std::string(derivation.param.name); });

TEST_F(AutoSubscriptionTest, IntervalAndUpdateLimitAreHandedOn)
{
    std::vector<std::string> seen;
    trigger.onCheck(
        [&](SubscriptionSubscribingEventPayload& payload)
        {
            const SubscriptionRequest& request = payload.request;
            seen.push_back((request.hasInterval() ? std::to_string(request.getInterval()) : "-") + " " +
                           (request.hasUpdateLimit() ? std::to_string(request.getUpdateLimit()) : "-") +
                           (request.isAutosubscribe() ? " auto" : "") + (request.hasAuthorization() ? " auth" : ""));
        });
    haveOrders({"1"});
    subscribe("/shop/orders", R"(,"autosubscribe":true,"interval":60000,"authorization":"me")");
    subscribe("/shop/orders", R"(,"autosubscribe":true,"updateLimit":250)");
    EXPECT_THAT(seen, ElementsAre("60000 - auto auth", "60000 -", "- 250 auto", "- 250"));
}

TEST_F(AutoSubscriptionTest, ARefusedElementGetsItsRefusalAndTheOthersGoOn)
{
    trigger.onCheck(
        [](SubscriptionSubscribingEventPayload& payload)
        {
            if (payload.request.getUrlPath().getElement() == "2")
                payload.cancelSubscribing(SubscriptionError::event_name_unknown, "sold");
        });
    subscribe("/shop/orders");
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders ok", "data /shop/orders", "subscribe /shop/orders/1 ok",
                                       "data /shop/orders/1", "error /shop/orders/2 error 404",
                                       "subscribe /shop/orders/3 ok", "data /shop/orders/3"));
}

TEST_F(AutoSubscriptionTest, AnElementThatExpandsTooDeepGetsItsRefusalAndTheOthersGoOn)
{
    trigger.deliver("/shop/orders", R"([{"uri":"/shop/orders/1?$expand=4"},{"uri":"/shop/orders/2"}])");
    subscribe("/shop/orders");
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders ok", "data /shop/orders",
                                       "error /shop/orders/1?$expand=4 error 403", "subscribe /shop/orders/2 ok",
                                       "data /shop/orders/2"));
    EXPECT_EQ(trigger.checks(), 2) << "the refused one reached no listener";
}

TEST_F(AutoSubscriptionTest, TheLimitOfAConnectionHoldsForDerivedSubscriptionsToo)
{
    std::vector<std::string> ids;
    for (int i = 0; i < 201; ++i)
        ids.push_back(std::to_string(i));
    haveOrders(ids);
    subscribe("/shop/orders");
    const std::vector<std::string> got = replies();
    EXPECT_EQ(std::count_if(got.begin(), got.end(), [](const auto& line) { return line.find(" ok") != line.npos; }),
              200);
    EXPECT_EQ(got[got.size() - 2], "error /shop/orders/199 error 503");
    EXPECT_EQ(got[got.size() - 1], "error /shop/orders/200 error 503");
}

// Keeping up with the list

TEST_F(AutoSubscriptionTest, EachChangeOfTheListDerivesItsElementsAgain)
{
    haveOrders({"1"});
    subscribe("/shop/orders");
    haveOrders({"1", "2"});
    replies();
    reportOrders();
    EXPECT_THAT(replies(), ElementsAre("data /shop/orders", "subscribe /shop/orders/1 ok", "data /shop/orders/1",
                                       "subscribe /shop/orders/2 ok", "data /shop/orders/2"));
    EXPECT_EQ(removeAll(), 4);
}

TEST_F(AutoSubscriptionTest, AnElementThatTheClientFollowsWithTheFlagIsNotDerivedAgain)
{
    subscribe("/shop/orders/2");
    replies();
    subscribe("/shop/orders");
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders ok", "data /shop/orders", "subscribe /shop/orders/1 ok",
                                       "data /shop/orders/1", "subscribe /shop/orders/3 ok", "data /shop/orders/3"));
}

TEST_F(AutoSubscriptionTest, AnElementThatLeftTheListIsUnsubscribedAfterTheNewOnesCame)
{
    subscribe("/shop/orders/9");
    subscribe("/shop/orders/9#other");
    subscribe("/shop/orders/9?$fields=id", R"(,"autosubscribe":false)");
    haveOrders({"1"});
    replies();
    subscribe("/shop/orders");
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders ok", "data /shop/orders", "subscribe /shop/orders/1 ok",
                                       "data /shop/orders/1", "unsubscribe /shop/orders/9 ok"));
    EXPECT_THAT(removed, ElementsAre("/shop/orders/9", "/shop/orders/9?$fields=id"))
        << "all of that path and fragment, and no other";
}

TEST_F(AutoSubscriptionTest, AnElementThatWasTakenWithAnotherIsNotFoundAgain)
{
    subscribe("/shop/orders/9?$fields=id");
    subscribe("/shop/orders/9");
    haveOrders({});
    replies();
    CapturedLog log;
    subscribe("/shop/orders");
    EXPECT_THAT(replies(),
                ElementsAre("subscribe /shop/orders ok", "data /shop/orders", "unsubscribe /shop/orders/9 ok"));
    const std::string text = "removeSubscription: no subscriptions found for connection to ";
    EXPECT_EQ(log.count(DEBUG, text + client.proxy().peerAddress().toString()), 2U);
}

TEST_F(AutoSubscriptionTest, ASubscriptionThatIsNotInTheTreeDerivesNothing)
{
    SubscriptionObject::Ptr stranger = SubscriptionObject::Create(client.proxy(), subscribeTo("/shop/orders", AUTO));
    stranger->registerDataSource(trigger);
    CapturedLog log;
    manager.handleAutoSubscribe(*stranger);
    EXPECT_EQ(log.count(ERROR, "Loading elements for autoSubscribe failed"), 1U);
    EXPECT_THAT(replies(), IsEmpty());
}

TEST_F(AutoSubscriptionTest, AChangeBeforeTheSubscriptionHasItsDataSourceDerivesNothing)
{
    Kesa::Net::WebSocketProxy proxy = client.proxy();
    SubscriptionObject::Ptr subscription = manager.addSubscription(proxy, subscribeTo("/shop/orders", AUTO));
    reportOrders();
    EXPECT_THAT(replies(), IsEmpty());
    subscription->registerDataSource(trigger);
    subscription->initialUpdate();
    manager.handleAutoSubscribe(*subscription);
    EXPECT_EQ(replies().size(), 7U) << "its own thread makes up for it";
}

TEST_F(AutoSubscriptionTest, ASubscriptionThatIsGoneDerivesNothing)
{
    haveOrders({});
    Kesa::Net::WebSocketProxy proxy = client.proxy();
    SubscriptionObject::Ptr subscription = manager.addSubscription(proxy, subscribeTo("/shop/orders", AUTO));
    subscription->registerDataSource(trigger);
    subscription->initialUpdate();
    subscribe("/shop/orders", "");
    removed.clear();
    haveOrders({"1"});
    replies();
    trigger.onLoad(
        [&](const SubscriptionRequest&)
        {
            trigger.onLoad(nullptr);
            removeAll();
        });
    reportOrders();
    EXPECT_EQ(removed.size(), 2U);
    EXPECT_EQ(removeAll(), 0);
}

TEST_F(AutoSubscriptionTest, AnEndedConnectionDerivesNothing)
{
    Kesa::Net::WebsocketConnectionManager server;
    client.serveBy(server);
    haveOrders({});
    subscribe("/shop/orders");
    haveOrders({"1"});
    client.leave();
    ASSERT_TRUE(eventually([this] { return client.proxy().hasEnded(); }));
    const int checks = trigger.checks();
    EXPECT_NO_THROW(reportOrders());
    EXPECT_EQ(trigger.checks(), checks);
    EXPECT_EQ(removeAll(), 1);
}

// Failures

struct Malformed
{
    const char* name;
    const char* list;
    const char* exception;
    const char* text;
};

class MalformedLists: public AutoSubscriptionTest, public testing::WithParamInterface<Malformed>
{
};

TEST_P(MalformedLists, RaiseAndDeriveNothing)
{
    LoopbackConnection other;
    subscribe("/shop/orders");
    Kesa::Net::WebSocketProxy proxy = other.proxy();
    SubscriptionObject::Ptr last = manager.addSubscription(proxy, subscribeTo("/shop/orders", R"(,"updateLimit":0)"));
    last->registerDataSource(trigger);
    last->initialUpdate();
    other.nextMessage();
    replies();
    trigger.deliver("/shop/orders", GetParam().list);
    try
    {
        reportOrders();
        FAIL() << "nothing was raised";
    }
    catch (const Poco::Exception& exc)
    {
        EXPECT_STREQ(exc.name(), GetParam().exception);
        EXPECT_THAT(exc.message(), testing::HasSubstr(GetParam().text));
    }
    EXPECT_THAT(replies(), ElementsAre("data /shop/orders"));
    EXPECT_FALSE(other.hasMessage()) << "the rest of the group gets no update for this change";
}

INSTANTIATE_TEST_SUITE_P(
    All, MalformedLists,
    testing::Values(Malformed{"NoObject", R"([{"uri":"/shop/orders/1"},7])", "Bad cast exception", "Can not convert "},
                    Malformed{"Empty", R"([null])", "Invalid access", "Can not extract empty value."},
                    Malformed{"NoUri", R"([{"uri":"/shop/orders/1"},{"id":"2"}])", "Invalid access",
                              "Can not convert empty value."}),
    [](const auto& malformed) { return std::string(malformed.param.name); });

TEST_F(AutoSubscriptionTest, AFailedWriteLeavesTheOperation)
{
    haveOrders({});
    Kesa::Net::WebSocketProxy proxy = client.proxy();
    SubscriptionObject::Ptr subscription = manager.addSubscription(proxy, subscribeTo("/shop/orders", AUTO));
    subscription->registerDataSource(trigger);
    haveOrders({"1"});
    client.breakConnection();
    EXPECT_THROW(manager.handleAutoSubscribe(*subscription), Poco::Exception);
    EXPECT_EQ(removeAll(), 2) << "what was added before the write stays until the connection is cleaned up";
}

TEST_F(AutoSubscriptionTest, UnsubscribingWithoutADataSourceIsAFaultOfTheProgram)
{
    Kesa::Net::WebSocketProxy proxy = client.proxy();
    manager.addSubscription(proxy, subscribeTo("/shop/orders", AUTO));
    manager.addSubscription(proxy, subscribeTo("/shop/orders/1"));
    EXPECT_THROW(manager.removeSubscription(
                     proxy, unsubscribeFrom("/shop/orders?$offset=0&$limit=1", R"(,"autosubscribe":true)")),
                 Poco::NullPointerException);
}

// Letting go of the list

TEST_F(AutoSubscriptionTest, UnsubscribingWithTheFlagTakesTheElementsToo)
{
    subscribe("/shop/orders");
    replies();
    CapturedLog log;
    unsubscribe("/shop/orders", R"(,"autosubscribe":true)");
    EXPECT_EQ(log.count(TRACE, "handleAutoUnSubscribe"), 1U) << "derived ones stop at once";
    EXPECT_THAT(removed, ElementsAre("/shop/orders", "/shop/orders/1", "/shop/orders/2", "/shop/orders/3"));
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders/1 ok", "unsubscribe /shop/orders/2 ok",
                                       "unsubscribe /shop/orders/3 ok", "unsubscribe /shop/orders ok"));
    EXPECT_EQ(removeAll(), 0);
}

TEST_F(AutoSubscriptionTest, UnsubscribingWithoutTheFlagLeavesTheElements)
{
    subscribe("/shop/orders");
    replies();
    unsubscribe("/shop/orders");
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders ok"));
    EXPECT_EQ(removeAll(), 3);
}

TEST_F(AutoSubscriptionTest, TheFlagOfAnUnsubscribeAloneDoesNotTakeElements)
{
    subscribe("/shop/orders", "");
    subscribe("/shop/orders/1", "");
    replies();
    unsubscribe("/shop/orders", R"(,"autosubscribe":true)");
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders ok"));
    EXPECT_EQ(removeAll(), 1);
}

TEST_F(AutoSubscriptionTest, ElementsThatTheClientMadeItselfGoTooIfTheFragmentIsTheSame)
{
    haveOrders({});
    trigger.deliver("/shop/orders/7", "{}");
    subscribe("/shop/orders#f");
    subscribe("/shop/orders/7#f", "");
    subscribe("/shop/orders/7#g", "");
    subscribe("/shop/orders/7", "");
    replies();
    unsubscribe("/shop/orders#f", R"(,"autosubscribe":true)");
    EXPECT_THAT(removed, ElementsAre("/shop/orders#f", "/shop/orders/7#f"));
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders/7#f ok", "unsubscribe /shop/orders#f ok"));
}

TEST_F(AutoSubscriptionTest, AnElementThatIsFollowedTwiceIsTakenOnce)
{
    haveOrders({"1"});
    subscribe("/shop/orders");
    reportOrders(); // derives it again
    replies();
    CapturedLog log;
    unsubscribe("/shop/orders", R"(,"autosubscribe":true)");
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders/1 ok", "unsubscribe /shop/orders ok"));
    const std::string text = "removeSubscription: no subscriptions found for connection to ";
    EXPECT_EQ(log.count(DEBUG, text + client.proxy().peerAddress().toString()), 2U);
}

TEST_F(AutoSubscriptionTest, WithoutElementsTheTreeHasNoResourceToLookIn)
{
    haveOrders({});
    subscribe("/shop/orders");
    replies();
    CapturedLog log;
    unsubscribe("/shop/orders", R"(,"autosubscribe":true)");
    EXPECT_EQ(log.count(ERROR, "Loading elements for autoUnSubscribe failed"), 1U);
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders ok"));
}

TEST_F(AutoSubscriptionTest, UnsubscribingOnePageTakesTheElementsOfThatPage)
{
    subscribe("/shop/orders");
    replies();
    trigger.onLoad(
        [&](const SubscriptionRequest& request)
        {
            EXPECT_TRUE(request.hasPagingCriteria());
            trigger.deliver("/shop/orders", list({"2", "3"}));
        });
    unsubscribe("/shop/orders?$offset=1&$limit=2", R"(,"autosubscribe":true)");
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders/2 ok", "unsubscribe /shop/orders/3 ok",
                                       "unsubscribe /shop/orders ok"));
    EXPECT_THAT(removed, ElementsAre("/shop/orders", "/shop/orders/2", "/shop/orders/3"));
    EXPECT_EQ(removeAll(), 1);
}

} // namespace
