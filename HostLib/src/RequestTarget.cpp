#include "RequestTarget.h"

#include "HttpText.h"

#include <Poco/Exception.h>
#include <Poco/URI.h>

#include <algorithm>
#include <string_view>

namespace Kesa::Host
{

namespace
{

constexpr std::size_t MAX_SEGMENTS = 3; // service, resource, element

/// Path and query of a URL that may begin with a scheme and an authority.
std::string withoutAuthority(const std::string& url)
{
    const std::size_t authority = url.front() == '/' ? std::string::npos : url.find("://");
    const std::size_t path = authority == std::string::npos ? 0 : url.find_first_of("/?", authority + 3);
    std::string rest = path == std::string::npos ? "" : url.substr(path);
    // Two slashes would make a host of the first segment.
    rest.erase(0, std::min(rest.find_first_not_of('/'), rest.size()));
    return "/" + rest;
}

bool holdsEncoded(const std::string& path, std::string_view code)
{
    for (std::size_t i = path.find('%'); i != std::string::npos; i = path.find('%', i + 1))
        if (equalsIgnoringCase(std::string_view(path).substr(i, 3), code))
            return true;
    return false;
}

} // namespace

RequestTarget judgeTarget(const std::string& requestUrl)
{
    RequestTarget target;
    const auto refuse = [&target](int status, const char* message)
    {
        target.status = status;
        target.message = message;
        return target;
    };
    if (requestUrl.empty() || requestUrl == "*")
        return refuse(400, "This request needs a URL of the service.");
    target.url = withoutAuthority(requestUrl);
    const std::string path = target.url.substr(0, target.url.find('?'));
    if (holdsEncoded(path, "%2f") || holdsEncoded(path, "%00"))
        return refuse(400, "The URL's path holds an encoded slash or an encoded zero, which no name can have.");
    try
    {
        std::vector<std::string> segments;
        Poco::URI(target.url).getPathSegments(segments);
        if (segments.size() > MAX_SEGMENTS)
            return refuse(404, "A URL has at most three segments: service, resource and element.");
    }
    catch (const Poco::Exception&)
    {
        return refuse(400, "The URL is malformed.");
    }
    return target;
}

} // namespace Kesa::Host
