#pragma once

#include <cstdint>

namespace Kesa::Net
{

/// What kind of program a client is. A plain value.
struct ClientData
{
    enum ClientType : std::uint32_t
    {
        UnknownClient = 0,           ///< not known (yet)
        InternalClient = 1,          ///< a program of the system itself
        InternalClientSuperuser = 2, ///< such a program with all rights
        ProxyAppClient = 3,          ///< an application that reaches the system through a proxy
        ContainerAppClient = 4,      ///< an application in a container of the system
        SystemExternalClient = 5     ///< anybody from outside
    };

    ClientType clientType = UnknownClient;
    std::uint32_t internalClientId = 0; ///< identifier of an internal client; 0 for all others
};

} // namespace Kesa::Net
