#pragma once

#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/StreamSocket.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace Kesa::Registry::Test
{

/// Listens on the loopback address, reads one request on each connection, and hands the connection to `answer`, with
/// the number of the request from 1 on.
class FakeService
{
public:
    typedef std::function<void(Poco::Net::StreamSocket&, int number)> Answer;

    explicit FakeService(Answer answer): m_answer(std::move(answer)), m_thread([this] { run(); }) {}
    ~FakeService()
    {
        m_isEnding = true;
        m_thread.join();
    }
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    /// One that always answers with this text.
    static Answer says(const std::string& text)
    {
        return [text](Poco::Net::StreamSocket& socket, int)
        { socket.sendBytes(text.data(), static_cast<int>(text.size())); };
    }

    int port() const { return m_socket.address().port(); }
    int requests() const { return m_requests; }
    std::string lastRequest() const
    {
        std::lock_guard lock(m_mutex);
        return m_lastRequest;
    }

private:
    void run()
    {
        while (!m_isEnding)
            serve();
    }

    void serve()
    {
        try
        {
            if (!m_socket.poll(Poco::Timespan(0, 5000), Poco::Net::Socket::SELECT_READ))
                return;
            Poco::Net::StreamSocket socket = m_socket.acceptConnection();
            socket.setReceiveTimeout(Poco::Timespan(10, 0));
            std::string request;
            char buffer[1024];
            for (int count; request.find("\r\n\r\n") == std::string::npos;)
            {
                if ((count = socket.receiveBytes(buffer, sizeof buffer)) <= 0)
                    return;
                request.append(buffer, static_cast<std::size_t>(count));
            }
            {
                std::lock_guard lock(m_mutex);
                m_lastRequest = request;
            }
            m_answer(socket, ++m_requests);
        }
        catch (const Poco::Exception&) // the client is gone, or there is no descriptor
        {
        }
    }

    const Answer m_answer;
    Poco::Net::ServerSocket m_socket{Poco::Net::SocketAddress("127.0.0.1", 0)};
    std::atomic<bool> m_isEnding{false};
    std::atomic<int> m_requests{0};
    mutable std::mutex m_mutex; ///< guards m_lastRequest
    std::string m_lastRequest;
    std::thread m_thread;
};

} // namespace Kesa::Registry::Test
