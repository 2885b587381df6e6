#include "Channel.h"

#include "ConnectionRegistry.h"

#include <Poco/Net/NetException.h>

namespace Kesa::Net
{

namespace
{

Poco::Net::SocketAddress addressOf(const Channel::Socket& socket)
{
    try
    {
        return socket->address();
    }
    catch (const Poco::Exception&)
    {
        return {};
    }
}

Poco::Net::SocketAddress peerAddressOf(const Channel::Socket& socket)
{
    try
    {
        return socket->peerAddress();
    }
    catch (const Poco::Exception&)
    {
        return {};
    }
}

} // namespace

Channel::Channel(const Socket& socket)
    : m_socket(socket), m_key(socket->impl()), m_address(addressOf(socket)), m_peerAddress(peerAddressOf(socket))
{
}

Channel::~Channel()
{
    ConnectionRegistry::instance().forget(m_key);
}

} // namespace Kesa::Net
