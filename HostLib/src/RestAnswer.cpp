#include "RestAnswer.h"

#include "ErrorDocument.h"

#include "Command/ResponseObject.h"
#include "DataAccess/QueryResponse.h"

#include <Poco/Net/HTTPServerResponse.h>

namespace Kesa::Host
{

using Poco::Net::HTTPResponse;

RestAnswer RestAnswer::error(int status, const std::string& message)
{
    RestAnswer answer;
    answer.status = status;
    answer.body = errorDocument(status, message);
    return answer;
}

RestAnswer RestAnswer::error(const Command::QueryResponse& result)
{
    using Command::ResponseObject;
    const ResponseObject::Ptr document = result.getResponseObject();
    return error(result.getHttpStatus(),
                 document->getObject()->optValue<std::string>(ResponseObject::FIELD_MESSAGE, ""));
}

void RestAnswer::send(Poco::Net::HTTPServerResponse& response) const
{
    if (!etag.empty())
        response.set("ETag", etag);
    if (!location.empty())
        response.set("Location", location);
    if (!allow.empty())
        response.set("Allow", allow);
    if (isRetried)
        response.set("Retry-After", "1");
    response.setStatusAndReason(static_cast<HTTPResponse::HTTPStatus>(status));
    if (status == HTTPResponse::HTTP_NO_CONTENT || status == HTTPResponse::HTTP_NOT_MODIFIED)
    {
        response.send();
        return;
    }
    response.setContentType("application/json");
    response.sendBuffer(body.data(), body.size());
}

} // namespace Kesa::Host
