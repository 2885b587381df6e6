#include "ServiceHost.h"

#include "ChildProcess.h"
#include "TestClient.h"
#include "TestTools.h"
#include "TinyService.h"

#include <WebsocketPeer.h>

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/NetException.h>
#include <Poco/ThreadPool.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <optional>
#include <thread>
#include <vector>

using Kesa::Host::ServiceHost;
using Kesa::Test::WebsocketPeer;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

const std::string SUBSCRIBE = R"({"type":"subscribe","event":"/shop/orders/1","updateLimit":0})";

Poco::JSON::Object::Ptr parse(const std::string& text)
{
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

/// POCO's pool keeps the threads that the deliveries used for a while, up to its own bound.
long threadsOutsideThePool()
{
    const int ofThePool = Poco::ThreadPool::defaultPool().allocated(); // first, since the first call makes the pool
    return runningThreads() - ofThePool;
}

/// The tiny service, hosted in this process.
class ServiceHostTest: public testing::Test
{
protected:
    void start(const ServiceHost::Options& options = {})
    {
        host.emplace(service, options);
        host->start();
    }

    int priceFrom(WebsocketPeer& peer) { return parse(peer.receiveText())->getObject("data")->getValue<int>("price"); }

    /// The answer to an upgrade request with fields of its own.
    TestClient::Answer upgrade(const std::string& fields)
    {
        TestClient client(host->port());
        client.send(WebsocketPeer::upgradeRequest(fields));
        return client.receive();
    }

    TinyService service;
    std::optional<ServiceHost> host;
};

/// The tiny service as a process of its own.
class TinyProcess
{
public:
    explicit TinyProcess(const std::string& argument = ""): child(KESA_TINY_SERVICE, argument)
    {
        line = child.readLine();
        const std::string before = "listening on http://127.0.0.1:";
        if (line.compare(0, before.size(), before) == 0)
            port = static_cast<Poco::UInt16>(std::stoi(line.substr(before.size())));
    }

    ChildProcess child;
    std::string line;
    Poco::UInt16 port = 0;
};

} // namespace

// --- in this process ---

TEST_F(ServiceHostTest, ServesTheServicesData)
{
    start();
    TestClient client(host->port());
    client.get("/shop/orders/1");
    EXPECT_EQ(parse(client.receive().body)->getValue<std::string>("status"), "ok");
}

TEST_F(ServiceHostTest, AsksTheServicesOwnHandlerFirst)
{
    ServiceHost::Options options;
    options.handleFirst = [](Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response)
    {
        const bool isOwn = request.getURI() == "/own";
        if (isOwn)
            response.sendBuffer("mine", 4);
        return isOwn;
    };
    start(options);
    TestClient client(host->port());
    client.get("/own");
    EXPECT_EQ(client.receive().body, "mine");
    client.get("/shop/orders/1");
    EXPECT_EQ(parse(client.receive().body)->getValue<std::string>("status"), "ok");
}

TEST_F(ServiceHostTest, DoesNotAskTheServicesOwnHandlerAboutWebsockets)
{
    std::atomic<int> asked{0};
    ServiceHost::Options options;
    options.handleFirst = [&asked](Poco::Net::HTTPServerRequest&, Poco::Net::HTTPServerResponse&)
    { return ++asked > 0; };
    start(options);
    WebsocketPeer peer(host->port());
    peer.sendText(SUBSCRIBE);
    EXPECT_EQ(parse(peer.receiveText())->getValue<std::string>("status"), "ok");
    EXPECT_EQ(asked, 0);
}

TEST_F(ServiceHostTest, LeadsAWebsocketFromTheUpgradeToANotification)
{
    start();
    WebsocketPeer peer(host->port());
    peer.sendText(SUBSCRIBE);
    EXPECT_EQ(parse(peer.receiveText())->getValue<std::string>("status"), "ok");
    EXPECT_EQ(priceFrom(peer), 1);
    service.trigger->setPrice(2);
    EXPECT_EQ(priceFrom(peer), 2);
}

TEST_F(ServiceHostTest, LosesNoFrameThatFollowsTheUpgradeRequestInTheSameSegment)
{
    start();
    WebsocketPeer peer = WebsocketPeer::raw(host->port());
    peer.send(WebsocketPeer::upgradeRequest() + WebsocketPeer::frame(1, SUBSCRIBE));
    EXPECT_THAT(peer.receiveHead(), StartsWith("HTTP/1.1 101 "));
    EXPECT_EQ(parse(peer.receiveText())->getValue<std::string>("status"), "ok");
    EXPECT_EQ(priceFrom(peer), 1);
}

TEST_F(ServiceHostTest, UpgradesAConnectionThatHasCarriedRequests)
{
    start();
    TestClient client(host->port());
    client.send("GET /shop/orders/1 HTTP/1.1\r\nHost: x\r\n\r\n" + WebsocketPeer::upgradeRequest() +
                WebsocketPeer::frame(1, SUBSCRIBE));
    EXPECT_EQ(client.receive().status, 200);
    EXPECT_EQ(client.receive().status, 101);
    EXPECT_EQ(client.receiveBytes(1), "\x81");
}

TEST_F(ServiceHostTest, UpgradesOnAnyUrl)
{
    start();
    for (const char* url: {"/", "/shop/orders/1", "/a/b/c/d?e"})
    {
        TestClient client(host->port());
        std::string request = WebsocketPeer::upgradeRequest();
        request.replace(4, 1, url);
        client.send(request);
        const auto answer = client.receive();
        EXPECT_EQ(answer.status, 101) << url;
        EXPECT_THAT(answer.head, HasSubstr("Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n"));
    }
}

TEST_F(ServiceHostTest, SelectsNoProtocolAndNoExtension)
{
    start();
    const auto answer = upgrade("Sec-WebSocket-Protocol: chat\r\nSec-WebSocket-Extensions: permessage-deflate\r\n");
    EXPECT_EQ(answer.status, 101);
    EXPECT_THAT(answer.head, testing::Not(HasSubstr("Sec-WebSocket-Protocol")));
    EXPECT_THAT(answer.head, testing::Not(HasSubstr("Sec-WebSocket-Extensions")));
}

TEST_F(ServiceHostTest, RefusesASecondUpgradeOnAWebsocket)
{
    start();
    WebsocketPeer peer(host->port());
    peer.send(WebsocketPeer::upgradeRequest()); // "G" is no frame that a client may send
    EXPECT_EQ(peer.closeCode(), 1002);
    EXPECT_TRUE(peer.ended());
}

TEST_F(ServiceHostTest, RefusesWebPagesFromElsewhereUnlessListed)
{
    ServiceHost::Options options;
    options.allowedOrigins = {"https://app.example"};
    start(options);
    EXPECT_EQ(upgrade("Origin: https://app.example\r\n").status, 101);
    EXPECT_EQ(upgrade("Origin: http://localhost:3000\r\n").status, 101);
    const auto refused = upgrade("Origin: https://evil.example\r\n");
    EXPECT_EQ(refused.status, 403);
    EXPECT_THAT(refused.body, HasSubstr("allowedOrigins"));
}

TEST_F(ServiceHostTest, RefusesMoreWebsocketsThanItMayHaveUntilOneGoes)
{
    ServiceHost::Options options;
    options.maxWebsockets = 2;
    start(options);
    const WebsocketPeer stays(host->port());
    {
        const WebsocketPeer goes(host->port());
        TestClient::Answer refused; // a websocket counts only a moment after its client has the answer
        EXPECT_TRUE(eventually([&] { return (refused = upgrade("")).status == 503; }));
        EXPECT_THAT(refused.body, HasSubstr("as many websockets as it may"));
    }
    EXPECT_TRUE(eventually([this] { return upgrade("").status == 101; }));
}

TEST_F(ServiceHostTest, TellsTheVersionThatItSpeaks)
{
    start();
    TestClient client(host->port());
    client.get("/", "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 8\r\n"
                    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n");
    const auto answer = client.receive();
    EXPECT_EQ(answer.status, 426);
    EXPECT_THAT(answer.head, HasSubstr("Sec-WebSocket-Version: 13\r\n"));
    client.get("/shop/orders/1"); // the connection goes on
    EXPECT_EQ(client.receive().status, 200);
}

TEST_F(ServiceHostTest, KnowsItsUrl)
{
    ServiceHost::Options options;
    options.address = "::1";
    start(options);
    EXPECT_EQ(host->url(), "http://[::1]:" + std::to_string(host->port()));
    TestClient client(host->port(), "::1");
    client.get("/shop/orders/1");
    EXPECT_EQ(client.receive().status, 200);
}

TEST_F(ServiceHostTest, StartsNothingWhenThePortIsTaken)
{
    start();
    ServiceHost::Options options;
    options.port = host->port();
    TinyService other;
    ServiceHost second(other, options);
    EXPECT_THROW(second.start(), Poco::Net::NetException);
    EXPECT_EQ(second.run(), 1);
    EXPECT_EQ(other.stops, 0);
}

TEST_F(ServiceHostTest, ReleasesThePortWhenTheServiceDoesNotStart)
{
    service.startSucceeds = false;
    host.emplace(service, ServiceHost::Options());
    EXPECT_THROW(host->start(), Poco::RuntimeException);
    EXPECT_THROW(TestClient client(host->port()), std::runtime_error);
    EXPECT_TRUE(host->stop());
    EXPECT_EQ(service.stops, 1) << "only the failed start may have stopped it";
}

TEST_F(ServiceHostTest, RefusesASecondStart)
{
    start();
    EXPECT_THROW(host->start(), Poco::IllegalStateException);
}

TEST_F(ServiceHostTest, ClosesWebsocketsWith1001AtTheStop)
{
    start();
    bool stopped = false;
    std::thread stopper;
    {
        WebsocketPeer peer(host->port());
        stopper = std::thread([&] { stopped = host->stop(); });
        EXPECT_EQ(peer.closeCode(), 1001);
        peer.send(WebsocketPeer::frame(8, "\x03\xe9"));
        EXPECT_TRUE(peer.ended());
    }
    stopper.join();
    EXPECT_TRUE(stopped);
    EXPECT_TRUE(host->stop());
    EXPECT_EQ(service.stops, 1);
}

TEST_F(ServiceHostTest, CanBeStoppedAgainWhenTheServicesStopFailed)
{
    start();
    service.stopSucceeds = false;
    EXPECT_FALSE(host->stop());
    service.stopSucceeds = true;
    EXPECT_TRUE(host->stop());
    EXPECT_EQ(service.stops, 2);
}

TEST_F(ServiceHostTest, StartsAgainAfterAStop)
{
    for (int i = 0; i < 3; ++i)
    {
        service.trigger = new TinyTrigger;
        host.emplace(service, ServiceHost::Options());
        host->start();
        {
            WebsocketPeer peer(host->port());
            peer.sendText(SUBSCRIBE);
            EXPECT_EQ(parse(peer.receiveText())->getValue<std::string>("status"), "ok");
        }
        EXPECT_TRUE(host->stop());
    }
}

TEST_F(ServiceHostTest, RefusesToBeStoppedByADataSource)
{
    std::atomic<bool> isRefused{false};
    service.trigger->onLoad = [&]
    {
        try
        {
            host->stop();
        }
        catch (const Poco::IllegalStateException&)
        {
            isRefused = true;
        }
    };
    start();
    TestClient client(host->port());
    client.get("/shop/orders/1");
    EXPECT_EQ(client.receive().status, 200);
    EXPECT_TRUE(isRefused);
}

TEST_F(ServiceHostTest, RunsUntilADataSourceAsksItToStop)
{
    host.emplace(service, ServiceHost::Options());
    service.trigger->onLoad = [this] { host->requestStop(); };
    int status = -1;
    std::thread runner([&] { status = host->run(); });
    EXPECT_TRUE(eventually(
        [this]
        {
            if (host->port() == 0)
                return false;
            TestClient client(host->port());
            client.get("/shop/orders/1");
            return client.receive().status == 200;
        }));
    runner.join();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(service.stops, 1);
}

TEST_F(ServiceHostTest, RestoresTheSignalHandlersAfterARun)
{
    struct sigaction before = {};
    struct sigaction after = {};
    ::sigaction(SIGTERM, nullptr, &before);
    host.emplace(service, ServiceHost::Options());
    host->requestStop();
    EXPECT_EQ(host->run(), 0);
    ::sigaction(SIGTERM, nullptr, &after);
    EXPECT_EQ(before.sa_handler, after.sa_handler);
}

TEST_F(ServiceHostTest, StopsUnderLoadAndLeavesNothingBehind)
{
    start();
    EXPECT_TRUE(host->stop()); // what the process opens only once is open now
    const long descriptors = openDescriptors();
    const long threads = threadsOutsideThePool();
    for (int round = 0; round < 3; ++round)
    {
        service.trigger = new TinyTrigger;
        host.emplace(service, ServiceHost::Options());
        host->start();
        std::atomic<bool> isOver{false};
        std::atomic<int> messages{0};
        std::vector<std::thread> clients;
        for (int i = 0; i < 3; ++i)
            clients.emplace_back(
                [&]
                {
                    try
                    {
                        while (!isOver)
                        {
                            TestClient http(host->port());
                            http.get("/shop/orders");
                            http.receive();
                            WebsocketPeer peer(host->port());
                            peer.sendText(SUBSCRIBE);
                            for (int k = 0; k < 3; ++k, ++messages)
                                peer.receiveText();
                        }
                    }
                    catch (const std::exception&)
                    {
                        // the service has gone
                    }
                });
        for (int price = 0; messages < 12; ++price)
            service.trigger->setPrice(price);
        EXPECT_TRUE(host->stop());
        isOver = true;
        for (std::thread& client: clients)
            client.join();
    }
    EXPECT_TRUE(eventually([&] { return openDescriptors() == descriptors; }));
    EXPECT_TRUE(eventually([&] { return threadsOutsideThePool() == threads; }));
}

TEST_F(ServiceHostTest, EndsARunningLoadBeforeItStops)
{
    start();
    TestClient client(host->port());
    client.get("/shop/orders/wait");
    ASSERT_TRUE(eventually([this] { return service.trigger->loads == 1; }));
    std::atomic<bool> isStopped{false};
    std::thread stopper(
        [&]
        {
            host->stop();
            isStopped = true;
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(isStopped);
    service.trigger->canLoad.set();
    stopper.join();
    EXPECT_EQ(client.receive().status, 200);
}

// --- as a process ---

TEST(ServiceProcessTest, PrintsWhereItListensAndStopsCleanlyOnSignals)
{
    for (const int signal: {SIGTERM, SIGINT})
    {
        TinyProcess process;
        ASSERT_NE(process.port, 0) << process.line;
        TestClient client(process.port);
        client.get("/shop/orders/1");
        EXPECT_EQ(client.receive().status, 200);
        {
            WebsocketPeer peer(process.port);
            process.child.signal(signal);
            EXPECT_EQ(peer.closeCode(), 1001);
            peer.send(WebsocketPeer::frame(8, "\x03\xe9"));
        }
        EXPECT_EQ(process.child.wait(), 0);
        EXPECT_EQ(process.child.readLine(), "") << "one line is all that it prints";
    }
}

TEST(ServiceProcessTest, EndsAtOnceOnASecondSignal)
{
    TinyProcess process("slow-stop");
    ASSERT_NE(process.port, 0);
    process.child.signal(SIGTERM);
    ASSERT_TRUE(eventually([&] { // until the stop has begun
        try
        {
            TestClient client(process.port);
            return false;
        }
        catch (const std::runtime_error&)
        {
            return true;
        }
    }));
    process.child.signal(SIGINT);
    EXPECT_EQ(process.child.wait(), 128 + SIGINT);
}

TEST(ServiceProcessTest, EndsWithStatus1WhenItCannotStart)
{
    TinyProcess process("fail-start");
    EXPECT_EQ(process.line, "");
    EXPECT_EQ(process.child.wait(), 1);
}

TEST(ServiceProcessTest, NeitherSpinsNorDiesWithoutADescriptorLeft)
{
    raiseDescriptorLimit();
    TinyProcess process("64");
    ASSERT_NE(process.port, 0);
    // Everything once, while there are descriptors: a sanitizer needs one for its first look at a type.
    TestClient(process.port).trySend("GET /shop");
    TestClient first(process.port);
    first.get("/shop/orders/1", "Connection: close\r\n");
    EXPECT_EQ(first.receive().status, 200);
    EXPECT_TRUE(first.isClosedByServer());
    std::vector<TestClient> clients;
    for (int i = 0; i < 150; ++i)
        clients.emplace_back(process.port);
    for (TestClient& client: clients)
        client.trySend("GET /shop/orders/1 HTTP/1.1\r\n"); // the rest never comes
    const long before = process.child.processorTime();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_LT(process.child.processorTime() - before, 300) << "of a second";
    EXPECT_EQ(clients.back().receive().status, 503);
    clients.clear();
    EXPECT_TRUE(eventually(
        [&]
        {
            TestClient client(process.port);
            client.get("/shop/orders/1");
            return client.receive().status == 200;
        }));
    process.child.signal(SIGTERM);
    EXPECT_EQ(process.child.wait(), 0);
}
