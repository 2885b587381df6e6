#include "Client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Fanout
{

namespace
{

int checked(int result, const char* what)
{
    if (result < 0)
        throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    return result;
}

int connectTo(std::uint16_t port)
{
    const int descriptor = checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    checked(connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), "connect");
    return descriptor;
}

void sendAll(int descriptor, std::string_view bytes)
{
    if (checked(static_cast<int>(send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL)), "send") !=
        static_cast<int>(bytes.size()))
        throw std::runtime_error("send: a short message left in parts");
}

/// Reads up to and with `end`, byte by byte, so that nothing behind it is taken.
std::string readUntil(int descriptor, std::string_view end)
{
    std::string text;
    char byte;
    while (text.size() < end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0)
    {
        if (checked(static_cast<int>(recv(descriptor, &byte, 1, 0)), "recv") == 0)
            throw std::runtime_error("the server closed after: " + text);
        text += byte;
    }
    return text;
}

/// A short masked frame; the mask is zero, so that the text stands as it is.
std::string frame(char opcode, std::string_view text)
{
    return std::string{static_cast<char>(0x80 | opcode), static_cast<char>(0x80 | text.size()), 0, 0, 0, 0}.append(
        text);
}

std::string textFrame(std::string_view text)
{
    return frame(0x1, text);
}
std::string pong(std::string_view payload)
{
    return frame(0xa, payload);
}

/// The length of the frame that begins with these bytes; 0 as long as that is unknown.
std::size_t frameLength(const char* bytes, std::size_t length)
{
    if (length < 2)
        return 0;
    const std::size_t size = static_cast<unsigned char>(bytes[1]);
    if (size < 126)
        return 2 + size;
    if (length < 4)
        return 0;
    return 4 +
           (static_cast<std::size_t>(static_cast<unsigned char>(bytes[2])) << 8 | static_cast<unsigned char>(bytes[3]));
}

} // namespace

std::int64_t monotonicNanoseconds()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

Client::Client(Shared& shared, std::uint16_t servicePort, std::uint16_t barePort, const char* url): m_shared(shared)
{
    m_servicePoller = checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
    m_barePoller = checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
    for (std::size_t i = 0; i < CONNECTIONS; ++i)
    {
        open(m_service[i], i, m_servicePoller, servicePort);
        open(m_bare[i], i, m_barePoller, barePort);
        subscribe(m_service[i], url);
    }
}

Client::~Client()
{
    for (const Connections* connections: {&m_service, &m_bare})
        for (const Connection& connection: *connections)
            close(connection.socket);
    close(m_servicePoller);
    close(m_barePoller);
}

void Client::open(Connection& connection, std::size_t index, int poller, std::uint16_t port)
{
    connection.socket = connectTo(port);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = index;
    checked(epoll_ctl(poller, EPOLL_CTL_ADD, connection.socket, &event), "epoll_ctl");
}

void Client::subscribe(Connection& connection, const char* url)
{
    sendAll(connection.socket, "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                               "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n");
    const std::string head = readUntil(connection.socket, "\r\n\r\n");
    if (head.compare(0, 12, "HTTP/1.1 101") != 0)
        throw std::runtime_error("no upgrade: " + head);
    sendAll(connection.socket,
            textFrame(R"({"type":"subscribe","event":")" + std::string(url) + R"(","updateLimit":0})"));
    for (std::size_t texts = 0; texts < 2;) // the acknowledgement and the first data
        texts += receive(connection, true);
}

void Client::run(int commands, int answers)
{
    char command = 0;
    while (read(commands, &command, 1) == 1)
    {
        const bool fromService = command == static_cast<char>(Command::SERVICE);
        readRound(fromService ? m_service : m_bare, fromService ? m_servicePoller : m_barePoller, fromService);
        const char done = static_cast<char>(Command::DONE);
        checked(static_cast<int>(write(answers, &done, 1)), "write");
    }
}

void Client::readRound(Connections& connections, int poller, bool fromService)
{
    std::array<epoll_event, 256> events;
    for (std::size_t frames = 0; frames < connections.size();)
    {
        const int count = checked(epoll_wait(poller, events.data(), static_cast<int>(events.size()), -1), "epoll_wait");
        for (int i = 0; i < count; ++i)
        {
            const std::size_t texts = receive(connections[events[static_cast<std::size_t>(i)].data.u64], fromService);
            if (texts == 0)
                continue;
            frames += texts;
            const std::size_t index = m_shared.latencies++;
            m_shared.nanoseconds[index] = monotonicNanoseconds() - m_shared.changedAt;
        }
    }
}

/// Receives once and takes away all the frames that are whole. Gives the number of texts among them; a ping is
/// answered.
std::size_t Client::receive(Connection& connection, bool fromService)
{
    const ssize_t count = recv(connection.socket, connection.bytes.data() + connection.length,
                               connection.bytes.size() - connection.length, 0);
    if (checked(static_cast<int>(count), "recv") == 0)
        throw std::runtime_error("the server closed a connection");
    connection.length += static_cast<std::size_t>(count);
    std::size_t texts = 0;
    for (;;)
    {
        const std::size_t length = frameLength(connection.bytes.data(), connection.length);
        if (length == 0 || connection.length < length)
            return texts;
        if ((connection.bytes[0] & 0x0f) == 0x9)
            sendAll(connection.socket, pong({connection.bytes.data() + 2, length - 2}));
        else
            ++texts;
        if (fromService && &connection == &m_service.front())
            keepFrame(connection, length);
        connection.length -= length;
        std::memmove(connection.bytes.data(), connection.bytes.data() + length, connection.length);
    }
}

void Client::keepFrame(const Connection& connection, std::size_t length)
{
    std::copy_n(connection.bytes.begin(), length, m_shared.frame.begin());
    m_shared.frameLength = length;
}

} // namespace Fanout
