#include "RestHandler.h"

#include "ApplicationServices.h"
#include "ErrorDocument.h"
#include "RequestTarget.h"

#include "Command/WebSocketResponseObject.h"
#include "SubscriptionHandling/SubscriptionRequest.h"
#include "SubscriptionHandling/SubscriptionTrigger.h"

#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>

#include <algorithm>

namespace Kesa::Host
{

using Kesa::Command::WebSocketRequestObject;
using Kesa::Command::WebSocketResponseObject;
using Kesa::Service::SubscriptionRequest;
using Kesa::Service::SubscriptionTrigger;
using Poco::Net::HTTPRequest;
using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

namespace
{

template <class CriteriaMap>
bool areValid(const CriteriaMap& criteria)
{
    return std::all_of(criteria.begin(), criteria.end(),
                       [](const auto& kind)
                       {
                           return std::all_of(kind.second.begin(), kind.second.end(),
                                              [](const auto& criterion)
                                              { return criterion.isNull() || criterion->isValid(); });
                       });
}

/// The error document that a data source left in its response, or 404.
void sendDataError(HTTPServerResponse& response, const WebSocketResponseObject& loaded)
{
    if (loaded.getStatus() != WebSocketResponseObject::STATUS_ERROR)
        return sendError(response, 404, "There is no data at this URL.");
    const int code = loaded.getObject()->optValue<int>(WebSocketResponseObject::FIELD_ERROR_CODE, 500);
    sendError(response, code >= 400 && code < 600 ? code : 500, loaded.getMessage());
}

void sendData(HTTPServerResponse& response, const WebSocketResponseObject& loaded)
{
    WebSocketResponseObject answer;
    answer.setStatus(WebSocketResponseObject::STATUS_OK);
    answer.setData(&loaded);
    answer.setPaging(loaded.getPaging());
    const std::string body = answer.toJsonString();
    response.setContentType("application/json");
    response.sendBuffer(body.data(), body.size());
}

} // namespace

void RestHandler::handle(HTTPServerRequest& request, HTTPServerResponse& response) const
{
    const std::string& method = request.getMethod();
    if (method == HTTPRequest::HTTP_GET || method == HTTPRequest::HTTP_HEAD)
        return read(request, response);
    response.set("Allow", "GET, HEAD");
    sendError(response, 405, "This URL can only be read: with GET or HEAD.");
}

void RestHandler::read(HTTPServerRequest& request, HTTPServerResponse& response) const
{
    const RequestTarget target = judgeTarget(request.getURI());
    if (target.status != 0)
        return sendError(response, target.status, target.message);
    const SubscriptionRequest wanted(
        WebSocketRequestObject(WebSocketRequestObject::TYPE_DATA, target.url, {}, {}, nullptr, false),
        request.serverAddress(), request.clientAddress());
    if (!wanted.getUrlPath().isValid())
        return sendError(response, 404, "No URL of a service has this form.");
    if (!areValid(wanted.renderCriteria) || !areValid(wanted.searchCriteria))
        return sendError(response, 400, "A parameter of the URL's query cannot be read.");
    auto trigger = ApplicationServices::getService<SubscriptionTrigger>();
    if (trigger.isNull())
        return sendError(response, 503, "The service has not started, or is stopping.");
    WebSocketResponseObject loaded(wanted);
    loaded.setStatus(WebSocketResponseObject::STATUS_NONE);
    const bool hasData = trigger->fetchData(wanted, loaded);
    if (hasData && loaded.hasData() && loaded.getStatus() != WebSocketResponseObject::STATUS_ERROR)
        sendData(response, loaded);
    else
        sendDataError(response, loaded);
}

} // namespace Kesa::Host
