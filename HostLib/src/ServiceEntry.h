#pragma once

#include "Data/MicroServiceInfo.h"
#include "ServiceHost.h"

namespace Kesa::Host
{

/// Raises Poco::InvalidArgumentException, with what is wrong, if a service with these options cannot be registered. Any
/// thread.
KESA_API void checkEntry(const ServiceHost::Options& options);

/// What the registry is told of a service that is hosted with these options, checked before, and listens on this port.
/// Raises a Poco::Exception if the address listened on is none. Any thread.
KESA_API MicroServiceInfo entryOf(const ServiceHost::Options& options, Poco::UInt16 port);

} // namespace Kesa::Host
