#pragma once

#include "Export.h"

#include <string>

namespace Kesa::Host
{

/// The URL of a request as the libraries understand it, judged before anything is looked up.
struct RequestTarget
{
    std::string url;     ///< path and query, beginning with one slash
    int status = 0;      ///< 0: usable; else the HTTP status of the refusal
    std::string message; ///< what was wrong, for the client to read
};

/// Judges the URL of a request line: not one that a service could have, or whose segments could be understood in two
/// ways.
KESA_API RequestTarget judgeTarget(const std::string& requestUrl);

} // namespace Kesa::Host
