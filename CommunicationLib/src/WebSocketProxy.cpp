#include "Websocket/WebSocketProxy.h"

#include "Channel.h"
#include "ConnectionRegistry.h"

#include <Poco/Exception.h>
#include <Poco/Net/NetException.h>

#include <functional>

namespace Kesa::Net
{

namespace
{

std::shared_ptr<Channel> findChannel(const Poco::SharedPtr<Poco::Net::WebSocket>& webSocket)
{
    return webSocket.isNull() ? nullptr : ConnectionRegistry::instance().find(webSocket);
}

const Poco::Net::SocketImpl* keyOf(const std::shared_ptr<Channel>& channel)
{
    return channel ? channel->key() : nullptr;
}

Channel& require(const std::shared_ptr<Channel>& channel)
{
    if (!channel)
        throw Poco::Net::WebSocketException("The handle has no websocket to write to");
    return *channel;
}

} // namespace

WebSocketProxy::WebSocketProxy(const Poco::SharedPtr<Poco::Net::WebSocket>& socket, WebsocketConnectionManager* server)
    : WebSocketProxy(socket, server, findChannel(socket))
{
}

WebSocketProxy::WebSocketProxy(const Poco::SharedPtr<Poco::Net::WebSocket>& socket,
                               const WebsocketConnectionManager* server, const std::shared_ptr<Channel>& channel)
    : webSocket(socket), manager(server), m_channel(channel)
{
    if (!m_channel)
        return;
    m_address = m_channel->address();
    m_peerAddress = m_channel->peerAddress();
}

WebSocketProxy::WebSocketProxy(const WebSocketProxy& other) = default;

WebSocketProxy::~WebSocketProxy() = default;

Poco::Net::SocketAddress WebSocketProxy::address() const
{
    return m_address;
}

Poco::Net::SocketAddress WebSocketProxy::peerAddress() const
{
    return m_peerAddress;
}

void WebSocketProxy::write(const std::string& text) const
{
    require(m_channel).write(text);
}

void WebSocketProxy::write(const std::shared_ptr<const std::string>& text, Poco::UInt64 number) const
{
    if (!text)
        throw Poco::NullPointerException("A null text cannot be written to a websocket");
    require(m_channel).write(text, number);
}

bool WebSocketProxy::hasEnded() const
{
    return m_channel && m_channel->hasEnded();
}

void WebSocketProxy::shutdown()
{
    require(m_channel).shutdown();
}

bool WebSocketProxy::operator<(const WebSocketProxy& other) const
{
    return std::less<>()(keyOf(m_channel), keyOf(other.m_channel));
}

bool WebSocketProxy::operator==(const WebSocketProxy& other) const
{
    return keyOf(m_channel) == keyOf(other.m_channel);
}

bool WebSocketProxy::operator==(const Poco::Net::WebSocket& socket) const
{
    return keyOf(m_channel) == socket.impl();
}

} // namespace Kesa::Net
