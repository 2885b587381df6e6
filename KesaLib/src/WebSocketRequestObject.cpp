#include "Command/WebSocketRequestObject.h"

#include "JsonSnapshot.h"
#include "JsonWriter.h"
#include "Utf8.h"

#include <JSONTools.h>

#include <Poco/Exception.h>

#include <algorithm>

namespace Kesa::Command
{

const WebSocketRequestObject::Type WebSocketRequestObject::TYPE_SUBSCRIBE = "subscribe";
const WebSocketRequestObject::Type WebSocketRequestObject::TYPE_UNSUBSCRIBE = "unsubscribe";
const WebSocketRequestObject::Type WebSocketRequestObject::TYPE_DATA = "data";
const WebSocketRequestObject::JsonFieldName WebSocketRequestObject::FIELD_TYPE = "type";
const WebSocketRequestObject::JsonFieldName WebSocketRequestObject::FIELD_EVENT = "event";
const WebSocketRequestObject::JsonFieldName WebSocketRequestObject::FIELD_SUBSCRIPTION_INTERVAL = "interval";
const WebSocketRequestObject::JsonFieldName WebSocketRequestObject::FIELD_SUBSCRIPTION_UPDATE_LIMIT = "updateLimit";
const WebSocketRequestObject::JsonFieldName WebSocketRequestObject::FIELD_AUTHORIZATION = "authorization";
const WebSocketRequestObject::JsonFieldName WebSocketRequestObject::FIELD_AUTOSUBSCRIBE = "autosubscribe";
const WebSocketRequestObject::JsonFieldName WebSocketRequestObject::FIELD_DATA = "data";
const WebSocketRequestObject::JsonFieldName WebSocketRequestObject::FIELD_ERROR = "error";

namespace
{
using Poco::Dynamic::Var;
using Poco::JSON::Object;

bool beginsNumber(char c)
{
    return (c >= '0' && c <= '9') || c == '-';
}

/// `text` with 0 in the place of each number. What parses only so has a number that is out of range.
std::string withoutNumbers(const std::string& text)
{
    std::string result;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        if (!inString && beginsNumber(text[i]))
        {
            result += '0';
            i = std::min(text.find_first_not_of("0123456789+-.eE", i), text.size()) - 1;
            continue;
        }
        if (text[i] == '"')
            inString = !inString;
        result += text[i];
        if (inString && text[i] == '\\' && i + 1 < text.size())
            result += text[++i];
    }
    return result;
}

/// A value as a client sees it in a message to it.
std::string shown(const Var& value)
{
    std::string text;
    appendJson(text, value);
    return excerpt(text);
}
} // namespace

WebSocketRequestObject::WebSocketRequestObject() = default;

WebSocketRequestObject::WebSocketRequestObject(const std::string& text)
{
    parse(text);
}

WebSocketRequestObject::WebSocketRequestObject(const Object::Ptr& object)
{
    initFromJsonObject(object);
}

WebSocketRequestObject::WebSocketRequestObject(const Type& type, const std::string& event,
                                               const Poco::Optional<long>& interval,
                                               const Poco::Optional<long>& updateLimit,
                                               const std::string* authorization, bool autosubscribe)
{
    Object::Ptr object = new Object;
    object->set(FIELD_TYPE, type);
    object->set(FIELD_EVENT, event);
    if (interval.isSpecified())
        object->set(FIELD_SUBSCRIPTION_INTERVAL, interval.value());
    if (updateLimit.isSpecified())
        object->set(FIELD_SUBSCRIPTION_UPDATE_LIMIT, updateLimit.value());
    if (authorization)
        object->set(FIELD_AUTHORIZATION, *authorization);
    object->set(FIELD_AUTOSUBSCRIBE, autosubscribe);
    initFromJsonObject(object);
}

WebSocketRequestObject::WebSocketRequestObject(const WebSocketRequestObject& other) = default;
WebSocketRequestObject::WebSocketRequestObject(WebSocketRequestObject&& other) noexcept = default;
WebSocketRequestObject::~WebSocketRequestObject() = default;
WebSocketRequestObject& WebSocketRequestObject::operator=(const WebSocketRequestObject& other) = default;
WebSocketRequestObject& WebSocketRequestObject::operator=(WebSocketRequestObject&& other) noexcept = default;

void WebSocketRequestObject::setEvent(const Poco::URI& event)
{
    if (event == m_event)
        return;
    m_event = event;
    m_eventText = event.toString();
}

void WebSocketRequestObject::parse(const std::string& text)
{
    Object::Ptr object;
    if (Util::JSONTools::parseJSONString(text, object))
    {
        initFromJsonObject(object);
        return;
    }
    if (Util::JSONTools::parseJSONString(withoutNumbers(text), object))
    {
        initFromJsonObject(object); // for the event, which the reply repeats
        m_data = nullptr;           // these are not the client's numbers
        m_interval.clear();
        m_updateLimit.clear();
        fail("A number of the message is malformed or out of range.");
        return;
    }
    fail("The message is not one JSON object.");
}

void WebSocketRequestObject::copyAndInitFromJsonObject(const Object& object)
{
    initFromJsonObject(deepCopy(object));
}

void WebSocketRequestObject::initFromJsonObject(const Object::Ptr& object)
{
    const Object::Ptr shared = object; // which may be this object's own
    *this = WebSocketRequestObject();
    if (shared.isNull())
    {
        fail("The message is not one JSON object.");
        return;
    }
    m_data = shared;
    m_isValid = readMembers();
}

bool WebSocketRequestObject::readMembers()
{
    // The event comes first, since the reply to a message that is invalid for another reason repeats it.
    const bool eventRead = readText(FIELD_EVENT, m_eventText);
    parseEvent();
    if (!readText(FIELD_TYPE, m_type) || !eventRead)
        return false;
    if (!m_data->has(FIELD_TYPE))
        return fail("The message has no '" + FIELD_TYPE + "'.");
    if (m_eventText.empty())
        return fail("The message has no '" + FIELD_EVENT + "', or an empty one.");
    return readMilliseconds(FIELD_SUBSCRIPTION_INTERVAL, 1, m_interval) &&
           readMilliseconds(FIELD_SUBSCRIPTION_UPDATE_LIMIT, 0, m_updateLimit) &&
           readText(FIELD_AUTHORIZATION, m_authorization) && readAutosubscribe() && checkData();
}

void WebSocketRequestObject::parseEvent()
{
    try
    {
        m_event = m_eventText;
        initializeFromUri(m_event);
    }
    catch (const Poco::SyntaxException&) // a text that is no URL: the path stays invalid
    {
        m_event.clear();
    }
}

bool WebSocketRequestObject::readText(const JsonFieldName& field, std::string& text)
{
    if (!m_data->has(field))
        return true;
    const Var value = m_data->get(field);
    if (value.type() != typeid(std::string))
        return fail("'" + field + "' must be a text, but is " + shown(value) + ".");
    text = value.extract<std::string>();
    return true;
}

bool WebSocketRequestObject::readMilliseconds(const JsonFieldName& field, milliseconds smallest,
                                              Poco::Optional<long>& target)
{
    if (!m_data->has(field))
        return true;
    const Var value = m_data->get(field);
    // The parser makes an unsigned value only from a number that is too large, and wraps some of them around.
    const bool isInteger = value.isInteger() && !value.isBoolean() && value.type() != typeid(Poco::UInt64);
    if (isInteger)
    {
        const auto number = value.convert<Poco::Int64>();
        if (number >= smallest && number <= MAX_MILLISECONDS)
        {
            target = static_cast<long>(number);
            return true;
        }
    }
    return fail("'" + field + "' must be a whole number of milliseconds from " + std::to_string(smallest) + " to " +
                std::to_string(MAX_MILLISECONDS) + (isInteger ? ", but is " + shown(value) : std::string()) + ".");
}

bool WebSocketRequestObject::readAutosubscribe()
{
    if (!m_data->has(FIELD_AUTOSUBSCRIBE))
        return true;
    const Var value = m_data->get(FIELD_AUTOSUBSCRIBE);
    if (!value.isBoolean())
        return fail("'" + FIELD_AUTOSUBSCRIBE + "' must be true or false, but is " + shown(value) + ".");
    m_autosubscribe = value.extract<bool>();
    return true;
}

bool WebSocketRequestObject::checkData()
{
    if (!m_data->has(FIELD_DATA))
        return true;
    const Var value = m_data->get(FIELD_DATA);
    return asObject(value) || fail("'" + FIELD_DATA + "' must be an object, but is " + shown(value) + ".");
}

bool WebSocketRequestObject::fail(const std::string& problem)
{
    m_isValid = false;
    m_problem = problem;
    return false;
}

} // namespace Kesa::Command
