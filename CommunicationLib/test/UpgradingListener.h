#pragma once

#include <WebsocketPeer.h>

#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/HTTPServerResponseImpl.h>
#include <Poco/Net/HTTPServerSession.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/WebSocket.h>
#include <Poco/SharedPtr.h>

#include <cstdint>
#include <string>
#include <utility>

namespace Kesa::Test
{

/// A server's end of websocket connections on a loopback port that the kernel chose, upgraded as a service would do it.
///
///     UpgradingListener listener;
///     auto [peer, webSocket] = listener.connect();
///
/// Threads: one at a time.
class UpgradingListener
{
public:
    typedef Poco::SharedPtr<Poco::Net::WebSocket> Socket;

    UpgradingListener(): m_listener(Poco::Net::SocketAddress("127.0.0.1", 0), 1000) {}

    std::uint16_t port() const { return m_listener.address().port(); }

    /// Accepts the next connection and answers its upgrade request.
    Socket accept()
    {
        Poco::Net::HTTPServerParams::Ptr parameters = new Poco::Net::HTTPServerParams;
        Poco::Net::HTTPServerSession session(m_listener.acceptConnection(), parameters);
        session.hasMoreRequests();
        Poco::Net::HTTPServerResponseImpl response(session);
        Poco::Net::HTTPServerRequestImpl request(response, session, parameters);
        return new Poco::Net::WebSocket(request, response);
    }

    /// Both ends of a new connection. `early` is sent together with the upgrade request. The peer has still to read the
    /// answer's head when `readsHead` is false.
    std::pair<WebsocketPeer, Socket> connect(const std::string& early = "", bool readsHead = true)
    {
        WebsocketPeer peer = WebsocketPeer::raw(port());
        peer.send(WebsocketPeer::upgradeRequest() + early);
        Socket webSocket = accept();
        if (readsHead)
            peer.receiveHead();
        return {std::move(peer), webSocket};
    }

private:
    Poco::Net::ServerSocket m_listener;
};

} // namespace Kesa::Test
