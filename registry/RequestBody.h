#pragma once

#include <cstddef>
#include <string>

namespace Poco::Net
{
class HTTPServerRequest;
class HTTPServerResponse;
} // namespace Poco::Net

namespace Kesa::Registry
{

/// Reads the whole body of a request, chunked or with a length, as long as the front door allows it to take.
///
/// Raises RefusedRequest: 411 without a length, 413 for more than `limit` bytes, 408 for one that does not arrive in
/// time, 400 for one that is malformed or ends early. Threads: any, several at once.
std::string readBody(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response, std::size_t limit);

} // namespace Kesa::Registry
