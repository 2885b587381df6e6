#include "RequestBody.h"

#include "ChunkedBody.h"
#include "RefusedRequest.h"

#include <Poco/Buffer.h>
#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/HTTPServerSession.h>
#include <Poco/Net/NetException.h>

#include <poll.h>
#include <string_view>

namespace Kesa::Registry
{

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerRequestImpl;

namespace
{

/// The bytes of the body as they come: first those that POCO has read already, then those of the socket. POCO's own
/// streams do not tell a body that ends early from a whole one.
class BodyBytes
{
public:
    BodyBytes(HTTPServerRequest& request, BodyTurns& turns)
        : m_request(dynamic_cast<HTTPServerRequestImpl&>(request)), m_turns(turns)
    {
        m_request.session().drainBuffer(m_drained);
    }
    ~BodyBytes()
    {
        if (m_hasTurn)
            m_turns.release();
    }
    BodyBytes(const BodyBytes&) = delete;
    BodyBytes& operator=(const BodyBytes&) = delete;

    /// The next bytes, valid until the next call. Raises RefusedRequest at the end, and when they do not come.
    std::string_view next()
    {
        if (!m_isDrained)
        {
            m_isDrained = true;
            if (m_drained.size() > 0)
                return {m_drained.begin(), m_drained.size()};
        }
        if (!m_hasTurn && !isQuick())
            takeTurn();
        const int count = receive();
        if (count <= 0)
            throw RefusedRequest(400, "The connection ended before the body was whole.");
        return {m_buffer, static_cast<std::size_t>(count)};
    }

private:
    bool isQuick()
    {
        pollfd poller{m_request.socket().impl()->sockfd(), POLLIN, 0};
        return ::poll(&poller, 1, QUICK_BODY) != 0;
    }

    void takeTurn()
    {
        m_hasTurn = m_turns.try_acquire();
        if (!m_hasTurn)
            throw RefusedRequest(503, "Too many clients are sending slow bodies; try again.");
    }

    int receive()
    {
        try
        {
            return m_request.socket().receiveBytes(m_buffer, sizeof m_buffer);
        }
        catch (const Poco::TimeoutException&)
        {
            throw RefusedRequest(408, "The body did not arrive in time.");
        }
        catch (const Poco::Net::NetException&)
        {
            return 0;
        }
    }

    HTTPServerRequestImpl& m_request;
    BodyTurns& m_turns;
    bool m_hasTurn = false;
    Poco::Buffer<char> m_drained{0};
    bool m_isDrained = false;
    char m_buffer[16 * 1024];
};

[[noreturn]] void refuseSize(std::size_t limit)
{
    throw RefusedRequest(413, "The body is larger than " + std::to_string(limit) + " bytes.");
}

std::string readChunks(BodyBytes& bytes, std::size_t limit)
{
    ChunkedBody body(limit);
    ChunkedBody::State state = ChunkedBody::State::Incomplete;
    while (state == ChunkedBody::State::Incomplete)
        state = body.read(bytes.next());
    if (state == ChunkedBody::State::TooLarge)
        refuseSize(limit);
    if (state == ChunkedBody::State::Malformed)
        throw RefusedRequest(400, "The chunks of the body are malformed.");
    return body.body();
}

std::string readLength(BodyBytes& bytes, std::size_t length)
{
    std::string body;
    while (body.size() < length)
        body.append(bytes.next());
    return body;
}

} // namespace

std::string readBody(HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response, std::size_t limit,
                     BodyTurns& turns)
{
    const bool isChunked = request.getChunkedTransferEncoding();
    if (!isChunked && !request.hasContentLength())
        throw RefusedRequest(411, "The request has to have a body, with Content-Length or chunked.");
    if (!isChunked && request.getContentLength64() > static_cast<Poco::Int64>(limit))
        refuseSize(limit);
    if (request.getExpectContinue())
        response.sendContinue();
    BodyBytes bytes(request, turns);
    return isChunked ? readChunks(bytes, limit)
                     : readLength(bytes, static_cast<std::size_t>(request.getContentLength64()));
}

} // namespace Kesa::Registry
