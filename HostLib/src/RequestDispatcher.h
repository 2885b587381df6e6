#pragma once

#include "Export.h"
#include "RestHandler.h"

#include <string>
#include <vector>

namespace Kesa::Host
{

/// Decides what a request is: one for a websocket, which goes to the process's connection manager whatever its URL, or
/// one for data.
///
/// Threads: handle() on several threads at once.
class KESA_API RequestDispatcher
{
public:
    RequestDispatcher(std::vector<std::string> allowedOrigins, const RestHandler::Options& rest)
        : m_allowedOrigins(std::move(allowedOrigins)), m_rest(rest)
    {
    }

    void handle(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response) const;

private:
    void upgrade(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response) const;

    const std::vector<std::string> m_allowedOrigins;
    const RestHandler m_rest;
};

} // namespace Kesa::Host
