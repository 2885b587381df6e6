#pragma once

#include <Export.h>

#include <Poco/SharedPtr.h>
#include <Poco/Types.h>

#include <string>

namespace Poco::Net
{
class StreamSocket;
}

namespace Kesa
{

/// Where the service registry listens.
///
/// Threads: any.
class KESA_API ServiceRegistryConnection
{
public:
    static const std::string ADDRESS;
    static const Poco::UInt16 PORT;

    /// A new connection to the registry, shared. Raises a Poco::Exception if there is none within 30 seconds.
    static Poco::SharedPtr<Poco::Net::StreamSocket> connect();
};

} // namespace Kesa
