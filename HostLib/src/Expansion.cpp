#include "Expansion.h"

#include "DataRow.h"
#include "JsonWriter.h"

#include "Command/RequestBase.h"
#include "DataAccess/ServiceDataAccessPoint.h"

#include <vector>

namespace Kesa::Host
{

using Command::RequestBase;
using Command::UrlPath;
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{

/// The object's own identity, which is no reference to another.
bool isIdentity(const std::string& member)
{
    return member == "id" || member == "uri";
}

/// True for a text that can be a path and nothing else: no host, query or fragment.
bool isPath(const std::string& text)
{
    return !text.empty() && text.front() == '/' && text.compare(0, 2, "//") != 0 &&
           text.find_first_of("?#") == std::string::npos;
}

} // namespace

Expansion::Expansion(Service::ServiceDataAccessPoint& data, const RequestBase& request)
    : m_data(data), m_level(request.getExpansionLevel())
{
    std::vector<std::string> properties;
    request.getExpansionProperties(properties);
    m_properties.insert(properties.begin(), properties.end());
}

Object::Ptr Expansion::expand(const Object& object)
{
    if (m_level > 0)
        return expandMembers(object, m_level, 0);
    Object::Ptr copy = new Object(object);
    for (const std::string& name: m_properties)
        if (object.has(name) && !isIdentity(name))
            copy->set(name, expandValue(object.get(name), 1, 0));
    return copy;
}

Object::Ptr Expansion::expandMembers(const Object& object, unsigned int level, int depth)
{
    Object::Ptr copy = new Object;
    for (const auto& [name, value]: object)
        copy->set(name, isIdentity(name) ? value : expandValue(value, level, depth + 1));
    return copy;
}

Var Expansion::expandValue(const Var& value, unsigned int level, int depth)
{
    if (level == 0 || depth >= Command::MAX_JSON_DEPTH)
        return value;
    if (value.type() == typeid(std::string))
        return follow(value, level, depth);
    if (const Object* object = Command::asObject(value))
        return expandMembers(*object, level, depth);
    const Array* array = Command::asArray(value);
    if (!array)
        return value;
    Array::Ptr copy = new Array;
    for (const Var& entry: *array)
        copy->add(expandValue(entry, level, depth + 1));
    return copy;
}

Var Expansion::follow(const Var& text, unsigned int level, int depth)
{
    const auto& reference = text.extract<std::string>();
    if (m_left == 0 || !isPath(reference))
        return text;
    const UrlPath url(reference);
    if (url.getCharacteristic() != UrlPath::SERVICE_RESOURCE_ELEMENT)
        return text;
    const auto element = m_data.getElement(url.getService(), url.getResource(), url.getElement());
    if (element.isNull())
        return text;
    --m_left;
    return expandMembers(*DataRow(Data::XObjectBase::Ptr(element)).json(), level - 1, depth + 1);
}

} // namespace Kesa::Host
