#include "BodyReader.h"

#include "HttpText.h"

#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/MediaType.h>

#include <istream>

namespace Kesa::Host
{

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

/// One of those who may wait, unless there are too many.
class BodyReader::Waiting
{
public:
    Waiting(std::atomic<int>& free, bool isNeeded): m_free(free), m_isNeeded(isNeeded)
    {
        m_isAllowed = !m_isNeeded || --m_free >= 0;
    }
    ~Waiting()
    {
        if (m_isNeeded)
            ++m_free;
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    bool isAllowed() const { return m_isAllowed; }

private:
    std::atomic<int>& m_free;
    const bool m_isNeeded;
    bool m_isAllowed;
};

namespace
{

bool isJson(const Poco::Net::MediaType& type)
{
    const std::string& subType = type.getSubType();
    const bool isVendors = subType.size() > 5 && equalsIgnoringCase(subType.substr(subType.size() - 5), "+json");
    return equalsIgnoringCase(type.getType(), "application") && (equalsIgnoringCase(subType, "json") || isVendors);
}

bool isJsonText(const std::string& contentType)
{
    const Poco::Net::MediaType type(contentType);
    return isJson(type) && (!type.hasParameter("charset") || equalsIgnoringCase(type.getParameter("charset"), "utf-8"));
}

} // namespace

RestAnswer BodyReader::checkHead(const HTTPServerRequest& request)
{
    if (!request.hasContentLength())
        return RestAnswer::error(411, "This request needs a body and its Content-Length.");
    if (request.getContentLength64() > static_cast<Poco::Int64>(MAX_BODY))
        return RestAnswer::error(413, "The body is larger than " + std::to_string(MAX_BODY) + " bytes.");
    const std::string type = request.getContentType();
    if (!isJsonText(type))
        return RestAnswer::error(415, "The body's Content-Type has to be application/json in UTF-8, but is \"" + type +
                                          "\".");
    return RestAnswer();
}

RestAnswer BodyReader::read(HTTPServerRequest& request, HTTPServerResponse& response, std::string& text)
{
    const RestAnswer verdict = checkHead(request);
    if (verdict.isError())
        return verdict;
    const auto length = static_cast<std::size_t>(request.getContentLength64());
    const Waiting waiting(m_free, length > SHORT_BODY || request.getExpectContinue());
    if (!waiting.isAllowed())
    {
        RestAnswer busy = RestAnswer::error(503, "Too many clients are sending long bodies at the moment.");
        busy.isRetried = true;
        return busy;
    }
    if (request.getExpectContinue())
        response.sendContinue();
    text.resize(length);
    std::istream& stream = request.stream();
    stream.read(text.data(), static_cast<std::streamsize>(length));
    if (static_cast<std::size_t>(stream.gcount()) == length)
        return RestAnswer();
    return stream.bad() ? RestAnswer::error(408, "The body did not arrive in time.")
                        : RestAnswer::error(400, "The body ends before its Content-Length.");
}

} // namespace Kesa::Host
