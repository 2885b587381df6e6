#pragma once

#include "Export.h"

#include <Poco/JSON/Object.h>

#include <cstddef>
#include <string>

namespace Kesa::Util
{

/// Helpers around POCO's JSON.
class KESA_API JSONTools
{
public:
    /// True if `text` parsed as a JSON object, with `out` set. Other JSON, bad text and text nested too deeply give
    /// false and set `out` to null; nothing is raised.
    static bool parseJSONString(const std::string& text, Poco::JSON::Object::Ptr& out);

    /// How many objects, arrays, members and elements a text of JSON holds, give or take the brackets: what it costs to
    /// parse it. One of two bytes, such as "{}", takes three hundred times the room of its text.
    static std::size_t countParts(const std::string& text);
};

} // namespace Kesa::Util
