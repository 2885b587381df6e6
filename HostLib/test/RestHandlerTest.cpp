#include "RestHandler.h"

#include "FrontDoor.h"
#include "TestClient.h"
#include "TinyService.h"

#include <ApplicationServices.h>

#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Kesa::Host::FrontDoor;
using Kesa::Service::SubscriptionTrigger;
using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;
using testing::HasSubstr;

namespace
{

Poco::JSON::Object::Ptr parse(const std::string& text)
{
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

/// A front door with the handler alone behind it, and the tiny service's trigger in the locator.
class RestHandlerTest: public testing::Test
{
protected:
    RestHandlerTest()
    {
        ApplicationServices::registerService<SubscriptionTrigger>(trigger);
        door.start();
    }
    ~RestHandlerTest() override { ApplicationServices::unregisterService<SubscriptionTrigger>(); }

    TestClient::Answer request(const std::string& line, const std::string& rest = "\r\n")
    {
        TestClient client(door.port());
        client.send(line + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" + rest);
        return client.receive(line.compare(0, 5, "HEAD ") != 0);
    }
    TestClient::Answer get(const std::string& url) { return request("GET " + url); }

    void expectError(const TestClient::Answer& answer, int status, const std::string& message = "")
    {
        EXPECT_EQ(answer.status, status) << answer.body;
        ASSERT_FALSE(answer.body.empty());
        const auto document = parse(answer.body);
        EXPECT_EQ(document->getValue<std::string>("type"), "error");
        EXPECT_EQ(document->getValue<std::string>("status"), "error");
        EXPECT_EQ(document->getValue<int>("code"), status);
        EXPECT_THAT(document->getValue<std::string>("message"), HasSubstr(message));
        EXPECT_FALSE(document->getValue<std::string>("message").empty());
        EXPECT_THAT(answer.head, HasSubstr("Content-Type: application/json\r\n"));
    }

    Poco::SharedPtr<TinyTrigger> trigger{new TinyTrigger};
    Kesa::Host::RestHandler handler;
    FrontDoor door{[this](HTTPServerRequest& request, HTTPServerResponse& response)
                   { handler.handle(request, response); },
                   FrontDoor::Options()};
};

} // namespace

TEST_F(RestHandlerTest, AnswersAnElementAsAnObject)
{
    const auto answer = get("/shop/orders/1");
    EXPECT_EQ(answer.status, 200);
    EXPECT_THAT(answer.head, HasSubstr("Content-Type: application/json\r\n"));
    const auto document = parse(answer.body);
    EXPECT_EQ(document->size(), 2u) << answer.body;
    EXPECT_EQ(document->getValue<std::string>("status"), "ok");
    EXPECT_EQ(document->getObject("data")->getValue<int>("price"), 1);
}

TEST_F(RestHandlerTest, AnswersAResourceAsAnArrayWithItsPaging)
{
    const auto document = parse(get("/shop/orders").body);
    EXPECT_EQ(document->getArray("data")->size(), 1u);
    EXPECT_EQ(document->getObject("paging")->getValue<int>("total"), 1);
    EXPECT_FALSE(document->has("type"));
    EXPECT_FALSE(document->has("event"));
}

TEST_F(RestHandlerTest, WritesWhatIsNoNumberInJsonAsNull)
{
    EXPECT_THAT(get("/shop/orders/1").body, HasSubstr(R"("weight":null)"));
}

TEST_F(RestHandlerTest, TakesATrailingSlashForNothing)
{
    EXPECT_EQ(get("/shop/orders/1/").body, get("/shop/orders/1").body);
    EXPECT_EQ(get("//shop//orders//1").body, get("/shop/orders/1").body);
    EXPECT_EQ(get("http://example.org/shop/orders/1").body, get("/shop/orders/1").body);
}

TEST_F(RestHandlerTest, TellsTheDataSourceWhoAsks)
{
    EXPECT_EQ(parse(get("/shop/orders/client").body)->getObject("data")->getValue<std::string>("client"), "127.0.0.1");
}

TEST_F(RestHandlerTest, AnswersHeadLikeGetWithoutTheBody)
{
    const auto get1 = get("/shop/orders/1");
    const auto head = request("HEAD /shop/orders/1");
    EXPECT_EQ(head.status, 200);
    EXPECT_TRUE(head.body.empty());
    EXPECT_THAT(head.head, HasSubstr("Content-Length: " + std::to_string(get1.body.size()) + "\r\n"));
    EXPECT_EQ(request("HEAD /shop/orders/2").status, 404);
}

TEST_F(RestHandlerTest, AnswersUnknownUrlsWith404)
{
    expectError(get("/shop/orders/2"), 404);
    expectError(get("/shop/orders/nothing"), 404);
    expectError(get("/market"), 404);
    expectError(get("/shop/orders/.."), 404);
    expectError(get("/"), 404);
}

TEST_F(RestHandlerTest, AnswersUrlsThatNoServiceHasWithoutAskingTheDataSource)
{
    expectError(get("/shop/orders/1/2"), 404);
    expectError(get("/$spec/orders"), 404);
    expectError(get("/shop/orders/a%2Fb"), 400);
    expectError(get("/shop/orders/a%00"), 400);
    expectError(get("/shop/orders/%zz"), 400);
    expectError(get("/shop/orders?$limit=0"), 400);
    expectError(get("/shop/orders?$fields="), 400);
    EXPECT_EQ(trigger->loads, 0);
}

TEST_F(RestHandlerTest, PassesOnTheErrorOfTheDataSource)
{
    expectError(get("/shop/orders/gone"), 410, "The order was canceled.");
}

TEST_F(RestHandlerTest, AnswersWith500WhenTheDataSourceRaises)
{
    const auto answer = get("/shop/orders/raise");
    expectError(answer, 500);
    EXPECT_THAT(answer.body, testing::Not(HasSubstr("fire"))) << "the client learns of the service's insides";
}

TEST_F(RestHandlerTest, AnswersOtherMethodsWith405AndWhatIsAllowed)
{
    for (const char* method: {"POST", "PUT", "DELETE", "PATCH"})
    {
        const auto answer = request(std::string(method) + " /shop/orders/1", "Content-Length: 2\r\n\r\n{}");
        expectError(answer, 405);
        EXPECT_THAT(answer.head, HasSubstr("Allow: GET, HEAD, OPTIONS\r\n")) << method;
    }
    EXPECT_EQ(trigger->loads, 0);
}

TEST_F(RestHandlerTest, AnswersWith503WithoutAService)
{
    ApplicationServices::unregisterService<SubscriptionTrigger>();
    expectError(get("/shop/orders/1"), 503);
}
