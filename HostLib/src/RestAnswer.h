#pragma once

#include "Export.h"

#include <string>

namespace Poco::Net
{
class HTTPServerResponse;
}
namespace Kesa::Command
{
class QueryResponse;
}

namespace Kesa::Host
{

/// What an HTTP request is answered with.
struct KESA_API RestAnswer
{
    int status = 200;
    std::string body; ///< JSON, empty for the answers that have none
    std::string etag; ///< with its quotes, empty where none is sent
    std::string location;
    std::string allow;      ///< the methods that the URL knows, where the answer names them
    bool isRetried = false; ///< the client may try again in a second

    /// An error document.
    static RestAnswer error(int status, const std::string& message);
    /// The error document of a result that is not OK.
    static RestAnswer error(const Command::QueryResponse& result);

    bool isError() const { return status >= 400; }
    /// Sends it; once for each response.
    void send(Poco::Net::HTTPServerResponse& response) const;
};

} // namespace Kesa::Host
