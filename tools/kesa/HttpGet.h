#pragma once

#include <Poco/JSON/Object.h>

#include <string>

namespace Kesa::Client
{

class ServiceUrl;

/// What came back for a request.
struct HttpAnswer
{
    int status;
    std::string reason;
    std::string body;

    bool isSuccess() const { return status >= 200 && status <= 299; }
    /// The body. Raises a Poco::Exception if that is no JSON object.
    Poco::JSON::Object::Ptr document() const;
    /// What an error answer says of itself, or else its status line.
    std::string describeError() const;
};

/// Reads `url` once. Waits at most 10 s for each piece of the answer, and takes 16 MiB at most. Raises a
/// Poco::Exception if no whole answer came. Any thread.
HttpAnswer httpGet(const ServiceUrl& url);

/// True if anything that speaks HTTP answers at `url` within `timeoutMs` milliseconds. Any thread.
bool answersHttp(const ServiceUrl& url, int timeoutMs);

} // namespace Kesa::Client
