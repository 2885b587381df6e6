#include "RestFixture.h"

#include <CapturedLog.h>

#include <barrier>
#include <thread>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
typedef Shop::UpdateResult UpdateResult;

class RestWriteTest: public RestFixture
{
};

TEST_F(RestWriteTest, PostOnAResourceCreatesAnElementUnderAnIdOfTheServices)
{
    const auto answer = sendBody("POST", "/shop/orders", R"({"price":5})");
    EXPECT_EQ(answer.status, 201) << answer.body;
    const std::string location = field(answer, "Location");
    EXPECT_THAT(location, StartsWith("/shop/orders/"));
    EXPECT_EQ(data(answer)->getValue<std::string>("uri"), location);
    EXPECT_EQ(data(answer)->getValue<int>("price"), 5);
    EXPECT_EQ(get(location).body, answer.body);
    EXPECT_EQ(field(get(location), "ETag"), field(answer, "ETag"));
    ASSERT_EQ(trigger->reports().size(), 1u);
    EXPECT_THAT(trigger->reports()[0], StartsWith("PUT " + location + " {\"id\":"));
}

TEST_F(RestWriteTest, PutCreatesAnElementUnderTheGivenIdOnce)
{
    const auto answer = sendBody("PUT", urlOf(1), R"({"price":5})");
    EXPECT_EQ(answer.status, 201) << answer.body;
    EXPECT_EQ(field(answer, "Location"), urlOf(1));
    EXPECT_EQ(get(urlOf(1)).body, answer.body);
    expectError(sendBody("PUT", urlOf(1), R"({"price":6})"), 409, "exists");
    EXPECT_EQ(data(get(urlOf(1)))->getValue<int>("price"), 5);
    EXPECT_EQ(trigger->reports().size(), 1u);
}

TEST_F(RestWriteTest, PostOnAnElementUpdatesTheMembersGiven)
{
    shop->put("orders", 1, R"({"price":1,"color":"red"})");
    const auto answer = sendBody("POST", urlOf(1), R"({"price":2})");
    EXPECT_EQ(answer.status, 200) << answer.body;
    EXPECT_EQ(answer.body, get(urlOf(1)).body);
    EXPECT_EQ(data(answer)->getValue<int>("price"), 2);
    EXPECT_EQ(data(answer)->getValue<std::string>("color"), "red");
    EXPECT_THAT(trigger->reports(), ElementsAre("POST " + urlOf(1) + R"( {"price":2})"));
}

TEST_F(RestWriteTest, DeleteRemovesAnElementAndGivesItALastTime)
{
    shop->put("orders", 1, R"({"price":1})");
    const std::string before = get(urlOf(1)).body;
    const auto answer = send("DELETE", urlOf(1));
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, before);
    EXPECT_EQ(field(answer, "ETag"), "");
    expectError(get(urlOf(1)), 404, Shop::id(1));
    expectError(send("DELETE", urlOf(1)), 404);
    ASSERT_EQ(trigger->reports().size(), 1u);
    EXPECT_THAT(trigger->reports()[0], StartsWith("DELETE " + urlOf(1) + " {"));
    EXPECT_THAT(trigger->reports()[0], HasSubstr(R"("price":1)"));
}

TEST_F(RestWriteTest, DeleteWithFieldsRemovesThoseMembers)
{
    shop->put("orders", 1, R"({"a":1,"b":2,"c":3})");
    const auto answer = send("DELETE", urlOf(1) + "?$fields=a,c,unknown");
    EXPECT_EQ(answer.status, 200) << answer.body;
    EXPECT_FALSE(data(answer)->has("a"));
    EXPECT_FALSE(data(answer)->has("c"));
    EXPECT_EQ(data(answer)->getValue<int>("b"), 2);
    EXPECT_EQ(get(urlOf(1)).body, answer.body);
    ASSERT_EQ(trigger->reports().size(), 1u);
    EXPECT_THAT(trigger->reports()[0], StartsWith("DELETE " + urlOf(1) + "?$fields=a,c,unknown {\"b\":2"));
    EXPECT_EQ(send("DELETE", urlOf(1) + "?$fields=a").status, 200) << "nothing was left to do";
    EXPECT_EQ(trigger->reports().size(), 1u);
    for (const char* member: {"id", "uri", "b,id"})
        expectError(send("DELETE", urlOf(1) + "?$fields=" + member), 400, "cannot be deleted");
}

TEST_F(RestWriteTest, RefusesADeletionWithAnyOtherParameter)
{
    shop->put("orders", 1, R"({"a":1})");
    for (const char* query: {"?fields=a", "?$field=a", "?$q=x", "?$limit=1", "?$fields=a&a=1", "?$fields="})
        expectError(send("DELETE", urlOf(1) + query), 400);
    EXPECT_EQ(get(urlOf(1)).status, 200);
    EXPECT_THAT(trigger->reports(), IsEmpty());
}

TEST_F(RestWriteTest, AnswersWith404WhereThereIsNothingToWriteTo)
{
    expectError(sendBody("POST", urlOf(9), "{}"), 404, Shop::id(9));
    expectError(sendBody("POST", "/shop/orders/no-uuid", "{}"), 404, "no-uuid");
    expectError(send("DELETE", "/shop/orders/no-uuid"), 404, "no-uuid");
    expectError(sendBody("POST", "/shop/nothing", "{}"), 404, "nothing");
    expectError(sendBody("PUT", "/market/orders/" + Shop::id(1), "{}"), 404, "market");
    EXPECT_THAT(trigger->reports(), IsEmpty());
}

TEST_F(RestWriteTest, RefusesAnIdThatIsNone)
{
    expectError(sendBody("PUT", "/shop/orders/no-uuid", "{}"), 400, "no-uuid");
    EXPECT_THAT(ids(get("/shop/orders")), IsEmpty());
}

TEST_F(RestWriteTest, AnswersEveryOutcomeOfTheDataWithItsStatus)
{
    const struct
    {
        UpdateResult::Value value;
        int status;
        const char* message;
    } rows[] = {{UpdateResult::NOT_FOUND, 404, "not_found"},
                {UpdateResult::DUPLICATE, 409, "exists already"},
                {UpdateResult::INVALID_REQUEST, 400, "invalid_request"},
                {UpdateResult::INVALID_OBJECT, 400, "invalid_request"},
                {UpdateResult::PROCESSING_ERROR, 500, "processing_error"}};
    shop->put("orders", 1, R"({"a":1})");
    for (const auto& row: rows)
    {
        for (const std::string& text: {std::string(), std::string("why it failed")})
        {
            shop->beforeChange = [&] { return UpdateResult(row.value, text); };
            const std::string message = text.empty() ? row.message : text;
            expectError(sendBody("POST", "/shop/orders", "{}"), row.status, message);
            expectError(sendBody("PUT", urlOf(2), "{}"), row.status, message);
            expectError(sendBody("POST", urlOf(1), "{}"), row.status, message);
            expectError(send("DELETE", urlOf(1)), row.status, message);
        }
    }
    EXPECT_THAT(trigger->reports(), IsEmpty());
}

TEST_F(RestWriteTest, AnswersWith500WhenTheDataRaiseAndGoesOn)
{
    const Kesa::Test::CapturedLog log;
    shop->put("orders", 1, R"({"a":1})");
    shop->beforeChange = []() -> UpdateResult { throw Poco::RuntimeException("the disk is full"); };
    for (const auto& answer: {sendBody("POST", urlOf(1), "{}"), sendBody("PUT", urlOf(2), "{}"),
                              sendBody("POST", "/shop/orders", "{}"), send("DELETE", urlOf(1))})
    {
        expectError(answer, 500);
        EXPECT_THAT(answer.body, testing::Not(HasSubstr("disk"))) << "the client learns of the service's insides";
    }
    EXPECT_TRUE(log.containsPart(Poco::Message::PRIO_ERROR, "the disk is full"));
    EXPECT_THAT(trigger->reports(), IsEmpty());
    shop->beforeChange = [] { return UpdateResult(UpdateResult::OK); };
    EXPECT_EQ(send("DELETE", urlOf(1)).status, 200);
}

TEST_F(RestWriteTest, ReportsNothingWhereNothingChanged)
{
    shop->put("orders", 1, R"({"a":1})");
    shop->beforeChange = [] { return UpdateResult(UpdateResult::NO_UPDATE); };
    const auto answer = sendBody("POST", urlOf(1), R"({"a":1})");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, get(urlOf(1)).body);
    EXPECT_THAT(trigger->reports(), IsEmpty());
}

TEST_F(RestWriteTest, ReportsAChangeOnceItIsStored)
{
    std::vector<int> seen;
    trigger->onReport = [&] { seen.push_back(get(urlOf(1)).status); };
    sendBody("PUT", urlOf(1), "{}");
    sendBody("POST", urlOf(1), R"({"a":1})");
    send("DELETE", urlOf(1));
    EXPECT_THAT(seen, ElementsAre(200, 200, 404));
}

TEST_F(RestWriteTest, AnswersAStoredChangeAlthoughReportingItFails)
{
    Kesa::Test::CapturedLog log;
    trigger->onReport = [] { throw Poco::RuntimeException("a listener failed"); };
    EXPECT_EQ(sendBody("PUT", urlOf(1), "{}").status, 201);
    EXPECT_EQ(get(urlOf(1)).status, 200);
    EXPECT_TRUE(log.containsPart(Poco::Message::PRIO_ERROR, "a listener failed"));
}

TEST_F(RestWriteTest, RefusesMethodsThatAUrlDoesNotKnow)
{
    const struct
    {
        const char* url;
        const char* allowed;
    } rows[] = {{"/", "GET, HEAD, OPTIONS"},
                {"/shop", "GET, HEAD, OPTIONS"},
                {"/shop/orders", "GET, HEAD, POST, OPTIONS"},
                {"/shop/orders/1", "GET, HEAD, POST, PUT, DELETE, OPTIONS"}};
    for (const auto& row: rows)
    {
        for (const std::string method: {"POST", "PUT", "DELETE", "PATCH", "TRACE"})
        {
            if ((std::string(row.allowed) + ",").find(method + ",") != std::string::npos)
                continue;
            const auto answer = sendBody(method, row.url, "{}");
            expectError(answer, 405, method);
            EXPECT_EQ(field(answer, "Allow"), row.allowed) << row.url;
        }
        const auto answer = send("OPTIONS", row.url);
        EXPECT_EQ(answer.status, 204);
        EXPECT_EQ(field(answer, "Allow"), row.allowed) << row.url;
    }
    expectError(send("BREW", "/shop"), 501, "BREW");
    expectError(send("get", "/shop"), 501, "get");
}

TEST_F(RestWriteTest, RefusesAQueryWhereItMeansNothing)
{
    shop->put("orders", 1, R"({"a":1})");
    expectError(sendBody("POST", "/shop/orders?$fields=a", "{}"), 400, "no query");
    expectError(sendBody("POST", urlOf(1) + "?a=1", "{}"), 400, "no query");
    expectError(sendBody("PUT", urlOf(2) + "?$limit=-1", "{}"), 400, "$limit");
    EXPECT_EQ(ids(get("/shop/orders")).size(), 1u);
}
