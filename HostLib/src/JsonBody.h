#pragma once

#include "Export.h"

#include <Poco/JSON/Object.h>

#include <string>

namespace Kesa::Host
{

/// The JSON object that a request's body has to be, read strictly: what could be understood in two ways, or could not
/// be kept as it came, is refused.
struct KESA_API JsonBody
{
    Poco::JSON::Object::Ptr object; ///< null if the body is refused
    std::string problem;            ///< what was wrong, for the client to read

    static constexpr int MAX_DEPTH = 64; ///< objects and arrays inside each other: more than any honest document has

    /// Refuses what is no JSON object, no UTF-8, nested too deeply, a member that stands twice in its object or whose
    /// name holds the character U+0000, and a number that does not fit into 64 bits.
    static JsonBody parse(const std::string& text);
};

} // namespace Kesa::Host
