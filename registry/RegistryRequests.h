#pragma once

#include "EntryReader.h"
#include "RequestBody.h"

#include <string>

namespace Poco::Net
{
class HTTPServerRequest;
class HTTPServerResponse;
} // namespace Poco::Net

namespace Kesa::Registry
{

class RegistryService;

/// Answers the registry's own requests over HTTP: those on "/", "/<name>" and "/<id>".
///
/// Ownership: borrows the service.
/// Threads:   handle() on several threads at once.
/// Errors:    what a client did wrong is answered with an error document.
class RegistryRequests
{
public:
    static constexpr std::size_t MAX_BODY = 64 * 1024; ///< bytes of a registration
    static constexpr unsigned THREADS = 64;            ///< requests at once: most only wait for a body, or for the disk
    static constexpr std::ptrdiff_t SLOW_BODIES = 48;  ///< waited for at once, so that others find a free thread

    /// `onlyLoopback`: as for EntryReader.
    RegistryRequests(RegistryService& service, bool onlyLoopback): m_service(service), m_reader(onlyLoopback) {}

    /// Sends the answer and gives true, if the request is the registry's; else gives false.
    bool handle(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response);

private:
    typedef Poco::Net::HTTPServerRequest Request;
    typedef Poco::Net::HTTPServerResponse Response;

    bool dispatch(Request& request, Response& response);
    void onCollection(Request& request, Response& response) const;
    void onEntry(const std::string& id, Request& request, Response& response);
    void sendList(const std::string& query, Response& response) const;
    void registerService(const std::string& name, Request& request, Response& response);
    void unregisterService(const std::string& id, Response& response);

    RegistryService& m_service;
    const EntryReader m_reader;
    BodyTurns m_turns{SLOW_BODIES};
};

} // namespace Kesa::Registry
