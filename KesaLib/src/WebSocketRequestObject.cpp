#include "Command/WebSocketRequestObject.h"

#include "JsonSnapshot.h"
#include "JsonWriter.h"
#include "Utf8.h"

#include <JSONTools.h>

#include <Poco/Exception.h>
#include <Poco/NumberFormatter.h>

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
using Poco::JSON::Array;
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

/// `text` with its control characters percent-encoded. A URI encodes those of its path when it is written, but keeps
/// those of its query, and a line break would then begin a line of the client's own in a log.
std::string withEncodedControls(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (const char c: text)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F)
            result += "%" + Poco::NumberFormatter::formatHex(byte, 2);
        else
            result += c;
    }
    return result;
}

/// What a message may still hold.
struct Room
{
    std::size_t values;
    std::size_t text;

    bool takeValue()
    {
        const bool fits = values > 0;
        values -= fits ? 1 : 0;
        return fits;
    }
    bool takeText(const std::string& taken)
    {
        const bool fits = taken.size() <= text;
        text -= fits ? taken.size() : 0;
        return fits;
    }
};

/// Takes what `value` holds out of `room`. False as soon as there is not enough.
bool takeRoom(Room& room, const Var& value, int depth = 0)
{
    const auto takePart = [&](const Var& part) { return room.takeValue() && takeRoom(room, part, depth + 1); };
    if (depth >= MAX_JSON_DEPTH)
        return false;
    if (const Object* object = asObject(value))
        return std::all_of(object->begin(), object->end(),
                           [&](const auto& member) { return room.takeText(member.first) && takePart(member.second); });
    if (const Array* array = asArray(value))
        return std::all_of(array->begin(), array->end(), takePart);
    return value.type() != typeid(std::string) || room.takeText(value.extract<std::string>());
}
} // namespace

WebSocketRequestObject::WebSocketRequestObject() = default;

WebSocketRequestObject::WebSocketRequestObject(const std::string& text)
{
    parse(text);
}

WebSocketRequestObject::WebSocketRequestObject(const Object::Ptr& object)
{
    readMessage(object);
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
        readMessage(object);
        return;
    }
    if (Util::JSONTools::parseJSONString(withoutNumbers(text), object))
    {
        readMessage(object); // for the event, which the reply repeats
        m_data = nullptr;    // these are not the client's numbers
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
    readObject(object, std::string::npos);
}

void WebSocketRequestObject::readMessage(const Object::Ptr& object)
{
    readObject(object, MAX_EVENT_LENGTH);
    Room room{MAX_VALUES, MAX_TEXT};
    if (m_isValid && m_type != TYPE_DATA && !takeRoom(room, m_data))
        fail("The message must not hold more than " + std::to_string(MAX_VALUES) + " values, nor more than " +
             std::to_string(MAX_TEXT) + " bytes of names and texts; leave out what the service does not need.");
}

void WebSocketRequestObject::readObject(const Object::Ptr& object, std::size_t longestEvent)
{
    const Object::Ptr shared = object; // which may be this object's own
    *this = WebSocketRequestObject();
    if (shared.isNull())
    {
        fail("The message is not one JSON object.");
        return;
    }
    m_data = shared;
    m_isValid = readMembers(longestEvent);
}

bool WebSocketRequestObject::readMembers(std::size_t longestEvent)
{
    // The event comes first, since the reply to a message that is invalid for another reason repeats it.
    const bool eventRead = readText(FIELD_EVENT, m_eventText);
    const bool eventFits = m_eventText.size() <= longestEvent;
    if (eventFits) // a longer one is not worth the work
        parseEvent();
    if (!readText(FIELD_TYPE, m_type) || !eventRead)
        return false;
    if (!m_data->has(FIELD_TYPE))
        return fail("The message has no '" + FIELD_TYPE + "'.");
    if (m_eventText.empty())
        return fail("The message has no '" + FIELD_EVENT + "', or an empty one.");
    if (!eventFits)
        return fail("'" + FIELD_EVENT + "' must not be longer than " + std::to_string(longestEvent) +
                    " bytes, but has " + std::to_string(m_eventText.size()) + ".");
    return readMilliseconds(FIELD_SUBSCRIPTION_INTERVAL, 1, m_interval) &&
           readMilliseconds(FIELD_SUBSCRIPTION_UPDATE_LIMIT, 0, m_updateLimit) &&
           readText(FIELD_AUTHORIZATION, m_authorization) && readAutosubscribe() && checkData();
}

void WebSocketRequestObject::parseEvent()
{
    try
    {
        m_event = withEncodedControls(m_eventText);
        initializeFromUri(m_event);
    }
    catch (const Poco::Exception&) // a text that is no URL: the path stays invalid
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
