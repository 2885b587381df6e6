#pragma once

#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include <sstream>
#include <string>

namespace Kesa::Test
{

/// The object that a message holds; raises what the parser raises for any other text.
inline Poco::JSON::Object::Ptr parsed(const std::string& text)
{
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

/// A message of a client with this type; of a subscription the rate limit is off.
inline std::string message(const std::string& type, const std::string& event)
{
    Poco::JSON::Object object;
    object.set("type", type);
    object.set("event", event);
    if (type == "subscribe")
        object.set("updateLimit", 0);
    std::ostringstream text;
    object.stringify(text);
    return text.str();
}

} // namespace Kesa::Test
