#include "RestReader.h"

#include "ConditionalRequest.h"
#include "DataAccessTrigger.h"
#include "QueryCheck.h"

#include "Command/RequestBase.h"
#include "Command/WebSocketResponseObject.h"
#include "SubscriptionHandling/SubscriptionRequest.h"

#include <Poco/Net/HTTPServerRequest.h>

namespace Kesa::Host
{

using Command::RequestBase;
using Command::WebSocketRequestObject;
using Command::WebSocketResponseObject;
using Poco::Net::HTTPServerRequest;
using Service::SubscriptionRequest;

namespace
{

/// The error document that a data source left in its response, or 404.
RestAnswer dataError(const WebSocketResponseObject& loaded)
{
    if (loaded.getStatus() != WebSocketResponseObject::STATUS_ERROR)
        return RestAnswer::error(404, "There is no data at this URL.");
    const int code = loaded.getObject()->optValue<int>(WebSocketResponseObject::FIELD_ERROR_CODE, 500);
    return RestAnswer::error(code >= 400 && code < 600 ? code : 500, loaded.getMessage());
}

RestAnswer dataAnswer(const WebSocketResponseObject& loaded)
{
    WebSocketResponseObject document;
    document.setStatus(WebSocketResponseObject::STATUS_OK);
    document.setData(&loaded);
    document.setPaging(loaded.getPaging());
    RestAnswer answer;
    answer.body = document.toJsonString();
    return answer;
}

/// The element's answer, unless the conditions of the request stand against it.
RestAnswer underConditions(const HTTPServerRequest& request, RestAnswer element)
{
    switch (ConditionalRequest(request).judgeRead(true, element.etag))
    {
    case ConditionalRequest::Verdict::NOT_MODIFIED:
        element.status = 304;
        return element;
    case ConditionalRequest::Verdict::FAILED:
        return RestAnswer::error(412, "The element is not in the state that If-Match names.");
    default:
        return element;
    }
}

} // namespace

RestAnswer RestReader::read(const HTTPServerRequest& request, const RequestBase& wanted, DataAccessTrigger& trigger)
{
    const DataAnswer data = trigger.read(wanted);
    if (data.isRefused())
        return RestAnswer::error(data.code(), data.message());
    if (!data.isList() && !wanted.hasAnyCriteria())
        return underConditions(request, wholeElement(data.rows().front()));
    RestAnswer answer;
    answer.body = data.toJsonString();
    return answer;
}

RestAnswer RestReader::read(const HTTPServerRequest& request, const RequestBase& wanted,
                            Service::SubscriptionTrigger& trigger)
{
    const QueryVerdict verdict = checkQuery(wanted);
    if (verdict.code != 0)
        return RestAnswer::error(verdict.code, verdict.message);
    const SubscriptionRequest subscription(
        WebSocketRequestObject(WebSocketRequestObject::TYPE_DATA, wanted.getUri().toString(), {}, {}, nullptr, false),
        request.serverAddress(), request.clientAddress());
    WebSocketResponseObject loaded(subscription);
    loaded.setStatus(WebSocketResponseObject::STATUS_NONE);
    const bool hasData = trigger.fetchData(subscription, loaded);
    const bool isError = loaded.getStatus() == WebSocketResponseObject::STATUS_ERROR;
    return hasData && loaded.hasData() && !isError ? dataAnswer(loaded) : dataError(loaded);
}

RestAnswer RestReader::wholeElement(const DataRow& row)
{
    RestAnswer answer;
    answer.body = "{\"data\":";
    row.appendText(answer.body);
    answer.body += ",\"status\":\"ok\"}";
    answer.etag = ConditionalRequest::tagOf(answer.body);
    return answer;
}

} // namespace Kesa::Host
