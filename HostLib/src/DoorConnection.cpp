#include "DoorConnection.h"

#include "ConnectionCaps.h"

namespace Kesa::Host
{

DoorConnection::DoorConnection(std::uint64_t number, const Poco::Net::StreamSocket& doorSocket, std::string peer,
                               ConnectionCaps& caps)
    : id(number), socket(doorSocket), address(std::move(peer)), m_caps(caps)
{
}

DoorConnection::~DoorConnection()
{
    m_caps.leave(address);
}

void DoorConnection::reset()
{
    phase = Phase::Reading;
    parser = RequestHeadParser();
    skipped = 0;
    hasBegun = false;
    isHeadWhole = false;
}

} // namespace Kesa::Host
