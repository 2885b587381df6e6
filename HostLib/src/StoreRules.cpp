#include "StoreRules.h"

#include "JSONTools.h"
#include "JsonWriter.h"

#include <Poco/Exception.h>
#include <Poco/UUID.h>

#include <algorithm>

namespace Kesa::Host
{

using Poco::JSON::Object;

namespace
{
bool isNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
}

/// Whether `schemaText` is a JSON object, with schemas under `properties` if it has that.
bool isSchema(const std::string& schemaText)
{
    Object::Ptr schema;
    if (!Util::JSONTools::parseJSONString(schemaText, schema))
        return false;
    if (!schema->has("properties"))
        return true;
    const Object::Ptr properties = schema->getObject("properties");
    return !properties.isNull() &&
           std::all_of(properties->begin(), properties->end(),
                       [](const auto& property)
                       { return property.second.isBoolean() || Command::asObject(property.second); });
}

/// Whether the name of a member, at any depth, holds the character zero, at which POCO's parser would end it.
bool hasZeroInName(const Poco::Dynamic::Var& value, int depth = 0)
{
    if (depth >= Command::MAX_JSON_DEPTH) // refused for its depth
        return false;
    const auto isBad = [&](const Poco::Dynamic::Var& part) { return hasZeroInName(part, depth + 1); };
    if (const Poco::JSON::Array* array = Command::asArray(value))
        return std::any_of(array->begin(), array->end(), isBad);
    if (const Object* object = Command::asObject(value))
        return std::any_of(object->begin(), object->end(),
                           [&](const auto& member)
                           { return member.first.find('\0') != std::string::npos || isBad(member.second); });
    return false;
}
} // namespace

void StoreRules::checkName(const std::string& kind, const std::string& name)
{
    const std::size_t longest = 64;
    if (name.empty() || name.size() > longest || name[0] == '.' ||
        !std::all_of(name.begin(), name.end(), isNameCharacter))
        throw Poco::InvalidArgumentException(
            kind + " cannot be called '" + name +
            "': a name has 1 to 64 of the characters A-Z a-z 0-9 . _ - and does not begin with a dot");
}

void StoreRules::checkSpecification(const std::string& resource, const std::string& schemaText)
{
    if (!schemaText.empty() && !isSchema(schemaText))
        throw Poco::InvalidArgumentException("The schema of the resource '" + resource +
                                             "' is no JSON Schema object: " + schemaText);
}

bool StoreRules::isId(const std::string& text)
{
    Poco::UUID id;
    return id.tryParse(text) && id.toString() == text;
}

Object::Ptr StoreRules::joined(const Object* base, const Object& members)
{
    Object::Ptr whole = base ? new Object(*base) : new Object;
    for (const auto& [name, value]: members)
        whole->set(name, value);
    return whole;
}

std::string StoreRules::write(const Object::Ptr& object, std::string& text)
{
    if (hasZeroInName(object))
        return "The name of a member holds the character U+0000, which cannot be kept.";
    Command::appendJson(text, object);
    return std::string();
}

} // namespace Kesa::Host
