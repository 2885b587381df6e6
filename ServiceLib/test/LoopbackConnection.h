#pragma once

#include <Websocket/WebSocketProxy.h>
#include <Websocket/WebsocketConnectionManager.h>
#include <WebsocketPeer.h>

#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerSession.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Net/WebSocket.h>
#include <Poco/Net/WebSocketImpl.h>

#include <optional>
#include <stdexcept>
#include <string>

namespace Kesa::Test
{

/// A client's connection without a service around it: what is written through proxy() can be read here, as the client
/// would. One thread reads.
class LoopbackConnection
{
public:
    LoopbackConnection()
    {
        Poco::Net::ServerSocket listener(Poco::Net::SocketAddress("127.0.0.1", 0), 1);
        m_client.connect(listener.address());
        m_client.setReceiveTimeout(Poco::Timespan(20, 0));
        Poco::Net::StreamSocket server = listener.acceptConnection();
        Poco::Net::HTTPServerSession session(server, new Poco::Net::HTTPServerParams);
        auto* impl =
            new Poco::Net::WebSocketImpl(static_cast<Poco::Net::StreamSocketImpl*>(server.impl()), session, false);
        session.detachSocket();
        m_webSocket = new Poco::Net::WebSocket(Holder(impl));
    }

    /// A handle of the service's end; all are copies of one connection.
    Net::WebSocketProxy proxy() const { return m_served ? *m_served : Net::WebSocketProxy(m_webSocket, nullptr); }

    /// From now on the manager reads what the client says and takes care of what is written.
    void serveBy(Net::WebsocketConnectionManager& manager)
    {
        manager.addConnection(m_webSocket);
        m_served.emplace(m_webSocket, &manager); // the manager itself forgets a connection that has ended
    }

    /// The client sends a text message; only on a served connection somebody reads it.
    void say(const std::string& text)
    {
        const std::string frame = WebsocketPeer::frame(0x1, text);
        m_client.sendBytes(frame.data(), static_cast<int>(frame.size()));
    }

    /// The client goes without a word.
    void leave() { m_client.close(); }

    /// How many handles of the connection exist: this object's own and one for each subscription. proxy() no longer
    /// gives that of the served connection afterwards.
    int handles()
    {
        m_served.reset();
        return m_webSocket.referenceCount();
    }

    /// The next message that the service wrote; waits for it.
    std::string nextText()
    {
        need(2);
        std::size_t size = static_cast<unsigned char>(m_received[1]) & 0x7f;
        const std::size_t lengthBytes = size < 126 ? 0 : size == 126 ? 2 : 8;
        need(2 + lengthBytes);
        if (lengthBytes > 0)
            size = 0;
        for (std::size_t i = 0; i < lengthBytes; ++i)
            size = size << 8 | static_cast<unsigned char>(m_received[2 + i]);
        need(2 + lengthBytes + size);
        const std::string text = m_received.substr(2 + lengthBytes, size);
        m_received.erase(0, 2 + lengthBytes + size);
        return text;
    }

    Poco::JSON::Object::Ptr nextMessage()
    {
        Poco::JSON::Parser parser;
        return parser.parse(nextText()).extract<Poco::JSON::Object::Ptr>();
    }

    /// True when a message stands ready. What was written before this call is seen, since it went over loopback.
    bool hasMessage()
    {
        return !m_received.empty() || m_client.poll(Poco::Timespan(0), Poco::Net::Socket::SELECT_READ);
    }

    /// The service's writes fail from now on.
    void breakConnection() { m_webSocket->close(); }

private:
    struct Holder: Poco::Net::Socket
    {
        explicit Holder(Poco::Net::SocketImpl* impl): Poco::Net::Socket(impl) {}
    };

    void need(std::size_t size)
    {
        char buffer[16384];
        while (m_received.size() < size)
        {
            const int count = m_client.receiveBytes(buffer, sizeof buffer);
            if (count <= 0)
                throw std::runtime_error("the connection ended");
            m_received.append(buffer, static_cast<std::size_t>(count));
        }
    }

    Poco::Net::StreamSocket m_client;
    Poco::SharedPtr<Poco::Net::WebSocket> m_webSocket;
    std::optional<Net::WebSocketProxy> m_served;
    std::string m_received;
};

} // namespace Kesa::Test
