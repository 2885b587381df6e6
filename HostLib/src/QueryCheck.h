#pragma once

#include "Export.h"

#include <string>

namespace Kesa::Command
{
class RequestBase;
}

namespace Kesa::Host
{

/// Why a query cannot be answered, in words for the client; code 0: it can.
struct QueryVerdict
{
    int code = 0; ///< an HTTP status
    std::string message;
};

/// Judges the query of a request, whatever its URL: 400 where a parameter cannot be read or stands twice, 403 where the
/// expansion is deeper than a subscription's may be.
KESA_API QueryVerdict checkQuery(const Command::RequestBase& request);

} // namespace Kesa::Host
