#include "TestClient.h"

#include <Poco/Net/SocketAddress.h>
#include <Poco/String.h>

#include <cerrno>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

TestClient::TestClient(Poco::UInt16 port, const std::string& address, int receiveBuffer)
{
    const Poco::Net::SocketAddress server(address, port);
    m_socket = ::socket(server.af(), SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval patience{10, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    if (receiveBuffer > 0)
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    if (m_socket < 0 || ::connect(m_socket, server.addr(), server.length()) != 0)
    {
        const std::string reason = ", errno " + std::to_string(errno);
        ::close(m_socket);
        throw std::runtime_error("cannot connect to " + server.toString() + reason);
    }
}

TestClient::~TestClient()
{
    if (m_socket >= 0)
        ::close(m_socket);
}

bool TestClient::send(std::string_view bytes)
{
    while (!bytes.empty())
    {
        const ssize_t count = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool TestClient::trySend(std::string_view bytes)
{
    return ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) > 0;
}

bool TestClient::get(const std::string& url, const std::string& fields)
{
    return send("GET " + url + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + fields + "\r\n");
}

TestClient::Answer TestClient::receive(bool hasBody)
{
    std::size_t end;
    while ((end = m_received.find("\r\n\r\n")) == std::string::npos)
        if (!receiveMore())
            return {};
    Answer answer;
    answer.head = m_received.substr(0, end + 4);
    m_received.erase(0, end + 4);
    const std::string lower = Poco::toLower(answer.head);
    const std::size_t field = lower.find("content-length: ");
    if (hasBody && field != std::string::npos)
    {
        const std::size_t length = std::stoul(lower.substr(field + 16));
        answer.body = receiveBytes(length);
        if (answer.body.size() < length)
            return {};
    }
    answer.status = std::stoi(answer.head.substr(9, 3));
    return answer;
}

std::string TestClient::receiveBytes(std::size_t count)
{
    while (m_received.size() < count && receiveMore())
        ;
    const std::string bytes = m_received.substr(0, count);
    m_received.erase(0, count);
    return bytes;
}

bool TestClient::isClosedByServer()
{
    char byte;
    return m_received.empty() && ::recv(m_socket, &byte, 1, 0) == 0;
}

void TestClient::finish()
{
    ::shutdown(m_socket, SHUT_WR);
}

void TestClient::reset()
{
    const linger atOnce{1, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    ::close(m_socket);
    m_socket = -1;
}

bool TestClient::receiveMore()
{
    char buffer[65536];
    const ssize_t count = ::recv(m_socket, buffer, sizeof buffer, 0);
    if (count > 0)
        m_received.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
}
