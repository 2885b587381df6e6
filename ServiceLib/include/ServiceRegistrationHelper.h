#pragma once

#include "Data/MicroServiceInfo.h"

#include <string>
#include <vector>

namespace Kesa::Service
{

/// Registers services and keeps their entries, so that one call removes whatever is still registered.
///
/// Errors:   failures are logged at Error and reported or, on removal, kept for a later call.
/// Threads:  one thread at a time; every operation blocks for its exchanges with the registry.
/// Shutdown: the destructor removes nothing from the registry: call unregisterServices() before it.
class KESA_API ServiceRegistrationHelper
{
public:
    ServiceRegistrationHelper();
    ~ServiceRegistrationHelper();

    /// Registers `service`, gives it the id that the registry chose, and keeps the entry. False if that failed; nothing
    /// is kept then. A service that is registered twice has two entries. Raises Poco::InvalidAccessException only if
    /// the registration failed and the service has no name to tell.
    bool registerService(Data::ServiceBase& service);
    /// Removes the first entry with this name and port. It is kept if the registry does not confirm that it is gone.
    void unregisterService(const std::string& serviceName, Poco::UInt16 port);
    /// Removes every entry; those that the registry does not confirm as gone are kept.
    void unregisterServices();

private:
    ServiceRegistrationHelper(const ServiceRegistrationHelper&) = delete;
    ServiceRegistrationHelper& operator=(const ServiceRegistrationHelper&) = delete;

    std::vector<MicroServiceInfo> m_microServiceInfoList; ///< in the order of registration
};

} // namespace Kesa::Service
