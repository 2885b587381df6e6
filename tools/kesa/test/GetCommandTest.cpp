#include "GetCommand.h"

#include "LineOutput.h"
#include "ServiceUrl.h"
#include "TestServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <unistd.h>

namespace
{

using namespace Kesa::Client;
using testing::HasSubstr;

struct Result
{
    bool success;
    std::string output;
    std::string errors;
    std::string requestHead;
};

Result get(const std::string& answer, bool json, const std::string& path = "/a")
{
    Result result;
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    {
        TestServer server(
            [&](Peer& peer)
            {
                result.requestHead = peer.readHead();
                peer.send(answer);
            });
        LineOutput output(ends[1]);
        std::ostringstream errors;
        result.success = getUrl(ServiceUrl(server.url(path)), json, output, errors);
        result.errors = errors.str();
    }
    ::close(ends[1]);
    char buffer[4096];
    const ssize_t count = ::read(ends[0], buffer, sizeof buffer);
    result.output.assign(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    ::close(ends[0]);
    return result;
}

std::string http(const std::string& status, const std::string& body)
{
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

TEST(GetCommand, PrintsTheDataIndented)
{
    const Result result = get(http("200 OK", R"({"status":"ok","data":{"id":"a"}})"), false);
    EXPECT_TRUE(result.success);
    EXPECT_EQ(result.output, "{\n  \"id\": \"a\"\n}\n");
    EXPECT_EQ(result.errors, "");
}

TEST(GetCommand, PrintsTheWholeAnswerAsJson)
{
    EXPECT_EQ(get(http("200 OK", "{\"status\":\"ok\",\n \"data\":[]}"), true).output,
              "{\"data\":[],\"status\":\"ok\"}\n");
}

TEST(GetCommand, AsksForPathAndQuery)
{
    EXPECT_THAT(get(http("200 OK", "{}"), true, "/a?x=1#f").requestHead, HasSubstr("GET /a?x=1 HTTP/1.1\r\n"));
}

TEST(GetCommand, TellsCodeAndMessageOfAnErrorAnswer)
{
    const Result result = get(http("404 Not Found", R"({"type":"error","code":404,"message":"no such thing"})"), false);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, HasSubstr("/a: 404 no such thing\n"));
}

TEST(GetCommand, TellsTheStatusOfAnErrorAnswerThatIsNoDocument)
{
    EXPECT_THAT(get(http("502 Bad Gateway", "<html>"), false).errors, HasSubstr("/a: 502 Bad Gateway\n"));
}

TEST(GetCommand, RefusesAnAnswerThatIsNoJsonObject)
{
    for (const std::string body: {"", "17", "[]", "{"})
    {
        const Result result = get(http("200 OK", body), false);
        EXPECT_FALSE(result.success) << body;
        EXPECT_NE(result.errors, "") << body;
    }
}

TEST(GetCommand, RefusesAnAnswerBeyondItsBound)
{
    const Result result = get(http("200 OK", std::string(16 * 1024 * 1024 + 1, ' ')), false);
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.errors, HasSubstr("the answer has more than 16777216 bytes"));
}

} // namespace
