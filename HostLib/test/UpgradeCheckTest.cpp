#include "UpgradeCheck.h"

#include <Poco/Net/HTTPRequest.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using Poco::Net::HTTPRequest;

namespace
{

typedef std::vector<std::pair<std::string, std::string>> Fields;

/// A good request with fields replaced (an empty value removes the field) and fields added.
HTTPRequest request(const Fields& replaced = {}, const Fields& added = {})
{
    HTTPRequest r(HTTPRequest::HTTP_GET, "/", HTTPRequest::HTTP_1_1);
    r.setHost("service.example:8920");
    r.set("Connection", "Upgrade");
    r.set("Upgrade", "websocket");
    r.set("Sec-WebSocket-Version", "13");
    r.set("Sec-WebSocket-Key", "dGhlIHNhbXBsZSBub25jZQ==");
    for (const auto& [name, value]: replaced)
        value.empty() ? r.erase(name) : r.set(name, value);
    for (const auto& [name, value]: added)
        r.add(name, value);
    return r;
}

int statusOf(const HTTPRequest& r, const std::vector<std::string>& allowedOrigins = {})
{
    const auto verdict = Kesa::Host::checkUpgrade(r, allowedOrigins);
    EXPECT_EQ(verdict.isAllowed(), verdict.message.empty());
    return verdict.status;
}

} // namespace

TEST(UpgradeCheckTest, KnowsARequestForAWebsocket)
{
    EXPECT_TRUE(Kesa::Host::wantsUpgrade(request()));
    EXPECT_TRUE(Kesa::Host::wantsUpgrade(request({{"Upgrade", "h2c, WebSocket"}})));
    EXPECT_TRUE(Kesa::Host::wantsUpgrade(request({{"Upgrade", "h2c"}}, {{"upgrade", "websocket"}})));
    EXPECT_FALSE(Kesa::Host::wantsUpgrade(request({{"Upgrade", ""}})));
    EXPECT_FALSE(Kesa::Host::wantsUpgrade(request({{"Upgrade", "websockets"}})));
}

TEST(UpgradeCheckTest, AllowsWhatTheProtocolAllows)
{
    EXPECT_EQ(statusOf(request()), 0);
    EXPECT_EQ(statusOf(request({{"Connection", "keep-alive, upgrade"}})), 0);
    EXPECT_EQ(statusOf(request({{"Connection", "keep-alive"}}, {{"Connection", "UPGRADE"}})), 0);
    EXPECT_EQ(statusOf(request({{"Upgrade", "WebSocket"}})), 0);
    EXPECT_EQ(
        statusOf(request({}, {{"Sec-WebSocket-Protocol", "chat"}, {"Sec-WebSocket-Extensions", "permessage-deflate"}})),
        0);
    EXPECT_EQ(statusOf(request({{"Content-Length", "0"}})), 0);
}

TEST(UpgradeCheckTest, RefusesWhatIsNoUpgrade)
{
    HTTPRequest post = request();
    post.setMethod(HTTPRequest::HTTP_POST);
    EXPECT_EQ(statusOf(post), 405);
    HTTPRequest old = request();
    old.setVersion(HTTPRequest::HTTP_1_0);
    EXPECT_EQ(statusOf(old), 400);
    EXPECT_EQ(statusOf(request({{"Connection", ""}})), 400);
    EXPECT_EQ(statusOf(request({{"Connection", "keep-alive"}})), 400);
    EXPECT_EQ(statusOf(request({{"Content-Length", "5"}})), 400);
    EXPECT_EQ(statusOf(request({{"Transfer-Encoding", "chunked"}})), 400);
}

TEST(UpgradeCheckTest, RefusesOtherVersionsWith426)
{
    for (const char* version: {"12", "8", "14", "013", "13.0", "13, 8"})
        EXPECT_EQ(statusOf(request({{"Sec-WebSocket-Version", version}})), 426) << version;
    EXPECT_EQ(statusOf(request({{"Sec-WebSocket-Version", ""}})), 426);
    EXPECT_EQ(statusOf(request({}, {{"Sec-WebSocket-Version", "13"}})), 426);
}

TEST(UpgradeCheckTest, RefusesKeysThatAreNot16BytesInBase64)
{
    for (const char* key: {"short", "dGhlIHNhbXBsZSBub25jZQ", "dGhlIHNhbXBsZSBub25jZQ=", "dGhlIHNhbXBsZSBub25jZ!==",
                           "dGhlIHNhbXBsZSBub25jZSBtb3Jl", "dGhlIHNhbXBsZSBub25jZQ== x", "dGhlIHNhbXBsZ=Bub25jZQ=="})
        EXPECT_EQ(statusOf(request({{"Sec-WebSocket-Key", key}})), 400) << key;
    EXPECT_EQ(statusOf(request({{"Sec-WebSocket-Key", ""}})), 400);
    EXPECT_EQ(statusOf(request({}, {{"Sec-WebSocket-Key", "dGhlIHNhbXBsZSBub25jZQ=="}})), 400);
}

TEST(UpgradeCheckTest, AllowsPagesOfThisHostAndOfTheLoopbackAddress)
{
    for (const char* origin:
         {"http://service.example:8920", "http://service.example", "https://SERVICE.example:1", "http://localhost:3000",
          "https://localhost", "http://127.0.0.1:5173", "http://[::1]:80", "http://[::1]"})
        EXPECT_EQ(statusOf(request({{"Origin", origin}})), 0) << origin;
}

TEST(UpgradeCheckTest, ComparesHostsThatAreIPv6Addresses)
{
    EXPECT_EQ(statusOf(request({{"Host", "[fe80::1]:8920"}, {"Origin", "http://[fe80::1]:3000"}})), 0);
    EXPECT_EQ(statusOf(request({{"Host", "[fe80::1]:8920"}, {"Origin", "http://[fe80::2]:3000"}})), 403);
}

TEST(UpgradeCheckTest, RefusesPagesFromElsewhere)
{
    for (const char* origin: {"http://other.example", "null", "service.example:8920", "http://service.example.evil.org",
                              "http://evil-service.example", "http://localhost.evil.org", "http://127.0.0.1.evil.org",
                              "file://", "http://", "http://[::1", "http://127.0.0.11", "http://user@service.example"})
        EXPECT_EQ(statusOf(request({{"Origin", origin}})), 403) << origin;
    EXPECT_EQ(statusOf(request({{"Host", ""}, {"Origin", "http://"}})), 403);
}

TEST(UpgradeCheckTest, NamesTheOptionThatWouldAllowAnOrigin)
{
    const auto verdict = Kesa::Host::checkUpgrade(request({{"Origin", "http://other.example"}}), {});
    EXPECT_NE(verdict.message.find("allowedOrigins"), std::string::npos);
}

TEST(UpgradeCheckTest, AllowsListedOrigins)
{
    const HTTPRequest other = request({{"Origin", "https://Other.example:8443"}});
    EXPECT_EQ(statusOf(other, {"https://first.example", "https://other.example:8443"}), 0);
    EXPECT_EQ(statusOf(other, {"*"}), 0);
    EXPECT_EQ(statusOf(other, {"https://other.example"}), 403);
    EXPECT_EQ(statusOf(request({{"Origin", "null"}}), {"null"}), 0);
}

TEST(UpgradeCheckTest, RefusesTwoOrigins)
{
    EXPECT_EQ(statusOf(request({{"Origin", "http://localhost"}}, {{"Origin", "http://evil.example"}}), {"*"}), 400);
}
