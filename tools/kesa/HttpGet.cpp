#include "HttpGet.h"

#include "ServiceUrl.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Timespan.h>

namespace Kesa::Client
{
namespace
{

using Poco::Net::HTTPRequest;

/// Largest answer, in bytes.
constexpr std::size_t MAX_BODY = 16 * 1024 * 1024;

} // namespace

HttpAnswer httpGet(const ServiceUrl& url)
{
    Poco::Net::HTTPClientSession session(url.host(), url.port());
    session.setTimeout(Poco::Timespan(10, 0));
    HTTPRequest request(HTTPRequest::HTTP_GET, url.pathAndQuery(), HTTPRequest::HTTP_1_1);
    request.set("Accept", "application/json");
    session.sendRequest(request);
    Poco::Net::HTTPResponse response;
    std::istream& stream = session.receiveResponse(response);
    std::string body(MAX_BODY + 1, '\0');
    stream.read(body.data(), static_cast<std::streamsize>(body.size()));
    body.resize(static_cast<std::size_t>(stream.gcount()));
    if (body.size() > MAX_BODY)
        throw Poco::DataException("the answer has more than " + std::to_string(MAX_BODY) + " bytes");
    return {response.getStatus(), response.getReason(), body};
}

bool answersHttp(const ServiceUrl& url, int timeoutMs)
{
    try
    {
        Poco::Net::HTTPClientSession session(url.host(), url.port());
        session.setTimeout(Poco::Timespan(0, timeoutMs * 1000));
        HTTPRequest request(HTTPRequest::HTTP_HEAD, url.pathAndQuery(), HTTPRequest::HTTP_1_1);
        session.sendRequest(request);
        Poco::Net::HTTPResponse response;
        session.receiveResponse(response);
        return true;
    }
    catch (const Poco::Exception&) // no connection, no answer, or one that is not HTTP
    {
        return false;
    }
}

Poco::JSON::Object::Ptr HttpAnswer::document() const
{
    const Poco::Dynamic::Var value = Poco::JSON::Parser().parse(body);
    if (value.type() != typeid(Poco::JSON::Object::Ptr))
        throw Poco::DataFormatException("the answer is no JSON object");
    return value.extract<Poco::JSON::Object::Ptr>();
}

std::string HttpAnswer::describeError() const
{
    try
    {
        const std::string message = document()->optValue<std::string>("message", "");
        if (!message.empty())
            return std::to_string(status) + " " + message;
    }
    catch (const Poco::Exception&)
    {
        // Not every answer is one of a service; the status line says enough.
    }
    return std::to_string(status) + " " + reason;
}

} // namespace Kesa::Client
