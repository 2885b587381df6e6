#include "SpecReader.h"

#include "AsyncApiDocument.h"
#include "JsonWriter.h"
#include "OpenApiDocument.h"
#include "QueryCheck.h"
#include "ServiceContract.h"

#include "Command/RequestBase.h"
#include "DataAccess/ServiceDataAccessPoint.h"

#include <Poco/Net/HTTPServerRequest.h>

namespace Kesa::Host
{

using Poco::Net::HTTPServerRequest;

RestAnswer SpecReader::read(const HTTPServerRequest& request, const Command::RequestBase& wanted,
                            Service::ServiceDataAccessPoint& data, const std::string& version)
{
    const std::string& service = wanted.getUrlPath().getService();
    if (data.getService(service).isNull())
        return RestAnswer::error(404, "There is no service \"" + service + "\" here.");
    if (const QueryVerdict verdict = checkQuery(wanted); verdict.code != 0)
        return RestAnswer::error(verdict.code, verdict.message);
    const std::vector<std::string> formats = wanted.getUrlPath().getQueryParameters("format");
    const std::string format = formats.empty() ? "openapi" : formats.front();
    if (formats.size() > 1 || (format != "openapi" && format != "asyncapi"))
        return RestAnswer::error(400, "The parameter \"format\" is openapi or asyncapi, once.");
    const ServiceContract contract(data, service, version.empty() ? "0.0.0" : version);
    // Where the client reached the service, as it says itself; the front door has judged that.
    const std::string authority = request.get("Host", request.serverAddress().toString());
    RestAnswer answer;
    Command::appendJson(answer.body, format == "openapi" ? OpenApiDocument::write(contract)
                                                         : AsyncApiDocument::write(contract, authority));
    return answer;
}

} // namespace Kesa::Host
