#pragma once

#include "Export.h"

#include <Mutex.h>

#include <Poco/Net/WebSocket.h>
#include <Poco/SharedPtr.h>

#include <memory>
#include <unordered_map>

namespace Poco::Net
{
class SocketImpl;
}

namespace Kesa::Net
{

class Channel;
class Connection;

/// Knows, for the whole process, the channel of each websocket, so that all proxies of a socket share one.
///
/// Ownership: knows the channels weakly; they hold the sockets, so that an entry's key never stands for another socket.
/// Threads:   every operation from any thread.
class KESA_API ConnectionRegistry
{
public:
    typedef Poco::SharedPtr<Poco::Net::WebSocket> Socket;

    static ConnectionRegistry& instance();

    /// The channel of this socket; a new UnservedSocket when it has none.
    std::shared_ptr<Channel> find(const Socket& socket);

    /// Makes this the channel of its socket. Raises Poco::ExistsException when a connection serves the socket already.
    void add(const std::shared_ptr<Connection>& connection);

    /// Forgets the channel of this socket, if it has gone.
    void forget(const Poco::Net::SocketImpl* key);

private:
    Kesa::Util::FastMutex m_mutex; // taken alone
    std::unordered_map<const Poco::Net::SocketImpl*, std::weak_ptr<Channel>> m_channels KESA_GUARDED_BY(m_mutex);
};

} // namespace Kesa::Net
