#pragma once

#include "Export.h"

namespace Poco::Net
{
class HTTPMessage;
}

namespace Kesa::Host
{

/// Whether the client takes JSON: it sends no `Accept`, or one that admits `application/json` or a vendor media type of
/// this API, in any letter case.
KESA_API bool acceptsJson(const Poco::Net::HTTPMessage& request);

} // namespace Kesa::Host
