#include "ServiceRegistry.h"

#include "RegistrySession.h"

#include <JSONTools.h>
#include <LogStream.h>

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/URI.h>

#include <memory>

namespace Kesa
{

using Data::XObjectBase;
using Poco::Net::HTTPRequest;
using Poco::Net::HTTPResponse;

namespace
{
const std::size_t COPY_BUFFER_SIZE = 8192;
/// Beyond this an answer of the registry is no list of services any more, but would fill the memory.
const std::size_t LARGEST_LIST = 16 * 1024 * 1024;
/// A list of empty objects takes three hundred times the room of its text once it is parsed, so the number of parts is
/// bounded too: this is room for the 20,000 entries of a full registry with 25 parts each.
const std::size_t MOST_PARTS = 500000;
/// Bodies that are only logged are a line or two; this bounds what a broken registry puts into the log.
const std::size_t LARGEST_LOGGED_BODY = 64 * 1024;
/// So many headers are far more than an answer has; without a bound an endless head would fill the memory.
const int MOST_HEADERS = 100;

const std::string msgRegisteringFailed = "Registering service failed. Server responded with status ";
const std::string msgNoUUID = " but did not provide UUID information in the correct format. Location info is: '";

/// Hands the whole body over, piece by piece. Raises Poco::DataException beyond `limit` bytes, and what reading raises:
/// the stream itself would take a failure for the end of the body.
template <class Take>
void readBody(std::istream& body, std::size_t limit, Take take)
{
    char buffer[COPY_BUFFER_SIZE];
    const std::streamsize full = sizeof buffer;
    std::streamsize count = full;
    // A short read is the end. Reading on behind the end of a chunked body would wait for a further answer.
    for (std::size_t total = 0; count == full;)
    {
        count = body.rdbuf()->sgetn(buffer, full);
        total += static_cast<std::size_t>(count);
        if (total > limit)
            throw Poco::DataException("the service registry's answer is longer than " + std::to_string(limit) +
                                      " bytes");
        take(buffer, count);
    }
}

/// The whole text of a list. Raises what reading raises, and Poco::DataException if it is too large to be parsed.
std::string readList(std::istream& body)
{
    std::string text;
    readBody(body, LARGEST_LIST,
             [&](const char* bytes, std::streamsize count) { text.append(bytes, static_cast<std::size_t>(count)); });
    if (Util::JSONTools::countParts(text) > MOST_PARTS)
        throw Poco::DataException("the service registry's list holds more than " + std::to_string(MOST_PARTS) +
                                  " members and elements");
    return text;
}

/// Logs the body, and drains it from the connection, so that the next request on the session finds that clean. Hence it
/// is read whether or not the level is active.
void logBody(std::istream& body, Poco::Message::Priority priority, const char* prefix)
{
    Logging::LogStream log(Logging::Log::Logger(), priority);
    log.addDefaultOutput(__FILE__, __LINE__) << prefix;
    readBody(body, LARGEST_LOGGED_BODY, [&](const char* bytes, std::streamsize count) { log.write(bytes, count); });
    log << std::endl;
}

std::istream& receiveResponse(Poco::Net::HTTPClientSession& session, HTTPResponse& response)
{
    response.setFieldLimit(MOST_HEADERS);
    std::istream& body = session.receiveResponse(response);
    logResponse(response);
    return body;
}

/// Takes the id from the answer to a registration. False, and logged, if it has none.
bool takeId(MicroServiceInfo& service, const HTTPResponse& response)
{
    const std::string& location = response.get("Location");
    std::vector<std::string> segments;
    Poco::URI(location).getPathSegments(segments);
    Poco::UUID id;
    // The registry answers with the id directly under the root, so only the first segment counts.
    if (segments.empty() || !id.tryParse(segments.front()))
    {
        KESA_LOG_ERROR(msgRegisteringFailed << "HTTP_CREATED" << msgNoUUID << location << "'");
        return false;
    }
    service.setId(id);
    return true;
}

/// The exchange of a removal. False, with the status and why in the log, if the registry did not confirm it.
bool exchangeRemoval(Poco::Net::HTTPClientSession& session, const MicroServiceInfo& service)
{
    HTTPRequest request(HTTPRequest::HTTP_DELETE, "/" + service.getIdString(), HTTPRequest::HTTP_1_1);
    request.setContentLength(0);
    session.sendRequest(request) << std::endl;
    HTTPResponse response;
    std::istream& body = receiveResponse(session, response);
    logBody(body, Poco::Message::PRIO_TRACE, "Trace: ");
    return response.getStatus() == HTTPResponse::HTTP_OK;
}
} // namespace

bool registerServicePriv(Poco::Net::HTTPClientSession& session, MicroServiceInfo& service)
{
    bool result = false;
    try
    {
        const std::string name = service.getName();
        HTTPRequest request(HTTPRequest::HTTP_PUT, "/" + name, HTTPRequest::HTTP_1_1);
        request.setChunkedTransferEncoding(true);
        std::ostream& requestStream = session.sendRequest(request);
        service.toJSON(0)->stringify(requestStream, 0, -1);
        requestStream << std::endl;

        HTTPResponse response;
        std::istream& body = receiveResponse(session, response);
        logBody(body, Poco::Message::PRIO_TRACE, "Trace: ");
        if (response.getStatus() != HTTPResponse::HTTP_CREATED)
            KESA_LOG_ERROR(msgRegisteringFailed << static_cast<int>(response.getStatus()));
        else if (takeId(service, response))
        {
            result = true;
            KESA_LOG_DEBUG("Registered Service with Name: " << name);
        }
    }
    catch (const Poco::Exception& exception)
    {
        KESA_LOG_ERROR("Exception occured while getting service list: " << exception.displayText());
    }
    return result;
}

bool unregisterServicePriv(Poco::Net::HTTPClientSession& session, const MicroServiceInfo& service)
{
    try
    {
        KESA_LOG_DEBUG("De-register service on ServiceRegistry with name: " << service.getName());
        if (!service.hasValue(XObjectBase::KEY_ID))
        {
            KESA_LOG_ERROR("Missing attribute '" << XObjectBase::KEY_ID << "' in service object");
            return false;
        }
        if (exchangeRemoval(session, service))
            return true;
    }
    catch (const Poco::Exception& exception)
    {
        KESA_LOG_ERROR("Exception occured while removal of service registration: " << exception.displayText());
    }
    KESA_LOG_ERROR("Failed to remove service registration for service " << service.getName());
    return false;
}

bool extractMicroServiceInfosFromResponse(std::vector<MicroServiceInfo>& outResults, std::istream& responseStream)
{
    const std::string text = readList(responseStream);
    Poco::JSON::Object::Ptr jsonObj;
    if (!Util::JSONTools::parseJSONString(text, jsonObj) || jsonObj.isNull())
    {
        KESA_LOG_ERROR("Failed to parse response from ServiceRegistry.");
        return false;
    }
    try
    {
        const Poco::JSON::Array::Ptr data = jsonObj->getArray("data");
        if (data.isNull())
            return true;
        outResults.reserve(data->size());
        for (const Poco::Dynamic::Var& element: *data)
        {
            const auto object = element.extract<Poco::JSON::Object::Ptr>();
            const std::unique_ptr<MicroServiceInfo> entry(MicroServiceInfo::FromJson(object));
            if (entry)
                outResults.push_back(std::move(*entry));
        }
    }
    catch (const Poco::Exception& exception)
    {
        KESA_LOG_ERROR("Invalid service list returned from ServiceRegistry: " << exception.displayText());
        return false;
    }
    return true;
}

void logResponse(const HTTPResponse& response)
{
    KESA_LOG_TRACE(static_cast<int>(response.getStatus()) << " " << response.getReason());
    for (const auto& [name, value]: response)
        KESA_LOG_TRACE(name << ":" << value);
}

namespace Service
{

namespace
{
/// A session as all exchanges of this client use it.
class ClientSession: public RegistrySession
{
public:
    ClientSession(): RegistrySession(30)
    {
        setKeepAlive(true);
        setKeepAliveTimeout(Poco::Timespan(30, 0));
    }
};
} // namespace

bool ServiceRegistryAbstraction::registerService(MicroServiceInfo& service)
{
    ClientSession session;
    return registerServicePriv(session, service);
}

bool ServiceRegistryAbstraction::registerServices(std::vector<MicroServiceInfo>& services)
{
    ClientSession session;
    for (MicroServiceInfo& service: services)
        if (!registerServicePriv(session, service))
            return false;
    return true;
}

bool ServiceRegistryAbstraction::unregisterService(const MicroServiceInfo& service)
{
    ClientSession session;
    return unregisterServicePriv(session, service);
}

bool ServiceRegistryAbstraction::unregisterServices(const std::vector<MicroServiceInfo>& services)
{
    ClientSession session;
    for (const MicroServiceInfo& service: services)
    {
        if (!unregisterServicePriv(session, service))
            return false;
        if (!session.connected())
        {
            KESA_LOG_INFO("reconnect to SR");
            session.reset();
        }
    }
    return true;
}

bool ServiceRegistryAbstraction::getServiceList(std::vector<MicroServiceInfo>& outResults)
{
    KESA_LOG_DEBUG("Lookup full service list on ServiceRegistry");
    return readServiceList(outResults, std::string());
}

bool ServiceRegistryAbstraction::findRegisteredService(const std::string& serviceName,
                                                       std::vector<MicroServiceInfo>& outResults)
{
    KESA_LOG_DEBUG("Lookup services on ServiceRegistry with name: " << serviceName);
    return readServiceList(outResults, serviceName);
}

bool ServiceRegistryAbstraction::readServiceList(std::vector<MicroServiceInfo>& serviceList,
                                                 const std::string& filterByName)
{
    try
    {
        ClientSession session;
        std::string path = "/";
        if (!filterByName.empty())
            path += "?" + XObjectBase::KEY_NAME + "=" + filterByName;
        HTTPRequest request(HTTPRequest::HTTP_GET, path, HTTPRequest::HTTP_1_1);
        session.sendRequest(request) << std::endl;
        HTTPResponse response;
        std::istream& body = receiveResponse(session, response);
        if (response.getStatus() == HTTPResponse::HTTP_OK)
        {
            // A list that cannot be used is an empty list to the caller, on purpose; the reason is in the log.
            extractMicroServiceInfosFromResponse(serviceList, body);
            return true;
        }
        logBody(body, Poco::Message::PRIO_DEBUG, "Debug: ");
        return false;
    }
    catch (const Poco::Exception& exception)
    {
        KESA_LOG_ERROR("Exception occured while reading service list: " << exception.displayText());
        return false;
    }
}

} // namespace Service
} // namespace Kesa
