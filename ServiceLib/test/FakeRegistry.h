#pragma once

#include <Data/ServiceRegistryConnection.h>

#include <Poco/Net/NetException.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Timespan.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Kesa::Test
{

/// The registry's port, bound but with nobody listening: whoever connects is refused.
class ClosedRegistryPort
{
public:
    /// Raises std::runtime_error if another program keeps the port for 30 seconds.
    ClosedRegistryPort() { bindRegistryPort(m_socket); }

    static void bindRegistryPort(Poco::Net::ServerSocket& socket)
    {
        const Poco::Net::SocketAddress address(ServiceRegistryConnection::ADDRESS, ServiceRegistryConnection::PORT);
        for (int attempt = 0; attempt < 300; ++attempt)
        {
            try
            {
                socket.bind(address, true, false);
                return;
            }
            catch (const Poco::Net::NetException&)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        }
        throw std::runtime_error(address.toString() + " is taken by another program, perhaps by a registry that runs "
                                                      "there: end it and start the test again");
    }

private:
    Poco::Net::ServerSocket m_socket;
};

/// A registry at the fixed address that answers what the test's script says, and keeps the bytes of every request.
///
///     FakeRegistry registry([](const std::string& request) { return FakeRegistry::answer("404 Not Found"); });
///     EXPECT_FALSE(ServiceRegistryAbstraction::unregisterService(entry));
///     EXPECT_EQ(registry.requests(), ...);
///
/// Threads: each connection has its own, on which the script runs; one call of the script at a time.
class FakeRegistry
{
public:
    /// What is sent, and what comes after it.
    struct Answer
    {
        enum After
        {
            KEEP,  ///< the next request
            CLOSE, ///< the end of the connection
            HANG,  ///< nothing, until the fake goes
            FLOOD, ///< `more` again and again, as fast as it is taken
            DRIP   ///< the bytes of `more` again and again, one every 5 ms
        };
        std::string bytes;
        After after = KEEP;
        std::string more = std::string();
    };
    typedef std::function<Answer(const std::string& request)> Script;

    explicit FakeRegistry(Script script): m_script(std::move(script)), m_isEnding(false), m_connections(0)
    {
        ClosedRegistryPort::bindRegistryPort(m_socket);
        m_socket.listen(64);
        m_acceptor = std::thread([this] { accept(); });
    }

    ~FakeRegistry()
    {
        m_isEnding = true;
        m_acceptor.join();
        for (std::thread& worker: m_workers)
            worker.join();
    }

    FakeRegistry(const FakeRegistry&) = delete;
    FakeRegistry& operator=(const FakeRegistry&) = delete;

    /// A whole answer with a body of known length.
    static Answer answer(const std::string& status, const std::string& body = "", const std::string& fields = "")
    {
        return {"HTTP/1.1 " + status + "\r\n" + fields + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                body};
    }

    /// The head of an answer without a body, as HEAD gets it.
    static Answer head(const std::string& status) { return {"HTTP/1.0 " + status + "\r\n\r\n", Answer::CLOSE}; }

    /// The bytes of each request, in the order in which they were whole.
    std::vector<std::string> requests() const
    {
        std::lock_guard lock(m_mutex);
        return m_requests;
    }

    /// How many connections were accepted so far.
    int connections() const { return m_connections; }

private:
    void accept()
    {
        while (!m_isEnding)
        {
            if (!m_socket.poll(Poco::Timespan(0, 20000), Poco::Net::Socket::SELECT_READ))
                continue;
            ++m_connections;
            auto connection = std::make_unique<Poco::Net::StreamSocket>(m_socket.acceptConnection());
            // From here on the worker alone holds the socket, and so closes it.
            m_workers.emplace_back([this, held = std::move(connection)] { serve(*held); });
        }
    }

    void serve(Poco::Net::StreamSocket& connection)
    {
        try
        {
            connection.setSendTimeout(Poco::Timespan(1, 0));
            std::string received;
            for (;;)
            {
                const std::string request = receive(connection, received);
                if (request.empty() || !send(connection, script(request)))
                    return;
            }
        }
        catch (const Poco::Exception&) // the client has gone
        {
        }
    }

    Answer script(const std::string& request)
    {
        std::lock_guard lock(m_mutex);
        m_requests.push_back(request);
        return m_script(request);
    }

    /// The next whole request; empty at the end of the connection.
    std::string receive(Poco::Net::StreamSocket& connection, std::string& received)
    {
        char buffer[4096];
        for (;;)
        {
            if (const std::size_t size = requestSize(received))
            {
                const std::string request = received.substr(0, size);
                received.erase(0, size);
                return request;
            }
            if (m_isEnding)
                return std::string();
            if (!connection.poll(Poco::Timespan(0, 20000), Poco::Net::Socket::SELECT_READ))
                continue;
            const int count = connection.receiveBytes(buffer, sizeof buffer);
            if (count <= 0)
                return std::string();
            received.append(buffer, static_cast<std::size_t>(count));
        }
    }

    static std::size_t requestSize(const std::string& received)
    {
        const std::size_t head = received.find("\r\n\r\n");
        if (head == std::string::npos)
            return 0;
        if (received.find("chunked") > head)
            return head + 4;
        const std::size_t end = received.find("\r\n0\r\n\r\n", head);
        return end == std::string::npos ? 0 : end + 7;
    }

    /// False if the connection is over.
    bool send(Poco::Net::StreamSocket& connection, const Answer& answer)
    {
        sendAll(connection, answer.bytes);
        if (answer.after == Answer::FLOOD)
            while (!m_isEnding)
                sendAll(connection, answer.more);
        for (std::size_t i = 0; answer.after == Answer::DRIP && !m_isEnding; ++i)
        {
            sendAll(connection, answer.more.substr(i % answer.more.size(), 1));
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        while (answer.after == Answer::HANG && !m_isEnding)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return answer.after == Answer::KEEP;
    }

    static void sendAll(Poco::Net::StreamSocket& connection, const std::string& bytes)
    {
        for (std::size_t sent = 0; sent < bytes.size();)
            sent += static_cast<std::size_t>(
                connection.sendBytes(bytes.data() + sent, static_cast<int>(bytes.size() - sent)));
    }

    const Script m_script;
    std::atomic<bool> m_isEnding;
    std::atomic<int> m_connections;
    Poco::Net::ServerSocket m_socket;
    mutable std::mutex m_mutex; ///< guards m_requests and the script
    std::vector<std::string> m_requests;
    std::thread m_acceptor;
    std::vector<std::thread> m_workers; ///< of the acceptor's thread until that has ended
};

} // namespace Kesa::Test
