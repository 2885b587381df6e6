#include "RestHandler.h"

#include "AcceptHeader.h"
#include "ApplicationServices.h"
#include "DataAccessTrigger.h"
#include "FrontDoor.h"
#include "RequestTarget.h"
#include "RestReader.h"
#include "RestWriter.h"
#include "SpecReader.h"

#include "Command/RequestBase.h"
#include "VersionCheck.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerRequest.h>

#include <algorithm>

namespace Kesa::Host
{

using Command::RequestBase;
using Command::UrlPath;
using Poco::Net::HTTPRequest;
using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;
using Service::SubscriptionTrigger;
using Service::VersionCheck;

struct RestHandler::Parts
{
    explicit Parts(const Options& options)
        : apiVersions(options.apiVersions),
          writer(options.bodyWaiters > 0 ? options.bodyWaiters : FrontDoor::DEFAULT_THREADS / 2)
    {
    }

    RestAnswer checkVersion(const HTTPServerRequest& request) const;
    RestAnswer answer(HTTPServerRequest& request, HTTPServerResponse& response);
    RestAnswer answerAt(HTTPServerRequest& request, HTTPServerResponse& response, const RequestBase& wanted);

    const std::vector<std::string> apiVersions;
    RestWriter writer;
};

namespace
{

bool isKnown(const std::string& method)
{
    static const std::vector<std::string> known = {"GET",   "HEAD",    "POST",  "PUT",    "DELETE",
                                                   "PATCH", "OPTIONS", "TRACE", "CONNECT"};
    return std::find(known.begin(), known.end(), method) != known.end();
}

/// The methods that a URL knows, as the field `Allow` names them.
std::string allowedAt(UrlPath::Characteristic url, bool isWritable)
{
    if (isWritable && url == UrlPath::SERVICE_RESOURCE)
        return "GET, HEAD, POST, OPTIONS";
    if (isWritable && url == UrlPath::SERVICE_RESOURCE_ELEMENT)
        return "GET, HEAD, POST, PUT, DELETE, OPTIONS";
    return "GET, HEAD, OPTIONS";
}

bool listsMethod(const std::string& allowed, const std::string& method)
{
    return (", " + allowed + ",").find(" " + method + ",") != std::string::npos;
}

RestAnswer notAllowed(const std::string& method, const std::string& allowed)
{
    RestAnswer answer = RestAnswer::error(405, "This URL knows no " + method + ", but " + allowed + ".");
    answer.allow = allowed;
    return answer;
}

RestAnswer options(const std::string& allowed)
{
    RestAnswer answer;
    answer.status = 204;
    answer.allow = allowed;
    return answer;
}

} // namespace

RestHandler::RestHandler(): RestHandler(Options()) {}
RestHandler::RestHandler(const Options& options): m_parts(std::make_unique<Parts>(options)) {}
RestHandler::~RestHandler() = default;

void RestHandler::handle(HTTPServerRequest& request, HTTPServerResponse& response) const
{
    m_parts->answer(request, response).send(response);
}

RestAnswer RestHandler::Parts::checkVersion(const HTTPServerRequest& request) const
{
    RestAnswer verdict;
    try
    {
        if (VersionCheck::acceptedVersionMatches(request, apiVersions))
            return verdict;
        verdict.status = 404;
        verdict.body = VersionCheck::msgVersionNotImplemented;
        return verdict;
    }
    catch (const Poco::Exception& e)
    {
        return RestAnswer::error(501, e.message());
    }
}

RestAnswer RestHandler::Parts::answer(HTTPServerRequest& request, HTTPServerResponse& response)
{
    const RestAnswer verdict = checkVersion(request);
    if (verdict.isError())
        return verdict;
    if (!acceptsJson(request))
        return RestAnswer::error(406, "The service answers with application/json, which the request does not accept.");
    if (!isKnown(request.getMethod()))
        return RestAnswer::error(501, "There is no method " + request.getMethod() + ".");
    const RequestTarget target = judgeTarget(request.getURI());
    if (target.status != 0)
        return RestAnswer::error(target.status, target.message);
    const RequestBase wanted{Poco::URI(target.url)};
    if (!wanted.getUrlPath().isValid())
        return RestAnswer::error(404, "No URL of a service has this form.");
    return answerAt(request, response, wanted);
}

RestAnswer RestHandler::Parts::answerAt(HTTPServerRequest& request, HTTPServerResponse& response,
                                        const RequestBase& wanted)
{
    auto trigger = ApplicationServices::getService<SubscriptionTrigger>();
    if (trigger.isNull())
        return RestAnswer::error(503, "The service has not started, or is stopping.");
    DataAccessTrigger::Ptr store = trigger.cast<DataAccessTrigger>();
    const std::string& method = request.getMethod();
    const std::string allowed = allowedAt(wanted.getUrlPath().getCharacteristic(), !store.isNull());
    if (!listsMethod(allowed, method))
        return notAllowed(method, allowed);
    if (method == HTTPRequest::HTTP_OPTIONS)
        return options(allowed);
    if (method != HTTPRequest::HTTP_GET && method != HTTPRequest::HTTP_HEAD)
        return writer.write(request, response, wanted, *store);
    if (wanted.getUrlPath().getCharacteristic() == UrlPath::SERVICE_SPEC && !store.isNull())
        return SpecReader::read(request, wanted, store->data(), apiVersions.empty() ? "" : apiVersions.front());
    return store.isNull() ? RestReader::read(request, wanted, *trigger) : RestReader::read(request, wanted, *store);
}

} // namespace Kesa::Host
