#pragma once

#include "UpgradingListener.h"

#include <Time/Now.h>
#include <Websocket/WebSocketProxy.h>
#include <Websocket/WebsocketConnectionManager.h>

#include <Poco/Delegate.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>

namespace Kesa::Test
{

/// Waits until `holds`, at most for 20 s.
inline bool eventually(const std::function<bool()>& holds)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!holds())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Something that another thread waits for.
class Gate
{
public:
    void open()
    {
        const std::lock_guard lock(m_mutex);
        m_isOpen = true;
        m_changed.notify_all();
    }
    void wait()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_isOpen; });
    }
    bool isOpen() const
    {
        const std::lock_guard lock(m_mutex);
        return m_isOpen;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isOpen = false;
};

/// A connection manager with connections to it, and a record of what it fires.
class ServedConnections: public testing::Test
{
protected:
    typedef Kesa::Net::WebSocketProxy Proxy;
    typedef Kesa::Net::WebsocketDataEventPayload Data;
    typedef Kesa::Net::WebsocketEventPayload Event;
    typedef UpgradingListener::Socket Socket;

    ServedConnections()
    {
        manager->DataReceived += dataDelegate();
        manager->ConnectionClosed += closeDelegate();
    }

    ~ServedConnections() override
    {
        if (!manager)
            return;
        manager->stop();
        manager->DataReceived -= dataDelegate();
        manager->ConnectionClosed -= closeDelegate();
    }

    /// A client whose connection is served; `lastSocket` is its other end.
    WebsocketPeer connect(const std::string& early = "")
    {
        auto [peer, webSocket] = listener.connect(early);
        lastSocket = webSocket;
        manager->addConnection(webSocket);
        return peer;
    }

    /// A client whose kernel takes little for it while it does not read.
    WebsocketPeer connectSlow()
    {
        WebsocketPeer peer = connect();
        const int small = 128 * 1024;
        ::setsockopt(peer.socket().impl()->sockfd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        return peer;
    }

    /// The proxy of the connection that was made last.
    Proxy proxy() { return Proxy(lastSocket, manager.get()); }

    /// The texts that were fired so far.
    std::vector<std::string> messages() const
    {
        const std::lock_guard lock(m_mutex);
        return m_messages;
    }
    /// The reasons of the closes that were fired so far.
    std::vector<std::string> closes() const
    {
        const std::lock_guard lock(m_mutex);
        return m_closes;
    }
    bool waitForMessages(std::size_t count)
    {
        return eventually([&] { return messages().size() >= count; });
    }
    bool waitForCloses(std::size_t count)
    {
        return eventually([&] { return closes().size() >= count; });
    }

    /// Waits until the I/O thread has seen everything that was sent before.
    static void waitForLoop(WebsocketPeer& other)
    {
        for (int turn = 0; turn < 2; ++turn)
        {
            other.send(WebsocketPeer::frame(0x9, "seen?"));
            while (other.receiveFrame().opcode != 0xA)
            {
            }
        }
    }

    /// Sends `bytes` again and again until the connection takes no more; returns how many bytes it took.
    static std::size_t flood(WebsocketPeer& peer, const std::string& bytes, std::size_t most)
    {
        std::size_t sent = 0;
        int refusals = 0;
        while (sent < most && refusals < 100)
        {
            const std::size_t offset = sent % bytes.size();
            const ssize_t result = ::send(peer.socket().impl()->sockfd(), bytes.data() + offset, bytes.size() - offset,
                                          MSG_DONTWAIT | MSG_NOSIGNAL);
            if (result > 0)
            {
                sent += static_cast<std::size_t>(result);
                refusals = 0;
                continue;
            }
            ++refusals;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return sent;
    }

    /// True when the peer sees an orderly end, after what it has still to read, and no reset.
    static bool endsOrderly(WebsocketPeer& peer)
    {
        char rest[4096];
        try
        {
            while (peer.socket().receiveBytes(rest, sizeof rest) > 0)
            {
            }
            return true;
        }
        catch (const Poco::Net::ConnectionResetException&)
        {
            return false;
        }
    }

    static void reset(WebsocketPeer& peer)
    {
        peer.socket().setLinger(true, 0);
        peer.socket().close();
    }

    /// The threads of the process.
    static std::size_t threads() { return entries("/proc/self/task"); }
    /// The open descriptors of the process.
    static std::size_t descriptors() { return entries("/proc/self/fd"); }

    // The clock stands still unless it is moved, so that no deadline passes on a machine that is slow.
    Kesa::Util::TestClock clock;

    // Handlers use these until the manager has stopped, so they live as long as it.
    Gate entered, leave;

    UpgradingListener listener;
    Kesa::Net::WebsocketConnectionManager::Ptr manager = new Kesa::Net::WebsocketConnectionManager;
    Socket lastSocket;
    std::function<void(const Data&)> onData = [](const Data&) {};     // set before messages come
    std::function<void(const Event&)> onClosed = [](const Event&) {}; // set before connections close

    Poco::Delegate<ServedConnections, const Data, false> dataDelegate() { return {this, &ServedConnections::received}; }
    Poco::Delegate<ServedConnections, const Event, false> closeDelegate() { return {this, &ServedConnections::closed}; }

private:
    static std::size_t entries(const char* directory)
    {
        const std::filesystem::directory_iterator begin(directory);
        return static_cast<std::size_t>(std::distance(begin, std::filesystem::directory_iterator()));
    }

    void received(const Data& payload)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_messages.push_back(payload.data);
        }
        onData(payload);
    }

    void closed(const Event& payload)
    {
        onClosed(payload);
        const std::lock_guard lock(m_mutex);
        m_closes.push_back(payload.Reason);
    }

    mutable std::mutex m_mutex; // guards the records
    std::vector<std::string> m_messages;
    std::vector<std::string> m_closes;
};

} // namespace Kesa::Test
