#pragma once

#include "Export.h"

namespace Poco::Net
{
class HTTPServerRequest;
class HTTPServerResponse;
} // namespace Poco::Net

namespace Kesa::Host
{

/// Answers HTTP requests on the service's URLs. GET and HEAD read through the data source of the process's
/// SubscriptionTrigger and answer `{"status":"ok","data":...}`, with `paging` where the data source gave it.
///
/// Ownership: owns nothing; finds the trigger through the locator for every request.
/// Threads:   handle() on several threads at once; the data source is called on them.
/// Errors:    what a client did wrong is answered with an error document; an exception of the data source goes to the
/// caller.
class KESA_API RestHandler
{
public:
    /// Sends the answer, whatever the request was.
    void handle(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response) const;

private:
    void read(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response) const;
};

} // namespace Kesa::Host
