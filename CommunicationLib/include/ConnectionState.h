#pragma once

#include <Poco/Types.h>

namespace Kesa::Net
{

/// How far the protection of a client's connection has come.
enum ConnectionState : Poco::UInt32
{
    UNSECURE = 0,          ///< plain text
    SECURE_CONNECTING = 1, ///< the secure handshake is running
    SECURE_ESTABLISHED = 2 ///< encrypted
};

} // namespace Kesa::Net
