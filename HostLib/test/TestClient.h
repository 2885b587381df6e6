#pragma once

#include <Poco/Types.h>

#include <string>
#include <string_view>

/// A client that speaks bytes, so that tests can send what no proper client would. Waits at most ten seconds for
/// anything.
class TestClient
{
public:
    struct Answer
    {
        int status = 0;   ///< 0: the connection ended before a whole answer
        std::string head; ///< with the empty line
        std::string body;
    };

    explicit TestClient(Poco::UInt16 port, const std::string& address = "127.0.0.1", int receiveBuffer = 0);
    ~TestClient();
    TestClient(TestClient&& other) noexcept: m_socket(other.m_socket), m_received(std::move(other.m_received))
    {
        other.m_socket = -1;
    }
    TestClient(const TestClient&) = delete;
    TestClient& operator=(const TestClient&) = delete;

    /// Sends all of it; false if the server does not take it.
    bool send(std::string_view bytes);
    /// Sends without waiting; false if nothing was taken.
    bool trySend(std::string_view bytes);
    /// "GET url HTTP/1.1" with a Host field and the given ones, each ending with CR LF.
    bool get(const std::string& url, const std::string& fields = "");
    /// The next answer. `hasBody` is false for HEAD.
    Answer receive(bool hasBody = true);
    /// Reads so many bytes, fewer at the end of the connection.
    std::string receiveBytes(std::size_t count);
    /// True if the server closes the connection without sending anything more.
    bool isClosedByServer();
    /// Says that nothing more will be sent.
    void finish();
    /// Closes, with a reset instead of an orderly end.
    void reset();

private:
    bool receiveMore();

    int m_socket;
    std::string m_received;
};
