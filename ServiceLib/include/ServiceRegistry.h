#pragma once

#include "Data/MicroServiceInfo.h"
#include "Data/ServiceRegistryConnection.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace Poco::Net
{
class HTTPClientSession;
class HTTPResponse;
} // namespace Poco::Net

namespace Kesa
{

/// Registers `service` at the registry at the other end of `session` and stores the id that the registry gives into it.
/// False, with the reason in the log at Error, if that failed.
///
/// The session's own limits of time count. An answer whose body is longer than 64 KiB counts as a failure.
KESA_API bool registerServicePriv(Poco::Net::HTTPClientSession& session, MicroServiceInfo& service);

/// Removes the entry with the id of `service`. False, with the reason in the log at Error, if that failed. Raises
/// Poco::InvalidAccessException only if the removal failed and the service has no name to tell.
KESA_API bool unregisterServicePriv(Poco::Net::HTTPClientSession& session, const MicroServiceInfo& service);

/// Appends the entries of a list as the registry sends it to `outResults`; entries that cannot be used are skipped.
/// False, with the reason in the log at Error, if the list is malformed: entries before the fault stay in `outResults`.
/// Raises a Poco::Exception if reading the stream fails, or the list is longer than 16 MiB or holds more than 500,000
/// members and elements.
KESA_API bool extractMicroServiceInfosFromResponse(std::vector<MicroServiceInfo>& outResults,
                                                   std::istream& responseStream);

/// Logs status and headers at Trace.
KESA_API void logResponse(const Poco::Net::HTTPResponse& response);

namespace Service
{

/// The exchanges with the service registry that change or read its entries.
///
/// Errors:  every operation reports false and logs the reason; no failure of the network leaves as an exception, and
///          nothing is retried.
/// Threads: any; each call opens a connection of its own and blocks until the registry has answered, at most 30 seconds
///          for each exchange. One entry is for one thread at a time.
class KESA_API ServiceRegistryAbstraction: public ServiceRegistryConnection
{
public:
    /// Registers `service`; on success it holds the id that the registry gave it.
    static bool registerService(MicroServiceInfo& service);
    /// Registers all, in order. Ends at the first failure: those before it stay registered and keep their ids.
    static bool registerServices(std::vector<MicroServiceInfo>& services);
    /// Removes the entry of `service`, which needs its id.
    static bool unregisterService(const MicroServiceInfo& service);
    /// Removes all, in order. Ends at the first failure.
    static bool unregisterServices(const std::vector<MicroServiceInfo>& services);
    /// Appends all entries to `outResults`. True also if the registry answered with a list that cannot be used.
    static bool getServiceList(std::vector<MicroServiceInfo>& outResults);
    /// Appends the entries of this name to `outResults`; an empty name means all. True as for getServiceList().
    static bool findRegisteredService(const std::string& serviceName, std::vector<MicroServiceInfo>& outResults);

private:
    ServiceRegistryAbstraction();

    static bool readServiceList(std::vector<MicroServiceInfo>& serviceList, const std::string& filterByName);
};

} // namespace Service
} // namespace Kesa
