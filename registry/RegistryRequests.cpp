#include "RegistryRequests.h"

#include "Names.h"
#include "RefusedRequest.h"
#include "RegistryService.h"

#include <ErrorDocument.h>
#include <RequestTarget.h>

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/String.h>
#include <Poco/URI.h>

namespace Kesa::Registry
{

using Kesa::Host::sendError;
using Poco::Net::HTTPRequest;
using Poco::Net::HTTPResponse;
using Poco::Net::HTTPServerResponse;

namespace
{

void sendText(HTTPServerResponse& response, const std::string& text)
{
    response.setContentType("application/json");
    response.sendBuffer(text.data(), text.size());
}

bool isReading(const std::string& method)
{
    return method == HTTPRequest::HTTP_GET || method == HTTPRequest::HTTP_HEAD;
}

void refuseMethod(HTTPServerResponse& response, const std::string& allowed)
{
    response.set("Allow", allowed);
    sendError(response, HTTPResponse::HTTP_METHOD_NOT_ALLOWED, "This URL takes only " + allowed + ".");
}

Poco::URI::QueryParameters parametersOf(const std::string& query)
{
    try
    {
        Poco::URI uri;
        uri.setRawQuery(query);
        return uri.getQueryParameters();
    }
    catch (const Poco::SyntaxException&) // an encoding that is none, such as "%zz"
    {
        throw RefusedRequest(400, "The URL's query is malformed.");
    }
}

/// True if the outcome is good, else the error is sent.
bool isDone(EntryStore::Outcome outcome, HTTPServerResponse& response)
{
    switch (outcome)
    {
    case EntryStore::Outcome::Done:
        return true;
    case EntryStore::Outcome::Unknown:
        sendError(response, HTTPResponse::HTTP_NOT_FOUND, "There is no entry with this id.");
        return false;
    case EntryStore::Outcome::Full:
        sendError(response, HTTPResponse::HTTP_TOO_MANY_REQUESTS,
                  "The registry is full: it takes " + std::to_string(EntryStore::MAX_ENTRIES) + " entries, of " +
                      std::to_string(EntryStore::MAX_BYTES) + " bytes and " + std::to_string(EntryStore::MAX_PARTS) +
                      " members and elements together.");
        return false;
    case EntryStore::Outcome::NotSaved:
        break;
    }
    sendError(response, HTTPResponse::HTTP_SERVICE_UNAVAILABLE,
              "The registry cannot write its state file; nothing was changed. Its log says why.");
    return false;
}

} // namespace

bool RegistryRequests::handle(Request& request, Response& response)
{
    try
    {
        return dispatch(request, response);
    }
    catch (const RefusedRequest& refusal)
    {
        sendError(response, refusal.status(), refusal.what());
        return true;
    }
}

bool RegistryRequests::dispatch(Request& request, Response& response)
{
    const Kesa::Host::RequestTarget target = Kesa::Host::judgeTarget(request.getURI());
    if (target.status != 0)
        return false;
    std::vector<std::string> segments;
    Poco::URI(target.url).getPathSegments(segments);
    if (segments.size() > 1)
        return false;
    if (segments.empty())
        onCollection(request, response);
    else if (isEntryId(segments.front()))
        onEntry(Poco::toLower(segments.front()), request, response);
    else if (request.getMethod() == HTTPRequest::HTTP_PUT)
        registerService(segments.front(), request, response);
    else if (isReading(request.getMethod()) || segments.front() == "registry")
        return false;
    else if (request.getMethod() == HTTPRequest::HTTP_DELETE)
        sendError(response, HTTPResponse::HTTP_NOT_FOUND, "There is no entry with this id: ids are UUIDs.");
    else
        refuseMethod(response, "PUT");
    return true;
}

void RegistryRequests::onCollection(Request& request, Response& response) const
{
    if (!isReading(request.getMethod()))
        return refuseMethod(response, "GET, HEAD");
    const std::size_t query = request.getURI().find('?');
    if (query == std::string::npos)
        sendText(response, *m_service.entries().list());
    else
        sendList(request.getURI().substr(query + 1), response);
}

void RegistryRequests::sendList(const std::string& query, Response& response) const
{
    const Poco::URI::QueryParameters parameters = parametersOf(query);
    if (parameters.empty())
        return sendText(response, *m_service.entries().list());
    if (parameters.size() > 1 || parameters.front().first != "name")
        throw RefusedRequest(400, "The list can be filtered by one name: \"/?name=system\".");
    sendText(response, *m_service.entries().list(parameters.front().second));
}

void RegistryRequests::onEntry(const std::string& id, Request& request, Response& response)
{
    if (request.getMethod() == HTTPRequest::HTTP_DELETE)
        return unregisterService(id, response);
    if (request.getMethod() == HTTPRequest::HTTP_PUT)
        throw RefusedRequest(400, "A service is registered under its name; the registry gives the id.");
    if (!isReading(request.getMethod()))
        return refuseMethod(response, "GET, HEAD, DELETE");
    if (const EntryPtr entry = m_service.entries().find(id))
        sendText(response, "{\"data\":" + entry->text + ",\"status\":\"ok\"}");
    else
        sendError(response, HTTPResponse::HTTP_NOT_FOUND, "There is no entry with this id.");
}

void RegistryRequests::registerService(const std::string& name, Request& request, Response& response)
{
    if (!isServiceName(name))
        throw RefusedRequest(400, "The URL's name is no name of a service: 1 to " + std::to_string(MAX_NAME) +
                                      " of A-Z a-z 0-9 . _ -, not \"registry\", and no UUID.");
    const EntryPtr entry = m_reader.readRegistration(name, readBody(request, response, MAX_BODY, m_turns));
    if (!isDone(m_service.add(entry), response))
        return;
    response.setStatusAndReason(HTTPResponse::HTTP_CREATED);
    response.set("Location", "/" + entry->id);
    sendText(response, "{\"data\":{\"id\":\"" + entry->id + "\"},\"status\":\"ok\"}");
}

void RegistryRequests::unregisterService(const std::string& id, Response& response)
{
    if (isDone(m_service.remove(id), response))
        sendText(response, "{\"status\":\"ok\"}");
}

} // namespace Kesa::Registry
