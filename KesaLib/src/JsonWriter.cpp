#include "JsonWriter.h"

#include "Utf8.h"

#include <Poco/Exception.h>
#include <Poco/NumberFormatter.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <list>

namespace Kesa::Command
{

namespace
{
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

const char HEX[] = "0123456789abcdef";

template <class T>
bool holds(const Var& value)
{
    return value.type() == typeid(T);
}

void appendControlCharacter(std::string& out, unsigned char c)
{
    switch (c)
    {
    case '\n':
        out += "\\n";
        break;
    case '\r':
        out += "\\r";
        break;
    case '\t':
        out += "\\t";
        break;
    default:
        out += "\\u00";
        out += HEX[c >> 4];
        out += HEX[c & 15];
    }
}

/// How many bytes from `position` on stand in a JSON string as they are.
std::size_t plainLength(const std::string& text, std::size_t position)
{
    const auto special = std::find_if(text.begin() + static_cast<std::ptrdiff_t>(position), text.end(),
                                      [](char c)
                                      {
                                          const auto byte = static_cast<unsigned char>(c);
                                          return byte < 0x20 || byte >= 0x80 || c == '"' || c == '\\';
                                      });
    return static_cast<std::size_t>(special - text.begin()) - position;
}

/// Appends the character at `position`, which is not plain. Returns its length in `text`.
std::size_t appendSpecialCharacter(std::string& out, const std::string& text, std::size_t position)
{
    const auto first = static_cast<unsigned char>(text[position]);
    const std::size_t length = utf8Length(text, position);
    if (first < 0x20)
        appendControlCharacter(out, first);
    else if (first < 0x80)
        (out += '\\') += text[position];
    else if (length == 0)
        out += REPLACEMENT_CHARACTER;
    else
        out.append(text, position, length);
    return std::max<std::size_t>(length, 1);
}

template <class Members>
void appendMembers(std::string& out, const Members& members, int depth)
{
    char separator = '{';
    for (const auto& member: members)
    {
        out += separator;
        separator = ',';
        appendJsonString(out, member.first);
        out += ':';
        appendJson(out, member.second, depth + 1);
    }
    out += separator == '{' ? "{}" : "}";
}

template <class Elements>
void appendElements(std::string& out, const Elements& elements, int depth)
{
    char separator = '[';
    for (const auto& element: elements)
    {
        out += separator;
        separator = ',';
        appendJson(out, element, depth + 1);
    }
    out += separator == '[' ? "[]" : "]";
}

/// Appends the containers of POCO's dynamic types. False if `value` is none of them.
bool appendDynamicContainer(std::string& out, const Var& value, int depth)
{
    if (holds<Poco::DynamicStruct>(value))
        appendMembers(out, value.extract<Poco::DynamicStruct>(), depth);
    else if (holds<Poco::OrderedDynamicStruct>(value))
        appendMembers(out, value.extract<Poco::OrderedDynamicStruct>(), depth);
    else if (holds<std::vector<Var>>(value))
        appendElements(out, value.extract<std::vector<Var>>(), depth);
    else if (holds<std::list<Var>>(value))
        appendElements(out, value.extract<std::list<Var>>(), depth);
    else if (holds<std::deque<Var>>(value))
        appendElements(out, value.extract<std::deque<Var>>(), depth);
    else
        return false;
    return true;
}

std::string numberText(const Var& value)
{
    if (holds<Poco::Int64>(value))
        return std::to_string(value.extract<Poco::Int64>());
    if (value.isInteger())
        return value.isSigned() ? std::to_string(value.convert<Poco::Int64>())
                                : std::to_string(value.convert<Poco::UInt64>());
    if (holds<float>(value))
        return std::isfinite(value.extract<float>()) ? Poco::NumberFormatter::format(value.extract<float>()) : "null";
    const double number = value.convert<double>();
    return std::isfinite(number) ? Poco::NumberFormatter::format(number) : "null";
}

/// Sets `text` to what stands for a scalar. True if that is a string, false if it is a literal of JSON.
bool readScalar(const Var& value, std::string& text)
{
    if (holds<std::string>(value))
    {
        text = value.extract<std::string>();
        return true;
    }
    text = "null";
    if (value.isEmpty() || holds<Object::Ptr>(value) || holds<Array::Ptr>(value))
        return false;
    if (value.isBoolean())
        text = value.extract<bool>() ? "true" : "false";
    else if (value.isNumeric() && !holds<char>(value))
        text = numberText(value);
    else
    {
        text = value.convert<std::string>();
        return true;
    }
    return false;
}

void appendScalar(std::string& out, const Var& value)
{
    std::string text;
    bool isString = false;
    try
    {
        isString = readScalar(value, text);
    }
    catch (const Poco::Exception&) // a type that has no text
    {
        text = "null";
    }
    if (isString)
        appendJsonString(out, text);
    else
        out += text;
}
} // namespace

const Object* asObject(const Var& value)
{
    if (holds<Object::Ptr>(value))
        return value.extract<Object::Ptr>().get();
    return holds<Object>(value) ? &value.extract<Object>() : nullptr;
}

const Array* asArray(const Var& value)
{
    if (holds<Array::Ptr>(value))
        return value.extract<Array::Ptr>().get();
    return holds<Array>(value) ? &value.extract<Array>() : nullptr;
}

void appendJson(std::string& out, const Var& value, int depth)
{
    if (depth >= MAX_JSON_DEPTH)
        out += "null";
    else if (holds<std::string>(value))
        appendJsonString(out, value.extract<std::string>());
    else if (const Object* object = asObject(value))
        appendMembers(out, *object, depth);
    else if (const Array* array = asArray(value))
        appendElements(out, *array, depth);
    else if (!appendDynamicContainer(out, value, depth))
        appendScalar(out, value);
}

void appendJsonString(std::string& out, const std::string& text)
{
    out += '"';
    for (std::size_t position = 0; position < text.size();)
    {
        const std::size_t plain = plainLength(text, position);
        out.append(text, position, plain);
        position += plain;
        if (position < text.size())
            position += appendSpecialCharacter(out, text, position);
    }
    out += '"';
}

std::string scalarText(const Var& value)
{
    std::string text;
    try
    {
        readScalar(value, text);
    }
    catch (const Poco::Exception&) // a type that has no text
    {
        text.clear();
    }
    return text;
}

} // namespace Kesa::Command
