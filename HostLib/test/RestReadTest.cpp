#include "RestFixture.h"

#include <Command/WebSocketResponseObject.h>
#include <SubscriptionHandling/SubscriptionEvents.h>
#include <SubscriptionHandling/SubscriptionRequest.h>
#include <Utf8.h>

using Kesa::Command::WebSocketRequestObject;
using Kesa::Command::WebSocketResponseObject;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RestReadTest: public RestFixture
{
protected:
    RestReadTest()
    {
        shop->put("orders", 1, R"({"price":10,"color":"red"})");
        shop->put("orders", 2, R"({"price":9,"color":"blue"})");
        shop->put("customers", 1, R"({"age":30,"order":")" + urlOf(1) + R"("})");
    }

    static Kesa::Service::SubscriptionRequest subscription(const std::string& url)
    {
        return Kesa::Service::SubscriptionRequest(
            WebSocketRequestObject(WebSocketRequestObject::TYPE_SUBSCRIBE, url, {}, {}, nullptr, false),
            Poco::Net::SocketAddress(), Poco::Net::SocketAddress());
    }
};

TEST_F(RestReadTest, ReadsTheRootAServiceAResourceAndAnElement)
{
    EXPECT_EQ(parseJson(get("/").body)->getArray("data")->getObject(0)->getValue<std::string>("uri"), "/shop");
    EXPECT_EQ(parseJson(get("/shop").body)->getArray("data")->getObject(1)->getValue<std::string>("uri"),
              "/shop/orders");
    EXPECT_THAT(ids(get("/shop/orders")), ElementsAre(Shop::id(1), Shop::id(2)));
    EXPECT_EQ(data(get(urlOf(2)))->getValue<std::string>("color"), "blue");
    for (const std::string& url: {std::string("/"), std::string("/shop"), std::string("/shop/orders"), urlOf(1)})
    {
        const auto document = parseJson(get(url).body);
        EXPECT_EQ(document->getValue<std::string>("status"), "ok");
        EXPECT_EQ(document->size(), 2u) << url;
    }
}

TEST_F(RestReadTest, ShapesTheAnswerAsTheQueryAsks)
{
    EXPECT_THAT(ids(get("/shop/orders?$sortby=price")), ElementsAre(Shop::id(2), Shop::id(1)));
    EXPECT_THAT(ids(get("/shop/orders?color=r*")), ElementsAre(Shop::id(1)));
    EXPECT_THAT(ids(get("/shop/orders?$q=BLUE")), ElementsAre(Shop::id(2)));
    EXPECT_THAT(ids(get("/shop/orders?$offset=1&$limit=1")), ElementsAre(Shop::id(2)));
    EXPECT_THAT(ids(get("/shop/orders?$offset=" + Shop::id(2))), ElementsAre(Shop::id(2)));
    EXPECT_FALSE(data(get(urlOf(1) + "?$fields=price"))->has("color"));
    EXPECT_EQ(data(get("/shop/customers/" + Shop::id(1) + "?$expand=1"))->getObject("order")->getValue<int>("price"),
              10);
    EXPECT_EQ(
        data(get("/shop/customers/" + Shop::id(1) + "?$expand=order"))->getObject("order")->getValue<int>("price"), 10);
    const auto expanded = parseJson(get("/shop/customers?$expand=order").body)->getArray("data")->getObject(0);
    EXPECT_EQ(expanded->getObject("order")->getValue<int>("price"), 10);
}

TEST_F(RestReadTest, AnswersWhatIsNotThereWith404)
{
    for (const std::string url: {"/market", "/shop/nothing", "/shop/orders/1", "/shop/orders/no-uuid", "/market/a/b",
                                 "/shop/orders/1/2", "/shop/$rights", "/$id", "/shop/orders/$spec"})
        expectError(get(url), 404);
}

TEST_F(RestReadTest, RefusesABadQueryAndSaysWhatIsWrongOnBothRoadsAlike)
{
    const struct
    {
        const char* url;
        int code;
        const char* message;
    } rows[] = {{"/shop/orders?$limit=-1", 400, "$limit"},
                {"/shop/orders?$limit=1&$limit=2", 400, "stands twice"},
                {"/shop/orders?$unknown=2", 400, "$unknown"},
                {"/shop/orders?color=%ff", 400, "UTF-8"},
                {"/shop/orders?$expand=1", 403, ""},
                {"/shop/customers?$fields=age,size", 400, "no member \"size\""},
                {"/shop/customers?$sortby=-size", 400, "no member \"size\""},
                {"/shop/customers?size=1", 400, "no member \"size\""},
                {"/shop/customers?$limit=0&size=1", 400, "$limit"},
                {"/shop/nothing?$limit=0", 404, "nothing"},
                {"/market", 404, "market"},
                {"/shop/orders/no-uuid", 404, "no-uuid"}};
    for (const auto& row: rows)
    {
        expectError(get(row.url), row.code, row.message);
        auto request = subscription(row.url);
        Kesa::Service::SubscriptionSubscribingEventPayload payload(request);
        trigger->checkNewSubscription(payload);
        EXPECT_EQ(static_cast<int>(request.result().getSubscriptionError()), row.code) << row.url;
        EXPECT_EQ(request.result().getErrorMsg(), parseJson(get(row.url).body)->getValue<std::string>("message"));
    }
    expectError(get(urlOf(1) + "?$expand=99"), 403);
    EXPECT_EQ(get("/shop/orders?$fields=size&$sortby=size&size=1").status, 200) << "these declare no members";
    EXPECT_EQ(get("/shop/customers?$fields=age,city,name,id,uri").status, 200);
}

TEST_F(RestReadTest, RepeatsWhatIsNoUtf8InAnErrorDocumentThatIs)
{
    for (const char* url: {"/shop/%ff", "/shop/orders/%ff%c3", "/%c3%28", "/shop/orders?%ff=1", "/shop/orders?$q=%ff"})
    {
        const auto answer = get(url);
        EXPECT_EQ(answer.status / 100, 4) << url;
        expectError(answer, answer.status);
        EXPECT_TRUE(Kesa::Command::isUtf8(answer.body)) << url;
    }
}

TEST_F(RestReadTest, GivesASubscriptionTheDataOfAGet)
{
    for (const std::string& url:
         {std::string("/"), std::string("/shop"), std::string("/shop/orders"),
          std::string("/shop/orders?$sortby=price&$fields=price&$limit=1"), std::string("/shop/orders?$q=red"),
          urlOf(1), urlOf(1) + "?$fields=color", "/shop/customers/" + Shop::id(1) + "?$expand=2"})
    {
        auto request = subscription(url);
        Kesa::Service::SubscriptionSubscribingEventPayload payload(request);
        trigger->checkNewSubscription(payload);
        EXPECT_FALSE(request.isCanceled()) << url;
        WebSocketResponseObject response;
        EXPECT_TRUE(trigger->fetchData(request, response));
        response.setStatus("ok");
        EXPECT_EQ(response.toJsonString(), get(url).body);
    }
}

TEST_F(RestReadTest, TellsAFollowerThatItsElementWent)
{
    WebSocketResponseObject response;
    EXPECT_TRUE(trigger->fetchData(subscription(urlOf(7)), response));
    EXPECT_EQ(response.getObject()->getValue<int>("code"), 410);
    EXPECT_THAT(response.getMessage(), HasSubstr(Shop::id(7)));
    EXPECT_EQ(response.getDataAsJsonObject()->size(), 0u);
    WebSocketResponseObject list;
    EXPECT_FALSE(trigger->fetchData(subscription("/shop/nothing"), list));
}

TEST_F(RestReadTest, ReportsACreationToThoseWhoFollowedTheElementBefore)
{
    const std::string creation = "PUT " + urlOf(7) + R"( {"a":1})";
    trigger->created(Poco::URI(urlOf(7) + "?x=1"), parseJson(R"({"a":1})"));
    EXPECT_THAT(trigger->reports(), ElementsAre(creation));
    WebSocketResponseObject response;
    trigger->fetchData(subscription(urlOf(7)), response);
    trigger->created(Poco::URI(urlOf(7)), parseJson(R"({"a":1})"));
    trigger->created(Poco::URI(urlOf(7)), parseJson(R"({"a":1})"));
    EXPECT_THAT(trigger->reports(), ElementsAre(creation, creation, "POST " + urlOf(7) + " {}", creation));
}

TEST_F(RestReadTest, ReportsAnUpdateAlsoOnAListWhoseQueryTheMembersDoNotShow)
{
    const auto reportsWith = [](const std::string& query)
    {
        Shop::Ptr other = new Shop;
        RecordingTrigger fresh(other);
        auto request = subscription("/shop/orders" + query);
        Kesa::Service::SubscriptionSubscribingEventPayload payload(request);
        fresh.checkNewSubscription(payload);
        fresh.updated(Poco::URI(urlOf(1)), parseJson(R"({"a":1})"));
        return fresh.reports();
    };
    const std::string element = "POST " + urlOf(1) + R"( {"a":1})";
    const std::string list = R"(POST /shop/orders {"a":1})";
    for (const char* query: {"", "?$sortby=a", "?a=1", "?$fields=a", "?$limit=5", "?$fields=a&$limit=5"})
        EXPECT_THAT(reportsWith(query), ElementsAre(element)) << query;
    for (const char* query: {"?$q=a", "?$fields=a&$sortby=b", "?$fields=a&b=1", "?$fields=a&$q=b"})
        EXPECT_THAT(reportsWith(query), ElementsAre(element, list)) << query;
}

TEST_F(RestReadTest, AnswersHeadLikeGetWithoutTheBody)
{
    for (const std::string& url: {std::string("/shop/orders"), urlOf(1), urlOf(7)})
    {
        const auto full = get(url);
        const auto head = send("HEAD", url);
        EXPECT_EQ(head.status, full.status);
        EXPECT_TRUE(head.body.empty());
        EXPECT_EQ(field(head, "Content-Length"), std::to_string(full.body.size()));
        EXPECT_EQ(field(head, "ETag"), field(full, "ETag"));
    }
}

TEST_F(RestReadTest, SendsATagWithWholeElementsOnly)
{
    EXPECT_FALSE(field(get(urlOf(1)), "ETag").empty());
    for (const std::string& url: {std::string("/shop/orders"), urlOf(1) + "?$fields=price", urlOf(1) + "?$expand=1"})
        EXPECT_TRUE(field(get(url), "ETag").empty()) << url;
}

TEST_F(RestReadTest, AnswersWith304WhileTheElementIsAsTheClientKnowsIt)
{
    const std::string tag = field(get(urlOf(1)), "ETag");
    for (const std::string& condition: {tag, "W/" + tag, "\"old\", " + tag, std::string("*")})
    {
        const auto answer = get(urlOf(1), "If-None-Match: " + condition + "\r\n");
        EXPECT_EQ(answer.status, 304) << condition;
        EXPECT_EQ(field(answer, "ETag"), tag);
        EXPECT_TRUE(answer.body.empty());
    }
    EXPECT_EQ(send("HEAD", urlOf(1), "If-None-Match: " + tag + "\r\n").status, 304);
    shop->updateElement("shop", "orders", Shop::id(1), parseJson(R"({"price":11})"));
    const auto changed = get(urlOf(1), "If-None-Match: " + tag + "\r\n");
    EXPECT_EQ(changed.status, 200);
    EXPECT_NE(field(changed, "ETag"), tag);
    expectError(get(urlOf(1), "If-Match: " + tag + "\r\n"), 412);
    EXPECT_EQ(get(urlOf(1), "If-Match: " + field(changed, "ETag") + "\r\n").status, 200);
}

TEST_F(RestReadTest, KeepsTheConnectionAfterA304AndA204)
{
    TestClient client(door.port());
    for (int i = 0; i < 3; ++i)
    {
        client.get(urlOf(1), "If-None-Match: *\r\n");
        EXPECT_EQ(client.receive().status, 304);
        client.send("OPTIONS /shop HTTP/1.1\r\nHost: x\r\n\r\n");
        EXPECT_EQ(client.receive().status, 204);
        client.get(urlOf(1));
        EXPECT_EQ(client.receive().body, get(urlOf(1)).body);
    }
}

TEST_F(RestReadTest, RefusesAClientThatTakesNoJson)
{
    expectError(get(urlOf(1), "Accept: text/html\r\n"), 406);
    EXPECT_EQ(get(urlOf(1), "Accept: text/html, */*;q=0.1\r\n").status, 200);
    EXPECT_EQ(get(urlOf(1), "Accept: application/VND.kesa.v1.2.3+json\r\n").status, 200);
}

TEST_F(RestReadTest, CallsAReadThatAnAuthorOverrides)
{
    class Clock: public RecordingTrigger
    {
    public:
        using RecordingTrigger::RecordingTrigger;
        Kesa::Host::DataAnswer read(const Kesa::Command::RequestBase& request) override
        {
            if (request.getUrlPath().getResource() != "clock")
                return RecordingTrigger::read(request);
            return Kesa::Host::DataAnswer::list({Kesa::Host::DataRow(parseJson(R"({"id":"now","time":5,"a":1})"))},
                                                request);
        }
    };
    ApplicationServices::unregisterService<Kesa::Service::SubscriptionTrigger>();
    Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> clock = new Clock(shop);
    ApplicationServices::registerService<Kesa::Service::SubscriptionTrigger>(clock);
    EXPECT_EQ(get("/shop/clock?$fields=time").body, R"({"data":[{"id":"now","time":5}],"status":"ok"})");
    EXPECT_EQ(get(urlOf(1)).status, 200);
    auto request = subscription("/shop/clock");
    Kesa::Service::SubscriptionSubscribingEventPayload payload(request);
    clock->checkNewSubscription(payload);
    EXPECT_FALSE(request.isCanceled());
    WebSocketResponseObject response;
    EXPECT_TRUE(clock->fetchData(request, response));
    EXPECT_EQ(response.getDataAsJsonArray()->size(), 1u);
}
