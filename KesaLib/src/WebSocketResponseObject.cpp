#include "Command/WebSocketResponseObject.h"

#include "JsonSnapshot.h"
#include "Utf8.h"

#include <JSONTools.h>

#include <Poco/Exception.h>

namespace Kesa::Command
{

const WebSocketResponseObject::Type WebSocketResponseObject::TYPE_SUBSCRIBE = "subscribe";
const WebSocketResponseObject::Type WebSocketResponseObject::TYPE_UNSUBSCRIBE = "unsubscribe";
const WebSocketResponseObject::Type WebSocketResponseObject::TYPE_DATA = "data";
const WebSocketResponseObject::Type WebSocketResponseObject::TYPE_ERROR = "error";

namespace
{
struct StandardError
{
    int code;
    const char* message;
};

StandardError standardError(WebSocketResponseObject::RequestError error)
{
    switch (error)
    {
    case WebSocketResponseObject::alreadyConnected:
        return {409, "This connection is established already; go on using it."};
    case WebSocketResponseObject::notARootURL:
        return {400, "This is not the root URL of the service; connect to the root."};
    case WebSocketResponseObject::noData:
        return {404, "There is no data for this event."};
    case WebSocketResponseObject::invalideSubscriptionExpansionLevel:
        return {403,
                "The level of '$expand' is too deep for this event; ask for a smaller one, or for none on a list."};
    case WebSocketResponseObject::unableToUnsubscribe:
        return {404, "There is no subscription to this event on this connection."};
    default:
        return {400, "This is no valid request."};
    }
}

/// What was wrong with a message, for a client whose request had no usable content.
std::string describeBadData(const WebSocketRequestObject& request)
{
    if (!request.isValid())
        return request.getProblem();
    return "The type '" + excerpt(request.getType()) + "' is unknown; use '" + WebSocketRequestObject::TYPE_SUBSCRIBE +
           "' or '" + WebSocketRequestObject::TYPE_UNSUBSCRIBE + "'.";
}
} // namespace

WebSocketResponseObject::WebSocketResponseObject() = default;

WebSocketResponseObject::WebSocketResponseObject(const WebSocketRequestObject& request)
{
    setType(request.getType());
    if (request.getEvent().empty())
        setTextMember(WebSocketRequestObject::FIELD_EVENT, request.getEventText());
    else
        setEvent(request.getEvent());
    setStatus(STATUS_OK);
}

WebSocketResponseObject::WebSocketResponseObject(const WebSocketRequestObject& request, RequestError error,
                                                 const std::string& message)
{
    setError(error, message.empty() && error == badData ? describeBadData(request) : message);
    setTextMember(WebSocketRequestObject::FIELD_EVENT, request.getEventText());
}

WebSocketResponseObject::WebSocketResponseObject(const WebSocketRequestObject& request, Poco::UInt16 status,
                                                 const std::string& message)
    : ResponseObject(status, message)
{
    setTextMember(WebSocketRequestObject::FIELD_EVENT, request.getEventText());
}

WebSocketResponseObject::WebSocketResponseObject(const WebSocketRequestObject& request,
                                                 const Poco::JSON::Array::Ptr& data)
    : WebSocketResponseObject(request)
{
    setType(TYPE_DATA);
    setStatus(STATUS_NONE);
    setData(data);
}

WebSocketResponseObject::WebSocketResponseObject(const WebSocketResponseObject& other) = default;
WebSocketResponseObject::~WebSocketResponseObject() = default;
WebSocketResponseObject& WebSocketResponseObject::operator=(const WebSocketResponseObject& other) = default;

void WebSocketResponseObject::setType(const Type& type)
{
    setTextMember(WebSocketRequestObject::FIELD_TYPE, type);
}

WebSocketResponseObject::Type WebSocketResponseObject::getType() const
{
    return getText(WebSocketRequestObject::FIELD_TYPE);
}

void WebSocketResponseObject::setEvent(Poco::URI event)
{
    setTextMember(WebSocketRequestObject::FIELD_EVENT, event.toString());
}

Poco::URI WebSocketResponseObject::getEvent() const
{
    try
    {
        return Poco::URI(getText(WebSocketRequestObject::FIELD_EVENT));
    }
    catch (const Poco::SyntaxException&) // an error document repeats whatever the client wrote
    {
        return Poco::URI();
    }
}

void WebSocketResponseObject::setMessage(const std::string& message)
{
    setTextMember(FIELD_MESSAGE, message);
}

std::string WebSocketResponseObject::getMessage() const
{
    return getText(FIELD_MESSAGE);
}

Poco::Int64 WebSocketResponseObject::getTimestamp() const
{
    return JSONObject->optValue<Poco::Int64>(FIELD_TIMESTAMP, 0);
}

void WebSocketResponseObject::setError(RequestError error, const std::string& message)
{
    const StandardError standard = standardError(error);
    setErrorStatus(standard.code, message.empty() ? standard.message : message);
}

void WebSocketResponseObject::setData(const ResponseObject* source)
{
    if (const Poco::JSON::Array::Ptr array = source ? source->getDataAsJsonArray() : nullptr)
        setData(array);
    else
        setData(source ? source->getDataAsJsonObject() : nullptr);
}

Poco::Dynamic::Var WebSocketResponseObject::getData() const
{
    return JSONObject->get(FIELD_DATA);
}

void WebSocketResponseObject::resetPagingObject()
{
    setMember(FIELD_PAGING, Poco::Dynamic::Var());
}

std::string WebSocketResponseObject::toJsonString() const
{
    return *sharedText();
}

bool WebSocketResponseObject::fromJsonString(const std::string& text)
{
    m_isValid = Util::JSONTools::parseJSONString(text, JSONObject);
    if (!m_isValid)
        JSONObject = new Poco::JSON::Object;
    m_text.dataChanged();
    return m_isValid;
}

void WebSocketResponseObject::takeSnapshot()
{
    if (JSONObject.referenceCount() > 1)
        JSONObject = new Poco::JSON::Object(*JSONObject);
    separateFromOthers(*JSONObject);
    m_text.settle();
}

std::shared_ptr<const std::string> WebSocketResponseObject::sharedText() const
{
    return m_text.get(*JSONObject);
}

} // namespace Kesa::Command
