#pragma once

#include "Export.h"

#include <Poco/JSON/Object.h>

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
};

} // namespace Kesa::Util
