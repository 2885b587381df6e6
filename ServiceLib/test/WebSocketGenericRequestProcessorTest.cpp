#include <WebSocketGenericRequestProcessor.h>

#include "Eventually.h"
#include "LoopbackConnection.h"
#include "Replies.h"
#include "Requests.h"
#include "SubscriptionManager.h"
#include "TestTrigger.h"

#include <CapturedLog.h>
#include <SubscriptionHandling/ISubscriptionDelegateFactory.h>
#include <Websocket/WebsocketEventPayload.h>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kesa::Service;
using namespace Kesa::Test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr auto TRACE = Poco::Message::PRIO_TRACE;
constexpr auto DEBUG = Poco::Message::PRIO_DEBUG;
constexpr auto INFO = Poco::Message::PRIO_INFORMATION;

typedef Poco::SharedPtr<ISubscriptionDelegateFactory> FactoryPtr;

/// The processor of a shop with one client.
class WebSocketGenericRequestProcessorTest: public testing::Test
{
protected:
    WebSocketGenericRequestProcessorTest()
    {
        trigger.deliver("/shop/orders", R"([{"id":"1","uri":"/shop/orders/1"}])");
        trigger.deliver("/shop/orders/1", R"({"amount":1})");
        trigger.initialise(manager);
    }
    ~WebSocketGenericRequestProcessorTest() override { trigger.deinitialise(); }

    /// A message of the client comes in.
    void receive(const std::string& text)
    {
        Kesa::Net::WebSocketProxy proxy = client.proxy();
        Kesa::Net::WebsocketDataEventPayload payload(proxy);
        payload.data = text;
        processor.webSocketRequestReceived(payload);
    }
    std::vector<std::string> replies() { return describeAll(client); }
    std::string address() const { return client.proxy().address().toString(); }

    LoopbackConnection client;
    TestTrigger trigger; // outlives the manager, whose worker loads through it
    SubscriptionManager manager;
    WebSocketGenericRequestProcessor processor{&manager, FactoryPtr(new DefaultSubscriptionDelegateFactory(&trigger))};
};

/// What a client gets for a message, in the presence of a subscription to "/shop/orders/1", and what is logged at Info:
/// what precedes the client's address and, if not empty, what stands between address and message.
struct Case
{
    const char* name;
    std::string message;
    std::vector<std::string> replies;
    const char* logged = "";
    const char* separator = "";
};

class Messages: public WebSocketGenericRequestProcessorTest, public testing::WithParamInterface<Case>
{
};

TEST_P(Messages, GetTheirReplies)
{
    receive(requestText("subscribe", "/shop/orders/1"));
    replies();
    trigger.onCheck(
        [](Kesa::Service::SubscriptionSubscribingEventPayload& payload)
        {
            if (payload.request.getUrlPath().getService() == "bank")
                payload.cancelSubscribing(SubscriptionError::event_name_unknown, "this is a shop");
        });
    CapturedLog log(INFO);
    receive(GetParam().message);
    EXPECT_EQ(replies(), GetParam().replies);
    const std::string line = GetParam().logged;
    if (line.empty())
        EXPECT_THAT(log.entries(), IsEmpty());
    else
        EXPECT_TRUE(log.contains(INFO, line + address() + GetParam().separator + GetParam().message)) << line;
    EXPECT_EQ(log.count(INFO), line.empty() ? 0U : 1U);
}

const Case CASES[] = {
    {"NoJson", "hello", {"error - error 400"}},
    {"Empty", "", {"error - error 400"}},
    {"NoType", R"({"event":"/shop/orders"})", {"error /shop/orders error 400"}},
    {"NoEvent", R"({"type":"subscribe"})", {"error - error 400"}},
    {"WrongMember",
     R"({"type":"subscribe","event":"/shop/orders","interval":"soon"})",
     {"error /shop/orders error 400"}},
    {"LevelTooDeep",
     requestText("subscribe", "/shop/orders/1?$expand=4"),
     {"error /shop/orders/1?$expand=4 error 403"}},
    {"LevelOnAList", requestText("subscribe", "/shop/orders?$expand=1"), {"error /shop/orders?$expand=1 error 403"}},
    {"Vetoed",
     requestText("subscribe", "/bank/accounts"),
     {"error /bank/accounts error 404"},
     "Unable to add subscription: "},
    {"NoPlace",
     requestText("subscribe", "/shop/$spec"),
     {"error /shop/$spec error 400"},
     "Unable to add subscription: "},
    {"Accepted",
     requestText("subscribe", "/shop/orders"),
     {"subscribe /shop/orders ok", "data /shop/orders"},
     "New subscription: ",
     " "},
    {"Data", R"({"type":"data","event":"/shop/orders/1","data":{"amount":7}})", {"error /shop/orders/1 error 400"}},
    {"Unsubscribed",
     requestText("unsubscribe", "/shop/orders/1"),
     {"unsubscribe /shop/orders/1 ok"},
     "Subscription removed: "},
    {"UnsubscribedWithQuery",
     requestText("unsubscribe", "/shop/orders/1?$fields=a"),
     {"unsubscribe /shop/orders/1 ok"},
     "Subscription removed: "},
    {"NeverSubscribed",
     requestText("unsubscribe", "/shop/orders"),
     {"error /shop/orders error 404"},
     "Unable to remove subscription (not found): "},
    {"OtherFragment",
     requestText("unsubscribe", "/shop/orders/1#f"),
     {"error /shop/orders/1#f error 404"},
     "Unable to remove subscription (not found): "},
    {"NotFoundWithQuery",
     requestText("unsubscribe", "/shop/orders?$q=a"),
     {"error /shop/orders error 404"},
     "Unable to remove subscription (not found): "},
    {"UnknownType", requestText("dance", "/shop/orders"), {"error /shop/orders error 400"}, "Bad data received: "},
    {"TypesAreWholeWords",
     requestText("subscribed", "/shop/orders"),
     {"error /shop/orders error 400"},
     "Bad data received: "},
};

INSTANTIATE_TEST_SUITE_P(All, Messages, testing::ValuesIn(CASES),
                         [](const auto& message) { return std::string(message.param.name); });

TEST_F(WebSocketGenericRequestProcessorTest, EachMessageIsTraced)
{
    CapturedLog log;
    receive("hello");
    EXPECT_EQ(log.entries().front().priority, TRACE);
    EXPECT_EQ(log.entries().front().text,
              "New Data from " + client.proxy().peerAddress().toString() + " to " + address());
    EXPECT_EQ(log.count(TRACE), log.entries().size()) << "text that is no request is not worth more";
}

TEST_F(WebSocketGenericRequestProcessorTest, LineBreaksOfAClientBeginNoLineInTheLog)
{
    CapturedLog log(INFO);
    receive("{\n\"type\":\"dance\",\r\n\"event\":\"/shop\"}");
    ASSERT_EQ(log.entries().size(), 1U);
    EXPECT_TRUE(log.contains(INFO, "Bad data received: " + address() + "{ \"type\":\"dance\",  \"event\":\"/shop\"}"));
}

TEST_F(WebSocketGenericRequestProcessorTest, DataOfAClientIsRefusedAndHasNoEffect)
{
    receive(requestText("subscribe", "/shop/orders/1"));
    replies();
    const int loads = trigger.loads();
    receive(requestText("data", "/shop/orders/1", R"(,"data":{"amount":7})"));
    const Poco::JSON::Object::Ptr reply = client.nextMessage();
    EXPECT_EQ(reply->getValue<int>("code"), 400);
    EXPECT_EQ(reply->getValue<std::string>("message"),
              "The service registry can emit 'data' events but does not receive those.");
    EXPECT_EQ(trigger.loads(), loads);
    EXPECT_THAT(replies(), IsEmpty());
}

TEST_F(WebSocketGenericRequestProcessorTest, AnInvalidExpansionReachesNoListener)
{
    receive(requestText("subscribe", "/shop/orders/1?$expand=4"));
    EXPECT_EQ(trigger.checks(), 0);
    EXPECT_EQ(trigger.loads(), 0);
}

TEST_F(WebSocketGenericRequestProcessorTest, AVetoGivesItsOwnStatusAndText)
{
    trigger.onCheck(
        [](Kesa::Service::SubscriptionSubscribingEventPayload& payload)
        { payload.cancelSubscribing(SubscriptionError::access_denied_or_token_invalid_or_expired, "members only"); });
    receive(requestText("subscribe", "/shop/orders"));
    const Poco::JSON::Object::Ptr reply = client.nextMessage();
    EXPECT_EQ(reply->getValue<int>("code"), 403);
    EXPECT_EQ(reply->getValue<std::string>("message"), "members only");
    EXPECT_THAT(replies(), IsEmpty());
    EXPECT_EQ(trigger.loads(), 0);
}

TEST_F(WebSocketGenericRequestProcessorTest, ALimitIsToldWithItsText)
{
    for (int i = 0; i < 200; ++i)
        receive(requestText("subscribe", "/shop/orders/1"));
    replies();
    receive(requestText("subscribe", "/shop/orders/1"));
    const Poco::JSON::Object::Ptr reply = client.nextMessage();
    EXPECT_EQ(reply->getValue<int>("code"), 503);
    EXPECT_EQ(reply->getValue<std::string>("message"), "N_EVENT_SUB_MAX limit reached");
}

TEST_F(WebSocketGenericRequestProcessorTest, AnUnsubscribeGoesByPathAndFragment)
{
    receive(requestText("subscribe", "/shop/orders?$fields=id"));
    receive(requestText("subscribe", "/shop/orders?$fields=name"));
    receive(requestText("subscribe", "/shop/orders#f"));
    replies();
    receive(requestText("unsubscribe", "/shop/orders?$q=x"));
    receive(requestText("unsubscribe", "/shop/orders"));
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders ok", "error /shop/orders error 404"));
    receive(requestText("unsubscribe", "/shop/orders?$q=x#f"));
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders#f ok"));
}

TEST_F(WebSocketGenericRequestProcessorTest, UnsubscribingTwiceFailsTheSecondTime)
{
    receive(requestText("subscribe", "/shop/orders/1"));
    replies();
    receive(requestText("unsubscribe", "/shop/orders/1"));
    receive(requestText("unsubscribe", "/shop/orders/1"));
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders/1 ok", "error /shop/orders/1 error 404"));
}

TEST_F(WebSocketGenericRequestProcessorTest, AFailedLoadGivesAnAcknowledgementAlone)
{
    receive(requestText("subscribe", "/shop/orders/2"));
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders/2 ok"));
}

TEST_F(WebSocketGenericRequestProcessorTest, AutoSubscriptionComesAfterTheFirstData)
{
    receive(requestText("subscribe", "/shop/orders", R"(,"autosubscribe":true)"));
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders ok", "data /shop/orders", "subscribe /shop/orders/1 ok",
                                       "data /shop/orders/1"));
}

TEST_F(WebSocketGenericRequestProcessorTest, ASubscriptionGetsItsDataFromTheFactorysSource)
{
    receive(requestText("subscribe", "/shop/orders/1", R"(,"updateLimit":0)"));
    replies();
    trigger.deliver("/shop/orders/1", R"({"amount":2})");
    trigger.changedElement(Kesa::Command::HttpRequest::POST, "shop", "orders", "1", nullptr);
    EXPECT_EQ(client.nextMessage()->getObject("data")->getValue<int>("amount"), 2);
}

TEST_F(WebSocketGenericRequestProcessorTest, AnExceptionOfTheDataSourceLeavesTheSubscription)
{
    trigger.onLoad([](const SubscriptionRequest&) { throw Poco::DataException("disk on fire"); });
    EXPECT_THROW(receive(requestText("subscribe", "/shop/orders/1")), Poco::DataException);
    EXPECT_THAT(replies(), ElementsAre("subscribe /shop/orders/1 ok"));
    trigger.onLoad(nullptr);
    receive(requestText("unsubscribe", "/shop/orders/1"));
    EXPECT_THAT(replies(), ElementsAre("unsubscribe /shop/orders/1 ok"));
}

TEST_F(WebSocketGenericRequestProcessorTest, AFailedWriteLeavesTheSubscriptionToTheClose)
{
    client.breakConnection();
    EXPECT_THROW(receive(requestText("subscribe", "/shop/orders/1")), Poco::Exception);
    EXPECT_EQ(manager.removeAllSubscriptions(client.proxy()), 1);
}

TEST_F(WebSocketGenericRequestProcessorTest, ANullSourceIsAFaultOfTheProgram)
{
    WebSocketGenericRequestProcessor faulty(&manager, FactoryPtr(new DefaultSubscriptionDelegateFactory(nullptr)));
    Kesa::Net::WebSocketProxy proxy = client.proxy();
    Kesa::Net::WebsocketDataEventPayload payload(proxy);
    payload.data = requestText("subscribe", "/shop/orders/1");
    EXPECT_THROW(faulty.webSocketRequestReceived(payload), Poco::BugcheckException);
    WebSocketGenericRequestProcessor withoutFactory(&manager, FactoryPtr());
    EXPECT_THROW(withoutFactory.webSocketRequestReceived(payload), Poco::NullPointerException);
}

TEST_F(WebSocketGenericRequestProcessorTest, AMessageOfAnEndedConnectionIsDropped)
{
    Kesa::Net::WebsocketConnectionManager server;
    client.serveBy(server);
    const std::string peer = client.proxy().peerAddress().toString();
    client.leave();
    ASSERT_TRUE(eventually([this] { return client.proxy().hasEnded(); }));
    CapturedLog log;
    EXPECT_NO_THROW(receive(requestText("subscribe", "/shop/orders/1")));
    EXPECT_TRUE(log.contains(DEBUG, "Dropped a message of a connection that has ended: " + peer));
    EXPECT_EQ(trigger.checks(), 0);
    EXPECT_EQ(log.count(INFO), 0U);
}

} // namespace
