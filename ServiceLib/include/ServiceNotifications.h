#pragma once

#include "Export.h"

#include <Poco/BasicEvent.h>
#include <Poco/Mutex.h>

namespace Kesa::Service
{

/// Tells other code that the service has started or is going down. Found through ApplicationServices while a
/// GenericServiceBootstrap exists. Listeners run on the thread that starts or stops the service.
class KESA_API ServiceNotifications
{
public:
    Poco::BasicEvent<void, Poco::FastMutex> ServiceStartup;  ///< at the end of a successful startup()
    Poco::BasicEvent<void, Poco::FastMutex> ServiceShutdown; ///< at the beginning of shutdown()
};

} // namespace Kesa::Service
