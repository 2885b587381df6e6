#pragma once

#include "RestAnswer.h"

#include <string>

namespace Poco::Net
{
class HTTPServerRequest;
}
namespace Kesa::Command
{
class RequestBase;
}
namespace Kesa::Service
{
class ServiceDataAccessPoint;
}

namespace Kesa::Host
{

/// Answers GET on `/service/$spec` with the documents that describe the service: for HTTP, or with `format=asyncapi`
/// for the websocket. They are written from what stands in the data access point at the time.
///
/// Threads: every operation from any thread.
class SpecReader
{
public:
    /// `version`: of the service's API, empty if it has none.
    static RestAnswer read(const Poco::Net::HTTPServerRequest& request, const Command::RequestBase& wanted,
                           Service::ServiceDataAccessPoint& data, const std::string& version);
};

} // namespace Kesa::Host
