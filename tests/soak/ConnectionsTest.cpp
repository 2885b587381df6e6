// Thousands of connections that come, misbehave and go: descriptors, threads and memory are back where they were.

#include "Messages.h"
#include "Shop.h"

#include <CapturedLog.h>
#include <WebsocketPeer.h>

#include <Poco/ThreadPool.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

using Kesa::Test::message;
using Kesa::Test::parsed;
using Kesa::Test::Shop;
using Kesa::Test::WebsocketPeer;

namespace
{

std::size_t entries(const char* directory)
{
    const std::filesystem::directory_iterator begin(directory);
    return static_cast<std::size_t>(std::distance(begin, std::filesystem::directory_iterator()));
}

std::size_t descriptors()
{
    return entries("/proc/self/fd");
}
/// Without those of POCO's pool, which keeps the threads that deliveries used for a while, up to its own bound.
std::size_t threads()
{
    const int ofThePool = Poco::ThreadPool::defaultPool().allocated(); // first, since the first call makes the pool
    return entries("/proc/self/task") - static_cast<std::size_t>(ofThePool);
}

/// Kibibytes that the process has in memory.
long residentMemory()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, 6, "VmRSS:") == 0)
            return std::stol(line.substr(6));
    return 0;
}

/// Waits until `holds`, at most for 30 s.
bool eventually(const std::function<bool()>& holds)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!holds())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

void subscribeAndVanish(const Shop& shop)
{
    WebsocketPeer peer(shop.host.port());
    peer.sendText(message("subscribe", "/shop/orders/1"));
    parsed(peer.receiveText());
    peer.socket().setLinger(true, 0);
}

void subscribeAndClose(const Shop& shop)
{
    WebsocketPeer peer(shop.host.port());
    peer.sendText(message("subscribe", "/shop/orders"));
    parsed(peer.receiveText());
    parsed(peer.receiveText());
    peer.send(WebsocketPeer::frame(0x8, std::string("\x03\xe8", 2)));
    EXPECT_EQ(peer.closeCode(), 1000);
}

void leaveInTheMiddleOfAFrame(const Shop& shop)
{
    WebsocketPeer peer(shop.host.port());
    peer.send(WebsocketPeer::frame(0x1, std::string(5000, 'x')).substr(0, 100));
}

void leaveInTheMiddleOfAHead(const Shop& shop)
{
    WebsocketPeer::raw(shop.host.port()).send(WebsocketPeer::upgradeRequest().substr(0, 70));
}

void connectAndLeave(const Shop& shop)
{
    WebsocketPeer::raw(shop.host.port());
}

void sendGarbage(const Shop& shop)
{
    WebsocketPeer peer(shop.host.port());
    peer.send(std::string(500, '\xff'));
    EXPECT_EQ(peer.closeCode(), 1002);
}

/// Two threads that go through all kinds of clients, while another one changes what they follow.
void storm(Shop& shop, int rounds)
{
    const std::vector<void (*)(const Shop&)> kinds{subscribeAndVanish,      subscribeAndClose, leaveInTheMiddleOfAFrame,
                                                   leaveInTheMiddleOfAHead, connectAndLeave,   sendGarbage};
    std::vector<std::thread> clients;
    for (int i = 0; i < 2; ++i)
        clients.emplace_back(
            [&]
            {
                for (int round = 0; round < rounds; ++round)
                    for (const auto kind: kinds)
                        kind(shop);
            });
    for (int amount = 1; amount <= rounds; ++amount)
        shop.orders->set("1", amount);
    for (auto& client: clients)
        client.join();
}

TEST(ConnectionsTest, AfterAStormEverythingIsBackWhereItWas)
{
    const Kesa::Test::CapturedLog quiet(Poco::Message::PRIO_WARNING);
    Shop shop;
    storm(shop, 20); // what is made once, such as buffers and threads, is made now
    WebsocketPeer good(shop.host.port());
    good.sendText(message("subscribe", "/shop/orders/1"));
    EXPECT_EQ(parsed(good.receiveText())->getValue<std::string>("status"), "ok");

    std::size_t descriptorsBefore = descriptors();
    EXPECT_TRUE(eventually(
        [&]
        {
            const std::size_t present = descriptors();
            return std::exchange(descriptorsBefore, present) == present;
        }));
    const std::size_t threadsBefore = threads();
    const long memoryBefore = residentMemory();

    storm(shop, 200);
    EXPECT_TRUE(eventually([&] { return descriptors() <= descriptorsBefore; }))
        << descriptors() << " descriptors, before " << descriptorsBefore;
    EXPECT_TRUE(eventually([&] { return threads() <= threadsBefore; }))
        << threads() << " threads, before " << threadsBefore;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which keep freed memory
    EXPECT_LT(residentMemory(), memoryBefore + 16 * 1024) << "kibibytes after 2,400 connections";
#else
    EXPECT_GT(memoryBefore, 0);
#endif
}

} // namespace
