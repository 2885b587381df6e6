#pragma once

#include <cstddef>
#include <semaphore>
#include <string>

namespace Poco::Net
{
class HTTPServerRequest;
class HTTPServerResponse;
} // namespace Poco::Net

namespace Kesa::Registry
{

/// How many slow bodies are still waited for; each takes one.
typedef std::counting_semaphore<> BodyTurns;

/// A body that comes as quickly as this, in ms, is not slow.
constexpr int QUICK_BODY = 20;

/// Reads the whole body of a request, chunked or with a length, as long as the front door allows it to take.
///
/// Raises RefusedRequest: 411 without a length, 413 for more than `limit` bytes, 408 for one that does not arrive in
/// time, 400 for one that is malformed or ends early, 503 for a slow one when there is no turn left.
/// Threads: any, several at once.
std::string readBody(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response, std::size_t limit,
                     BodyTurns& turns);

} // namespace Kesa::Registry
