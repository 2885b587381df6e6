#pragma once

#include <Poco/Net/NetException.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Timespan.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Kesa::Test
{

/// The client's end of one connection, byte by byte in the test's hand: it sends what no decent client would.
///
///     WebsocketPeer peer(port);                       // connects and upgrades
///     peer.sendText(R"({"type":"subscribe","event":"/shop"})");
///     EXPECT_EQ(peer.receiveText(), ...);
///     peer.send(WebsocketPeer::frame(0x2, "binary"));
///     EXPECT_EQ(peer.closeCode(), 1003);
///
/// Errors:  whatever takes longer than the patience of 20 s raises Poco::TimeoutException; a connection that ends where
///          something was expected raises std::runtime_error.
/// Threads: one thread at a time.
class WebsocketPeer
{
public:
    struct Frame
    {
        bool final = true;
        int opcode = 0;
        std::string payload;
    };

    /// Connects without a request, for those who write their own.
    static WebsocketPeer raw(std::uint16_t port) { return WebsocketPeer(port, Raw{}); }

    /// Connects to the loopback address and upgrades. `fields` are further lines of the request, each with its CRLF.
    explicit WebsocketPeer(std::uint16_t port, const std::string& fields = ""): WebsocketPeer(port, Raw{})
    {
        send(upgradeRequest(fields));
        const std::string head = receiveHead();
        if (head.compare(0, 12, "HTTP/1.1 101") != 0)
            throw std::runtime_error("no upgrade: " + head);
    }

    static std::string upgradeRequest(const std::string& fields = "")
    {
        return "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
               "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n" +
               fields + "\r\n";
    }

    /// A client's frame as it goes over the wire. The mask is fixed, so that a failure looks the same each time.
    static std::string frame(int opcode, const std::string& payload, bool final = true, bool masked = true)
    {
        std::string bytes(1, static_cast<char>((final ? 0x80 : 0) | opcode));
        const int maskBit = masked ? 0x80 : 0;
        const std::size_t size = payload.size();
        const int lengthBytes = size < 126 ? 0 : size <= 0xffff ? 2 : 8;
        bytes += static_cast<char>(maskBit | (lengthBytes == 0   ? static_cast<int>(size)
                                              : lengthBytes == 2 ? 126
                                                                 : 127));
        for (int shift = 8 * (lengthBytes - 1); shift >= 0; shift -= 8)
            bytes += static_cast<char>((size >> shift) & 0xff);
        if (!masked)
            return bytes + payload;
        const char mask[] = {0x12, 0x34, 0x56, 0x78};
        bytes.append(mask, 4);
        for (std::size_t i = 0; i < size; ++i)
            bytes += static_cast<char>(payload[i] ^ mask[i % 4]);
        return bytes;
    }

    void send(const std::string& bytes)
    {
        for (std::size_t sent = 0; sent < bytes.size();)
            sent += static_cast<std::size_t>(
                m_socket.sendBytes(bytes.data() + sent, static_cast<int>(bytes.size() - sent)));
    }

    void sendText(const std::string& text) { send(frame(0x1, text)); }

    /// An answer's head, up to and with its empty line.
    std::string receiveHead()
    {
        const std::string end = "\r\n\r\n";
        while (m_received.find(end) == std::string::npos)
            fill();
        return take(m_received.find(end) + end.size());
    }

    Frame receiveFrame()
    {
        need(2);
        Frame frame;
        frame.final = (byte(0) & 0x80) != 0;
        frame.opcode = byte(0) & 0x0f;
        std::size_t size = byte(1) & 0x7f;
        std::size_t head = 2;
        if (size >= 126)
        {
            const std::size_t lengthBytes = size == 126 ? 2 : 8;
            need(2 + lengthBytes);
            size = 0;
            for (std::size_t i = 0; i < lengthBytes; ++i)
                size = size << 8 | byte(2 + i);
            head += lengthBytes;
        }
        need(head + size);
        take(head);
        frame.payload = take(size);
        return frame;
    }

    /// The next text message; pings before it are skipped.
    std::string receiveText()
    {
        for (;;)
        {
            const Frame frame = receiveFrame();
            if (frame.opcode == 0x1 && frame.final)
                return frame.payload;
            if (frame.opcode != 0x9)
                throw std::runtime_error("expected a text, got opcode " + std::to_string(frame.opcode) + " with " +
                                         std::to_string(closeCode(frame)));
        }
    }

    /// Reads up to the close frame and gives its code; 0 if it has none or if the connection ended without one.
    int closeCode()
    {
        try
        {
            Frame frame;
            do
                frame = receiveFrame();
            while (frame.opcode != 0x8);
            return closeCode(frame);
        }
        catch (const std::runtime_error&) // the end of the stream
        {
            return 0;
        }
        catch (const Poco::Net::NetException&) // a reset
        {
            return 0;
        }
    }

    /// True once the other side has closed; what it still sent is dropped.
    bool ended()
    {
        try
        {
            for (;;)
                fill();
        }
        catch (const std::runtime_error&)
        {
            return true;
        }
        catch (const Poco::Net::NetException&)
        {
            return true;
        }
    }

    Poco::Net::StreamSocket& socket() { return m_socket; }

private:
    struct Raw
    {
    };
    WebsocketPeer(std::uint16_t port, Raw): m_socket(Poco::Net::SocketAddress("127.0.0.1", port))
    {
        m_socket.setReceiveTimeout(Poco::Timespan(20, 0));
        m_socket.setSendTimeout(Poco::Timespan(20, 0));
        m_socket.setNoDelay(true);
    }

    static int closeCode(const Frame& frame)
    {
        if (frame.opcode != 0x8 || frame.payload.size() < 2)
            return 0;
        return static_cast<unsigned char>(frame.payload[0]) << 8 | static_cast<unsigned char>(frame.payload[1]);
    }

    std::size_t byte(std::size_t index) const { return static_cast<unsigned char>(m_received[index]); }

    void need(std::size_t size)
    {
        while (m_received.size() < size)
            fill();
    }

    void fill()
    {
        char buffer[16 * 1024];
        const int count = m_socket.receiveBytes(buffer, sizeof buffer);
        if (count <= 0)
            throw std::runtime_error("the connection has ended");
        m_received.append(buffer, static_cast<std::size_t>(count));
    }

    std::string take(std::size_t size)
    {
        std::string taken = m_received.substr(0, size);
        m_received.erase(0, size);
        return taken;
    }

    Poco::Net::StreamSocket m_socket;
    std::string m_received; ///< what has arrived and was not asked for yet
};

} // namespace Kesa::Test
