#pragma once

#include "Export.h"

#include <string>
#include <vector>

namespace Poco::Net
{
class HTTPRequest;
}

namespace Kesa::Host
{

/// Whether a request may become a websocket, and if not, what the client is told.
struct UpgradeVerdict
{
    int status = 0;      ///< 0: it may; else the HTTP status of the refusal
    std::string message; ///< what was wrong, for the client to read

    bool isAllowed() const { return status == 0; }
};

/// True if the request asks for a websocket, properly or not.
KESA_API bool wantsUpgrade(const Poco::Net::HTTPRequest& request);

/// Judges a request for a websocket: method, version, tokens, key and origin.
///
/// A request without Origin does not come from a web page and is allowed. A page may connect if it was loaded from the
/// host that it connects to or from this machine (any port), or if its origin is in `allowedOrigins`, where "*" allows
/// all. Others are refused with 403, since a browser would let any page on the internet talk to a service on its user's
/// machine.
KESA_API UpgradeVerdict checkUpgrade(const Poco::Net::HTTPRequest& request,
                                     const std::vector<std::string>& allowedOrigins);

} // namespace Kesa::Host
