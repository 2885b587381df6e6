#include "ConnectionRegistry.h"

#include "Connection.h"
#include "UnservedSocket.h"

#include <Poco/Exception.h>

namespace Kesa::Net
{

ConnectionRegistry& ConnectionRegistry::instance()
{
    static ConnectionRegistry& registry = *new ConnectionRegistry; // never deleted: proxies may live until the very end
    return registry;
}

std::shared_ptr<Channel> ConnectionRegistry::find(const Socket& socket)
{
    const Kesa::Util::ScopedLock lock(m_mutex);
    std::weak_ptr<Channel>& entry = m_channels[socket->impl()];
    std::shared_ptr<Channel> channel = entry.lock();
    if (!channel)
    {
        channel = std::make_shared<UnservedSocket>(socket);
        entry = channel;
    }
    return channel;
}

void ConnectionRegistry::add(const std::shared_ptr<Connection>& connection)
{
    std::shared_ptr<Channel> present; // released after the lock: its destructor takes it
    const Kesa::Util::ScopedLock lock(m_mutex);
    std::weak_ptr<Channel>& entry = m_channels[connection->key()];
    present = entry.lock();
    if (dynamic_cast<Connection*>(present.get()))
        throw Poco::ExistsException("This websocket is served already", connection->peerAddress().toString());
    entry = connection;
}

void ConnectionRegistry::forget(const Poco::Net::SocketImpl* key)
{
    const Kesa::Util::ScopedLock lock(m_mutex);
    const auto found = m_channels.find(key);
    if (found != m_channels.end() && found->second.expired())
        m_channels.erase(found);
}

} // namespace Kesa::Net
