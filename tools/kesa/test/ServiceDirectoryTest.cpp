#include "ServiceDirectory.h"

#include "TestServer.h"

#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

namespace
{

using namespace Kesa::Client;
using testing::HasSubstr;

std::string entry(const std::string& name, const std::string& address, const std::string& id = "1")
{
    const std::size_t colon = address.rfind(':');
    return R"({"id":")" + id + R"(","name":")" + name + R"(","uri":"/)" + name + R"(","host":")" +
           address.substr(0, colon) + R"(","port":)" + address.substr(colon + 1) + "}";
}

/// Answers with a list of these entries, joined by commas.
TestServer::Script lists(const std::string& entries)
{
    return [entries](Peer& peer)
    {
        const std::string body = R"({"data":[)" + entries + "]}";
        peer.readHead();
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    };
}

std::string resolve(const TestServer& registry, const std::string& text)
{
    return ServiceDirectory(ServiceUrl(registry.url())).resolve(text).toString();
}

/// The text of the exception.
std::string failure(const std::function<void()>& action)
{
    try
    {
        action();
        return "no exception";
    }
    catch (const Poco::Exception& error)
    {
        return error.message();
    }
}

struct Form
{
    const char* text;
    const char* url;
};

class NamesOfServices: public testing::TestWithParam<Form>
{
};

TEST_P(NamesOfServices, AreReplacedByTheirAddress)
{
    TestServer registry(lists(entry("shops", "127.0.0.1:1") + "," + entry("shop", "127.0.0.1:8080")));
    EXPECT_EQ(resolve(registry, GetParam().text), GetParam().url);
}

INSTANTIATE_TEST_SUITE_P(
    All, NamesOfServices,
    testing::Values(Form{"shop", "http://127.0.0.1:8080/shop"}, Form{"/shop", "http://127.0.0.1:8080/shop"},
                    Form{"shop/orders/1", "http://127.0.0.1:8080/shop/orders/1"},
                    Form{"/shop/orders", "http://127.0.0.1:8080/shop/orders"},
                    Form{"shop?$q=a/b:c", "http://127.0.0.1:8080/shop?$q=a/b:c"},
                    Form{"shop/orders?x=http%3A//y#z", "http://127.0.0.1:8080/shop/orders?x=http%3A//y#z"}));

TEST(ServiceDirectory, AsksNobodyAboutAnAddress)
{
    const ServiceDirectory directory(ServiceUrl("127.0.0.1:1"));
    for (const char* text: {"http://localhost/a", "ws://h:1/a", "localhost:8920/a", "[::1]:8920/a", "h:1?x=1"})
        EXPECT_EQ(directory.resolve(text).toString(), ServiceUrl(text).toString()) << text;
}

TEST(ServiceDirectory, KnowsTheRegistryItself)
{
    const ServiceDirectory directory(ServiceUrl("127.0.0.1:1"));
    EXPECT_EQ(directory.resolve("registry/services").toString(), "http://127.0.0.1:1/registry/services");
}

TEST(ServiceDirectory, PutsAnAddressOfIPv6InBrackets)
{
    TestServer registry(lists(entry("shop", "::1:8080")));
    EXPECT_EQ(resolve(registry, "shop/a"), "http://[::1]:8080/shop/a");
}

TEST(ServiceDirectory, TakesTheFirstOfSeveralThatAnswers)
{
    Poco::Net::ServerSocket closed(Poco::Net::SocketAddress("127.0.0.1:0"));
    const std::string dead = closed.address().toString();
    closed.close();
    std::string request;
    TestServer alive(
        [&](Peer& peer)
        {
            request = peer.readHead();
            peer.send("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
        });
    TestServer registry(lists(entry("shop", alive.url(""), "2") + "," + entry("shop", dead)));
    EXPECT_EQ(resolve(registry, "shop/a"), "http://" + alive.url("") + "/shop/a");
    EXPECT_THAT(request, HasSubstr("HEAD /shop/a HTTP/1.1\r\n"));
}

TEST(ServiceDirectory, TellsThatNoneOfSeveralAnswers)
{
    TestServer registry(lists(entry("shop", "127.0.0.1:1") + "," + entry("shop", "127.0.0.1:2", "2")));
    EXPECT_THAT(failure([&] { resolve(registry, "shop"); }),
                testing::MatchesRegex("none of the services named \"shop\" answers; the registry at .* lists "
                                      "127.0.0.1:1 127.0.0.1:2"));
}

TEST(ServiceDirectory, TellsWhatIsRegisteredWhereANameIsNot)
{
    TestServer registry(lists(entry("clock", "127.0.0.1:1") + "," + entry("shop", "127.0.0.1:1") + "," +
                              entry("shop", "127.0.0.1:2", "2") + "," + entry("a\\u001b[2J", "127.0.0.1:3")));
    EXPECT_EQ(failure([&] { resolve(registry, "shp/a"); }),
              "no service named \"shp\" is registered at " + registry.url("") +
                  ", these are: \"a\\u001B[2J\" clock shop; start it, or give its address: host:port/path");
}

TEST(ServiceDirectory, TellsThatNothingIsRegistered)
{
    TestServer registry(lists(""));
    EXPECT_EQ(failure([&] { resolve(registry, "shop"); }),
              "no service named \"shop\" is registered at " + registry.url("") +
                  ", nothing is; start it, or give its address: host:port/path");
}

TEST(ServiceDirectory, TellsThatTheRegistryIsNotThere)
{
    EXPECT_EQ(failure([] { ServiceDirectory(ServiceUrl("127.0.0.1:1")).resolve("shop"); }),
              "cannot read the list of the registry at 127.0.0.1:1: Connection refused; start kesa-registry, or say "
              "where it is with --registry HOST:PORT, or give the service's address: host:port/path");
}

TEST(ServiceDirectory, TellsWhatTheRegistryAnswersInstead)
{
    for (const std::string answer:
         {"HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n[]"})
    {
        TestServer registry(
            [&](Peer& peer)
            {
                peer.readHead();
                peer.send(answer);
            });
        EXPECT_THAT(failure([&] { resolve(registry, "shop"); }),
                    HasSubstr("the registry at " + registry.url("") + ": "));
    }
}

TEST(ServiceDirectory, RefusesWhatIsNeitherAddressNorName)
{
    for (const std::string& text: {std::string(""), std::string("/"), std::string("a b/c"), std::string("?x"),
                                   std::string(65, 'a'), std::string("//shop")})
        EXPECT_THAT(failure([&] { ServiceDirectory(ServiceUrl("127.0.0.1:1")).resolve(text); }),
                    HasSubstr("\"" + text + "\" is neither"));
}

TEST(ServiceDirectory, LeavesOutWhatIsNoEntry)
{
    TestServer registry(
        lists(R"(1,null,{"name":"x"},)" + entry("shop", "127.0.0.1:2") + "," + entry("clock", "127.0.0.1:1")));
    const auto entries = ServiceDirectory(ServiceUrl(registry.url())).list();
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].name, "clock");
    EXPECT_EQ(entries[1].name, "shop");
}

} // namespace
