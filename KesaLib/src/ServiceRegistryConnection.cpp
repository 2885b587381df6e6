#include "Data/ServiceRegistryConnection.h"

#include <Poco/Net/StreamSocket.h>

namespace Kesa
{

const std::string ServiceRegistryConnection::ADDRESS = "127.0.0.1";
const Poco::UInt16 ServiceRegistryConnection::PORT = 8910;

Poco::SharedPtr<Poco::Net::StreamSocket> ServiceRegistryConnection::connect()
{
    const Poco::Timespan limit(30, 0);
    Poco::SharedPtr<Poco::Net::StreamSocket> socket = new Poco::Net::StreamSocket;
    socket->connect(Poco::Net::SocketAddress(ADDRESS, PORT), limit);
    return socket;
}

} // namespace Kesa
