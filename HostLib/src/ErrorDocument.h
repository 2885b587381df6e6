#pragma once

#include "Export.h"

#include <string>

namespace Poco::Net
{
class HTTPServerResponse;
}

namespace Kesa::Host
{

/// The JSON text that tells a client of an error: `{"code":404,"message":"...","status":"error","type":"error"}`.
/// An empty message is replaced by the reason phrase of the status, so that it is never empty.
KESA_API std::string errorDocument(int status, const std::string& message);

/// Answers with an error document of that status. Fields that were set on the response before are kept.
KESA_API void sendError(Poco::Net::HTTPServerResponse& response, int status, const std::string& message);

/// A whole HTTP/1.1 answer with an error document, for where no request could be read. It says that the connection
/// closes.
KESA_API std::string rawErrorAnswer(int status, const std::string& message);

} // namespace Kesa::Host
