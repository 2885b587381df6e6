#include "RestFixture.h"

#include "BodyReader.h"
#include "TestTools.h"

using Kesa::Host::BodyReader;
using Kesa::Host::FrontDoor;
using testing::HasSubstr;
using testing::IsEmpty;

class RestBodyTest: public RestFixture
{
protected:
    /// A POST on the resource as it goes over the wire, with the fields that belong to the body.
    static std::string post(const std::string& fields, const std::string& body, bool closes = true)
    {
        return "POST /shop/orders HTTP/1.1\r\nHost: x\r\n" + std::string(closes ? "Connection: close\r\n" : "") +
               fields + "\r\n" + body;
    }
    static std::string json(std::size_t length)
    {
        return "Content-Type: application/json\r\nContent-Length: " + std::to_string(length) + "\r\n";
    }
    Answer exchange(const std::string& bytes) const
    {
        TestClient client(door.port());
        client.send(bytes);
        return client.receive();
    }
    /// An object of exactly so many bytes.
    static std::string object(std::size_t size) { return R"({"a":")" + std::string(size - 8, 'x') + R"("})"; }

    void expectNothingStored()
    {
        EXPECT_THAT(ids(get("/shop/orders")), IsEmpty());
        EXPECT_THAT(trigger->reports(), IsEmpty());
    }
};

TEST_F(RestBodyTest, RefusesBadBodiesAndStoresNothing)
{
    const struct
    {
        std::string body;
        const char* message;
    } rows[] = {{"{\"a\":", "no usable JSON"},
                {"[]", "has to be a JSON object"},
                {"{\"a\":\"\xff\"}", "no UTF-8"},
                {"{\"a\":1,\"a\":2}", "stands twice"},
                {"{\"a\":18446744073709551616}", "does not fit into 64 bits"},
                {"{\"a\":" + std::string(5000, '['), "no usable JSON"},
                {" ", "no body"}};
    for (const auto& row: rows)
    {
        expectError(sendBody("POST", "/shop/orders", row.body), 400, row.message);
        expectError(sendBody("PUT", urlOf(1), row.body), 400, row.message);
    }
    expectNothingStored();
}

TEST_F(RestBodyTest, RefusesABodyWithoutALength)
{
    expectError(exchange(post("Content-Type: application/json\r\n", "")), 411, "Content-Length");
    expectError(
        exchange(post("Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n", "2\r\n{}\r\n0\r\n\r\n")), 411,
        "Content-Length");
    expectNothingStored();
}

TEST_F(RestBodyTest, RefusesABodyOfAnotherTypeThanJson)
{
    for (const char* type: {"text/plain", "application/x-www-form-urlencoded", "application/xml", "json",
                            "application/json; charset=latin-1", "text/json", ""})
    {
        const std::string field = *type == '\0' ? "" : std::string("Content-Type: ") + type + "\r\n";
        expectError(exchange(post(field + "Content-Length: 2\r\n", "{}")), 415, "application/json");
    }
    expectNothingStored();
    for (const char* type: {"application/json", "Application/JSON", "application/json; charset=utf-8",
                            "application/json;charset=\"UTF-8\"", "application/vnd.kesa.v1.2.3+json"})
        EXPECT_EQ(exchange(post(std::string("Content-Type: ") + type + "\r\nContent-Length: 2\r\n", "{}")).status, 201)
            << type;
}

TEST_F(RestBodyTest, TakesABodyUpToTheBoundAndRefusesALargerOne)
{
    const auto answer = sendBody("POST", "/shop/orders", object(BodyReader::MAX_BODY));
    EXPECT_EQ(answer.status, 201);
    EXPECT_EQ(data(answer)->getValue<std::string>("a").size(), BodyReader::MAX_BODY - 8);
    expectError(sendBody("POST", "/shop/orders", object(BodyReader::MAX_BODY + 1)), 413, "1048576 bytes");
    EXPECT_EQ(ids(get("/shop/orders")).size(), 1u);
}

TEST_F(RestBodyTest, AnswersAClientThatSendsTenMegabytes)
{
    const std::string body = object(10 * 1024 * 1024);
    expectError(sendBody("POST", "/shop/orders", body), 413);
    expectNothingStored();
}

TEST_F(RestBodyTest, ReadsABodyThatArrivesByteByByte)
{
    const std::string text = R"({"a":"ä","b":[1,2.5,{}]})";
    const auto whole = sendBody("POST", "/shop/orders", text);
    TestClient client(door.port());
    for (const char byte: post(json(text.size()), text))
        client.send(std::string_view(&byte, 1));
    const auto pieces = client.receive();
    EXPECT_EQ(pieces.status, 201);
    for (const char* member: {"a", "b"})
        EXPECT_EQ(data(pieces)->get(member).toString(), data(whole)->get(member).toString());
}

TEST_F(RestBodyTest, ReadsALongBodyThatArrivesInPieces)
{
    const std::string text = object(200000);
    TestClient client(door.port());
    client.send(post(json(text.size()), ""));
    for (std::size_t i = 0; i < text.size(); i += 10000)
        client.send(std::string_view(text).substr(i, 10000));
    EXPECT_EQ(client.receive().status, 201);
}

TEST_F(RestBodyTest, RefusesABodyThatEndsEarly)
{
    for (const std::size_t length: {std::size_t(10), std::size_t(100000)})
    {
        TestClient client(door.port());
        client.send(post(json(length), "{}"));
        client.finish();
        expectError(client.receive(), 400);
    }
    expectNothingStored();
}

TEST_F(RestBodyTest, RefusesABodyThatDoesNotArriveInTime)
{
    FrontDoor::Options options;
    options.bodyTimeout = 100;
    FrontDoor hasty([this](Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response)
                    { handler.handle(request, response); },
                    options);
    hasty.start();
    for (const std::size_t length: {std::size_t(10), std::size_t(100000)})
    {
        TestClient client(hasty.port());
        client.send(post(json(length), "{"));
        expectError(client.receive(), 408, "did not arrive in time");
    }
    expectNothingStored();
}

TEST_F(RestBodyTest, SendsOnWhoExpectsThat)
{
    TestClient client(door.port());
    client.send(post(json(7) + "Expect: 100-continue\r\n", "", false));
    EXPECT_EQ(client.receive().status, 100);
    client.send(R"({"a":1})");
    EXPECT_EQ(client.receive().status, 201);

    TestClient refused(door.port());
    refused.send(post("Content-Type: text/plain\r\nContent-Length: 7\r\nExpect: 100-continue\r\n", ""));
    expectError(refused.receive(), 415);
}

TEST_F(RestBodyTest, ServesRequestsWithBodiesOneAfterTheOtherOnOneConnection)
{
    TestClient client(door.port());
    for (int i = 1; i <= 20; ++i)
    {
        const std::string text = R"({"n":)" + std::to_string(i) + "}";
        client.send(post(json(text.size()), text, false));
        EXPECT_EQ(data(client.receive())->getValue<int>("n"), i);
    }
    EXPECT_EQ(ids(get("/shop/orders")).size(), 20u);
}

TEST_F(RestBodyTest, ServesPipelinedRequestsWithBodiesInTheirOrder)
{
    std::string bytes;
    for (int i = 1; i <= 50; ++i)
    {
        const std::string text =
            R"({"n":)" + std::to_string(i) + R"(,"pad":")" + std::string(100U * (i % 7), 'x') + "\"}";
        bytes += post(json(text.size()), text, false) + "GET /shop/orders?$limit=1&$offset=" + std::to_string(i - 1) +
                 " HTTP/1.1\r\nHost: x\r\n\r\n";
    }
    TestClient client(door.port());
    client.send(bytes);
    for (int i = 1; i <= 50; ++i)
    {
        const auto created = client.receive();
        ASSERT_EQ(created.status, 201) << i;
        EXPECT_EQ(data(created)->getValue<int>("n"), i);
        EXPECT_EQ(ids(client.receive()), std::vector<std::string>{data(created)->getValue<std::string>("id")});
    }
}

TEST_F(RestBodyTest, LeavesThreadsForOthersWhileManyClientsSendSlowly)
{
    std::vector<std::unique_ptr<TestClient>> slow;
    for (unsigned i = 0; i < 2 * FrontDoor::DEFAULT_THREADS; ++i)
    {
        slow.push_back(std::make_unique<TestClient>(door.port()));
        slow.back()->send(post(json(500000), "{\"a\":"));
    }
    const Stopwatch watch;
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(get("/shop/orders").status, 200);
    EXPECT_LT(watch.milliseconds(), 5000) << "the slow ones have all threads";
    slow.clear();
    EXPECT_TRUE(eventually([this] { return sendBody("POST", "/shop/orders", object(100000)).status == 201; }))
        << "the slow ones are gone";
}

TEST_F(RestBodyTest, RefusesALongBodyWhileTooManyAreOnTheirWay)
{
    std::vector<std::unique_ptr<TestClient>> slow;
    std::size_t refused = 0;
    while (refused == 0 && slow.size() < 2 * FrontDoor::DEFAULT_THREADS)
    {
        slow.push_back(std::make_unique<TestClient>(door.port()));
        slow.back()->send(post(json(500000), "{\"a\":"));
        const auto answer = sendBody("POST", "/shop/orders", object(100000));
        if (answer.status == 201)
            continue;
        expectError(answer, 503, "Too many clients");
        EXPECT_EQ(field(answer, "Retry-After"), "1");
        ++refused;
    }
    EXPECT_EQ(refused, 1u);
    EXPECT_EQ(sendBody("POST", "/shop/orders", "{}").status, 201) << "a short body needs nobody to wait";
}
