#pragma once

#include "Export.h"
#include "RestHandler.h"

#include <functional>
#include <string>
#include <vector>

namespace Kesa::Host
{

/// Decides what a request is: one for a websocket, which goes to the process's connection manager whatever its URL, one
/// that the service answers in its own way, or one for data.
///
/// Threads: handle() on several threads at once.
class KESA_API RequestDispatcher
{
public:
    /// As ServiceHost::Options::handleFirst; may be empty.
    typedef std::function<bool(Poco::Net::HTTPServerRequest&, Poco::Net::HTTPServerResponse&)> First;

    RequestDispatcher(std::vector<std::string> allowedOrigins, std::size_t maxWebsockets,
                      const RestHandler::Options& rest, First handleFirst)
        : m_allowedOrigins(std::move(allowedOrigins)),
          m_maxWebsockets(maxWebsockets),
          m_handleFirst(std::move(handleFirst)),
          m_rest(rest)
    {
    }

    void handle(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response) const;

private:
    void upgrade(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response) const;

    const std::vector<std::string> m_allowedOrigins;
    const std::size_t m_maxWebsockets;
    const First m_handleFirst;
    const RestHandler m_rest;
};

} // namespace Kesa::Host
