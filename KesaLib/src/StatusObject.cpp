#include "Command/StatusObject.h"

#include "Command/ResponseObject.h"
#include "Command/WebSocketResponseObject.h"

namespace Kesa::Command
{

const StatusObject::JsonFieldName StatusObject::FIELD_STATUS = "status";
const StatusObject::JsonFieldName StatusObject::FIELD_MESSAGE = "message";
const StatusObject::JsonFieldName StatusObject::FIELD_ERROR_CODE = "code";
const StatusObject::StatusCode StatusObject::STATUS_OK = "ok";
const StatusObject::StatusCode StatusObject::STATUS_ERROR = "error";
const StatusObject::StatusCode StatusObject::STATUS_NONE;

namespace
{
/// What an error document says where the caller gives no text.
std::string defaultMessage(int code)
{
    switch (code)
    {
    case StatusObject::syntax_error:
        return "The request is not valid.";
    case StatusObject::access_denied:
        return "Access is denied.";
    case StatusObject::subscription_uri_invalid:
        return "There is nothing under this URL.";
    case StatusObject::gone:
        return "What stood under this URL is gone.";
    case StatusObject::maximum_number_of_event_subscriptions_reached:
        return "The service cannot take more of this now.";
    default:
        return "The request failed with code " + std::to_string(code) + ".";
    }
}
} // namespace

StatusObject::StatusObject(): JSONObject(new Poco::JSON::Object) {}

StatusObject::StatusObject(const StatusObject& other)
    : JSONObject(new Poco::JSON::Object(*other.JSONObject)), m_text(other.m_text)
{
}

StatusObject::~StatusObject() = default;

StatusObject& StatusObject::operator=(const StatusObject& other)
{
    if (this != &other)
    {
        JSONObject = new Poco::JSON::Object(*other.JSONObject);
        m_text = other.m_text;
    }
    return *this;
}

void StatusObject::setStatus(const StatusCode& status)
{
    setTextMember(FIELD_STATUS, status);
}

void StatusObject::setErrorStatus(Poco::Net::HTTPResponse::HTTPStatus code, const std::string& message)
{
    setErrorStatus(static_cast<int>(code), message);
}

void StatusObject::setErrorStatus(AdditionalJsonErrorCodes code, const std::string& message)
{
    setErrorStatus(static_cast<int>(code), message);
}

void StatusObject::setErrorStatus(int code, const std::string& message)
{
    JSONObject->remove(ResponseObject::FIELD_DATA);
    JSONObject->remove(ResponseObject::FIELD_PAGING);
    m_text.dataChanged();
    JSONObject->set(WebSocketRequestObject::FIELD_TYPE, WebSocketResponseObject::TYPE_ERROR);
    JSONObject->set(FIELD_STATUS, STATUS_ERROR);
    JSONObject->set(FIELD_ERROR_CODE, code);
    JSONObject->set(FIELD_MESSAGE, message.empty() ? defaultMessage(code) : message);
}

StatusObject::StatusCode StatusObject::getStatus() const
{
    return getText(FIELD_STATUS);
}

void StatusObject::setMember(const std::string& key, const Poco::Dynamic::Var& value)
{
    if (value.isEmpty())
        JSONObject->remove(key);
    else
        JSONObject->set(key, value);
    m_text.memberChanged();
}

void StatusObject::setTextMember(const std::string& key, const std::string& text)
{
    if (text.empty())
        setMember(key, Poco::Dynamic::Var());
    else if (getText(key) != text) // an equal one leaves the text of the document as it is
        setMember(key, text);
}

std::string StatusObject::getText(const std::string& key) const
{
    const Poco::Dynamic::Var value = JSONObject->get(key);
    return value.type() == typeid(std::string) ? value.extract<std::string>() : std::string();
}

} // namespace Kesa::Command
