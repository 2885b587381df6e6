#include "RequestBody.h"

#include "ChunkedBody.h"
#include "RefusedRequest.h"

#include <Poco/Buffer.h>
#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/HTTPServerSession.h>
#include <Poco/Net/NetException.h>

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
    explicit BodyBytes(HTTPServerRequest& request): m_request(dynamic_cast<HTTPServerRequestImpl&>(request))
    {
        m_request.session().drainBuffer(m_drained);
    }

    /// The next bytes, valid until the next call. Raises RefusedRequest at the end, and when they do not come.
    std::string_view next()
    {
        if (!m_isDrained)
        {
            m_isDrained = true;
            if (m_drained.size() > 0)
                return {m_drained.begin(), m_drained.size()};
        }
        const int count = receive();
        if (count <= 0)
            throw RefusedRequest(400, "The connection ended before the body was whole.");
        return {m_buffer, static_cast<std::size_t>(count)};
    }

private:
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
    Poco::Buffer<char> m_drained{0};
    bool m_isDrained = false;
    char m_buffer[16 * 1024];
};

[[noreturn]] void refuseSize(std::size_t limit)
{
    throw RefusedRequest(413, "The body is larger than " + std::to_string(limit) + " bytes.");
}

std::string readChunks(HTTPServerRequest& request, std::size_t limit)
{
    BodyBytes bytes(request);
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

std::string readLength(HTTPServerRequest& request, std::size_t length)
{
    BodyBytes bytes(request);
    std::string body;
    while (body.size() < length)
        body.append(bytes.next());
    return body;
}

} // namespace

std::string readBody(HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response, std::size_t limit)
{
    const bool isChunked = request.getChunkedTransferEncoding();
    if (!isChunked && !request.hasContentLength())
        throw RefusedRequest(411, "The request has to have a body, with Content-Length or chunked.");
    if (!isChunked && request.getContentLength64() > static_cast<Poco::Int64>(limit))
        refuseSize(limit);
    if (request.getExpectContinue())
        response.sendContinue();
    return isChunked ? readChunks(request, limit)
                     : readLength(request, static_cast<std::size_t>(request.getContentLength64()));
}

} // namespace Kesa::Registry
