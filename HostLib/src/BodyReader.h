#pragma once

#include "Export.h"
#include "RestAnswer.h"

#include <atomic>
#include <string>

namespace Poco::Net
{
class HTTPServerRequest;
class HTTPServerResponse;
} // namespace Poco::Net

namespace Kesa::Host
{

/// Reads the JSON bodies of requests, within bounds. The front door holds a request back until a short body has
/// arrived; for a long one a thread has to wait, and so that slow clients never take all threads, only some may.
///
/// Threads: read() from any thread, at once.
class KESA_API BodyReader
{
public:
    static constexpr std::size_t MAX_BODY = 1024 * 1024; ///< bytes: as much as a message on a websocket may have
    static constexpr std::size_t SHORT_BODY = 8 * 1024;  ///< bytes: has arrived, since the front door waits for it

    /// `waiters`: how many threads may wait for long bodies at once, 1 or more.
    explicit BodyReader(unsigned waiters): m_free(static_cast<int>(waiters)) {}

    /// Reads the body into `text`. Gives the answer that refuses it: 411 without a length, 413, 415, 400 where it ends
    /// early, 408 where it does not arrive in the time that the front door gives, 503 where too many wait; or one with
    /// status 200.
    RestAnswer read(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response, std::string& text);

private:
    class Waiting;

    static RestAnswer checkHead(const Poco::Net::HTTPServerRequest& request);

    std::atomic<int> m_free; ///< how many more threads may wait; atomic: counted by all of them
};

} // namespace Kesa::Host
