#include "ServicesCommand.h"

#include "LineOutput.h"
#include "ServiceUrl.h"
#include "TestServer.h"

#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

namespace
{

using namespace Kesa::Client;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string CLOCK = R"({"id":"c1","name":"clock","uri":"/clock","host":"127.0.0.1","port":8930})";
const std::string SHOP = R"({"id":"s1","name":"a-shop","uri":"/a-shop","host":"::1","port":80})";

struct Result
{
    bool success = false;
    std::string output;
    std::string errors;
};

Result list(const std::string& body, bool json = false)
{
    TestServer registry(
        [&](Peer& peer)
        {
            peer.readHead();
            peer.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
        });
    Result result;
    std::FILE* file = std::tmpfile();
    LineOutput output(fileno(file));
    std::ostringstream errors;
    result.success = listServices(ServiceUrl(registry.url()), json, output, errors);
    result.errors = errors.str();
    std::rewind(file);
    char buffer[4096];
    result.output.assign(buffer, std::fread(buffer, 1, sizeof buffer, file));
    std::fclose(file);
    return result;
}

std::vector<std::string> next(ServiceChanges& changes, const std::string& message)
{
    return changes.next(*Poco::JSON::Parser().parse(message).extract<Poco::JSON::Object::Ptr>());
}

TEST(ServicesCommand, PrintsATableOrderedByName)
{
    const Result result = list(R"({"data":[)" + CLOCK + "," + SHOP + "]}");
    EXPECT_TRUE(result.success);
    EXPECT_EQ(result.output, "NAME    ADDRESS         ID\n"
                             "a-shop  [::1]:80        s1\n"
                             "clock   127.0.0.1:8930  c1\n");
}

TEST(ServicesCommand, PrintsTheWholeAnswerAsJson)
{
    EXPECT_EQ(list("{\"status\":\"ok\",\n\"data\":[]}", true).output, "{\"data\":[],\"status\":\"ok\"}\n");
}

TEST(ServicesCommand, SaysThatNothingIsRegistered)
{
    const Result result = list(R"({"data":[]})");
    EXPECT_TRUE(result.success);
    EXPECT_THAT(result.output, testing::MatchesRegex("No service is registered at 127.0.0.1:[0-9]+\\.\n"));
}

TEST(ServicesCommand, SaysWhyItCouldNotRead)
{
    for (const bool json: {false, true})
    {
        const Result result = list("<html>", json);
        EXPECT_FALSE(result.success);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors, HasSubstr("kesa: "));
    }
}

TEST(ServicesCommand, KeepsControlCharactersFromTheTerminal)
{
    const std::string entry = R"({"id":"\u001b]0;x","name":"\u001b[2J","uri":"/","host":"\u0007","port":1})";
    for (const char c: list(R"({"data":[)" + entry + "]}").output)
        EXPECT_TRUE(c == '\n' || c >= ' ') << int(c);
}

TEST(ServiceChanges, TellWhichServicesComeAndGo)
{
    ServiceChanges changes;
    EXPECT_THAT(next(changes, R"({"data":[)" + CLOCK + "]}"),
                ElementsAre("+ clock             127.0.0.1:8930         c1"));
    EXPECT_THAT(next(changes, R"({"data":[)" + CLOCK + "]}"), ElementsAre());
    EXPECT_THAT(
        next(changes, R"({"data":[)" + SHOP + "]}"),
        ElementsAre("+ a-shop            [::1]:80               s1", "- clock             127.0.0.1:8930         c1"));
}

TEST(ServiceChanges, TellThatAListIsCut)
{
    ServiceChanges changes;
    EXPECT_THAT(next(changes, R"({"data":[],"paging":{"total":1200}})"),
                ElementsAre("these are the first 0 of 1200 services"));
}

} // namespace
