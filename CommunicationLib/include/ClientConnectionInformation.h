#pragma once

#include "ClientData.h"
#include "ConnectionState.h"
#include "Export.h"

#include <Poco/Net/SocketAddress.h>
#include <Poco/Types.h>

#include <string>

namespace Kesa::Net
{

/// What is known about one client. A plain record that owns all that it holds.
///
/// Threads: as any value; one object is not safe against itself.
class KESA_API ClientConnectionInformation
{
public:
    Poco::Net::SocketAddress clientAddr;
    Poco::UInt16 serverPort = 0; ///< the port of ours that the client reached; 0 while unknown
    ClientData clientData;
    ConnectionState connectionState = UNSECURE;
    std::string username; ///< empty for a client that has not logged in
    std::string swid;     ///< identifier of the client's software; empty when it gave none

    /// True when the client's kind and the port that it reached are known.
    bool isInitialised() const;

    /// True for an internal client with all rights.
    bool isSuperUser() const;

    /// True for a program of the system itself, with all rights or without.
    bool isSystemInternal() const;

    /// True for a client from outside, and for one of which nothing is known.
    bool isSystemExternal() const;

    /// True when limits on the number of websockets concern the client: all but the programs of the system itself.
    bool isWSLimited() const;

    /// One line for logs: the address, the port, the kind, and what else is known.
    std::string toString() const;
};

} // namespace Kesa::Net
