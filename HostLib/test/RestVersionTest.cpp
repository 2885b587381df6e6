#include "RestFixture.h"

#include "FrontDoor.h"
#include "ServiceHost.h"
#include "TinyService.h"

#include <CapturedLog.h>
#include <VersionCheck.h>
#include <WebsocketPeer.h>

using Kesa::Host::FrontDoor;
using Kesa::Host::RestHandler;

/// The shop behind a handler that speaks certain versions of its API.
class RestVersionTest: public RestFixture
{
protected:
    Answer ask(const std::vector<std::string>& versions, const std::string& accept, const std::string& method = "GET")
    {
        RestHandler::Options options;
        options.apiVersions = versions;
        const RestHandler versioned(options);
        FrontDoor other([&versioned](Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response)
                        { versioned.handle(request, response); },
                        FrontDoor::Options());
        other.start();
        TestClient client(other.port());
        client.send(method + " /shop HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" +
                    (accept.empty() ? "" : "Accept: " + accept + "\r\n") + "\r\n");
        return client.receive();
    }
    static std::string vendor(const std::string& version) { return "application/vnd.kesa.v" + version + "+json"; }
};

TEST_F(RestVersionTest, ServesWhoNamesNoVersionWhateverTheServiceSpeaks)
{
    for (const std::vector<std::string>& versions:
         std::vector<std::vector<std::string>>{{}, {"1.2.3"}, {"1", "2"}, {"x"}})
        for (const std::string& accept: {std::string(), std::string("*/*"), std::string("application/json"),
                                         vendor("99999999999.0.0"), std::string("APPLICATION/VND.KESA.V9.9.9+JSON")})
            EXPECT_EQ(ask(versions, accept).status, 200) << accept;
}

TEST_F(RestVersionTest, ServesAPatchThatIsNotNewerThanTheServices)
{
    for (const std::string& accept: {vendor("1.2.3"), vendor("1.2.0"), "text/html, " + vendor("1.2.3") + ";q=0.5",
                                     vendor("1.2.3") + ", " + vendor("9.9.9")})
        EXPECT_EQ(ask({"1.2.3"}, accept).status, 200) << accept;
}

TEST_F(RestVersionTest, RefusesEveryOtherVersionInTheReadyMadeWords)
{
    for (const std::string& accept: {vendor("1.2.4"), vendor("1.3.0"), vendor("1.1.3"), vendor("2.0.0"),
                                     vendor("0.2.3"), vendor("9.9.9") + ", " + vendor("1.2.3")})
    {
        const auto answer = ask({"1.2.3"}, accept);
        EXPECT_EQ(answer.status, 404) << accept;
        EXPECT_EQ(answer.body, R"({"type":"error","code":404,"message":"Requested version not implemented"})");
        EXPECT_EQ(field(answer, "Content-Type"), "application/json");
    }
    EXPECT_EQ(ask({"one"}, vendor("1.2.3")).status, 404) << "the service's version is none";
    EXPECT_EQ(ask({"1.2"}, vendor("1.2.0")).status, 404);
}

TEST_F(RestVersionTest, SaysThatItCannotJudgeAVersion)
{
    expectError(ask({}, vendor("1.2.3")), 501, "Service does not support any API versions");
    expectError(ask({"1.2.3", "1.2.4"}, vendor("1.2.3")), 501,
                "Handling of multiple API versions simultaneously not implemented");
}

TEST_F(RestVersionTest, ChecksTheVersionBeforeAnythingElse)
{
    for (const char* method: {"POST", "BREW", "OPTIONS", "DELETE"})
        EXPECT_EQ(ask({"1.2.3"}, vendor("2.0.0"), method).body, Kesa::Service::VersionCheck::msgVersionNotImplemented);
}

TEST(RestVersionHostTest, ChecksTheVersionsOfTheHostOnRequestsAndNotOnUpgrades)
{
    const Kesa::Test::CapturedLog quiet{Poco::Message::PRIO_ERROR};
    TinyService service;
    Kesa::Host::ServiceHost::Options options;
    options.apiVersions = {"1.2.3"};
    Kesa::Host::ServiceHost host(service, options);
    host.start();
    const std::string accept = "Accept: application/vnd.kesa.v2.0.0+json\r\n";
    TestClient client(host.port());
    client.get("/shop/orders/1", accept);
    EXPECT_EQ(client.receive().body, Kesa::Service::VersionCheck::msgVersionNotImplemented);
    client.get("/shop/orders/1", "Accept: application/vnd.kesa.v1.2.2+json\r\n");
    EXPECT_EQ(client.receive().status, 200);
    EXPECT_NO_THROW(Kesa::Test::WebsocketPeer(host.port(), accept));
    host.stop();
}
