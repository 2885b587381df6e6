#include "UpgradeCheck.h"

#include "HttpText.h"

#include <Poco/Ascii.h>
#include <Poco/Net/HTTPRequest.h>

#include <algorithm>
#include <string_view>

namespace Kesa::Host
{

using Poco::Net::HTTPRequest;

namespace
{

std::vector<std::string_view> valuesOf(const HTTPRequest& request, std::string_view name)
{
    std::vector<std::string_view> values;
    for (const auto& [field, value]: request)
        if (equalsIgnoringCase(field, name))
            values.emplace_back(value);
    return values;
}

bool anyListHolds(const HTTPRequest& request, std::string_view name, std::string_view word)
{
    const auto values = valuesOf(request, name);
    return std::any_of(values.begin(), values.end(), [word](std::string_view list) { return listHolds(list, word); });
}

/// The text of 16 bytes in base64: 22 characters that count, and two that fill up.
bool isKey(std::string_view key)
{
    constexpr std::size_t COUNTING = 22;
    const auto isDigit = [](unsigned char c) { return Poco::Ascii::isAlphaNumeric(c) || c == '+' || c == '/'; };
    return key.size() == COUNTING + 2 && key.substr(COUNTING) == "==" &&
           std::all_of(key.begin(), key.begin() + COUNTING, isDigit);
}

/// The host of "host:port", of "[address]:port" and of either without a port.
std::string_view hostOf(std::string_view authority)
{
    const std::size_t bracket = authority.rfind(']');
    const std::size_t colon = authority.find(':', bracket == std::string_view::npos ? 0 : bracket);
    return authority.substr(0, colon);
}

/// The authority of "scheme://authority"; empty for what is no such origin, "null" among them.
std::string_view authorityOf(std::string_view origin)
{
    const std::size_t start = origin.find("://");
    return start == std::string_view::npos ? std::string_view() : origin.substr(start + 3);
}

bool isLoopback(std::string_view host)
{
    return equalsIgnoringCase(host, "localhost") || host == "127.0.0.1" || host == "[::1]";
}

bool isOriginAllowed(std::string_view origin, const std::string& host, const std::vector<std::string>& allowedOrigins)
{
    const std::string_view page = hostOf(authorityOf(origin));
    if (!page.empty() && (isLoopback(page) || equalsIgnoringCase(page, hostOf(host))))
        return true;
    return std::any_of(allowedOrigins.begin(), allowedOrigins.end(),
                       [origin](const std::string& allowed)
                       { return allowed == "*" || equalsIgnoringCase(allowed, origin); });
}

} // namespace

bool wantsUpgrade(const HTTPRequest& request)
{
    return anyListHolds(request, "Upgrade", "websocket");
}

UpgradeVerdict checkUpgrade(const HTTPRequest& request, const std::vector<std::string>& allowedOrigins)
{
    const auto versions = valuesOf(request, "Sec-WebSocket-Version");
    const auto keys = valuesOf(request, "Sec-WebSocket-Key");
    const auto origins = valuesOf(request, "Origin");
    if (request.getMethod() != HTTPRequest::HTTP_GET)
        return {405, "A websocket is opened with GET."};
    if (request.getVersion() != HTTPRequest::HTTP_1_1)
        return {400, "A websocket is opened with HTTP/1.1."};
    if (!anyListHolds(request, "Connection", "Upgrade"))
        return {400, "The field Connection does not say Upgrade."};
    if (request.getChunkedTransferEncoding() || (request.hasContentLength() && request.getContentLength64() != 0))
        return {400, "A request for a websocket has no body."};
    if (versions.size() != 1 || versions.front() != "13")
        return {426, "Only version 13 of the websocket protocol is spoken: Sec-WebSocket-Version has to be 13."};
    if (keys.size() != 1 || !isKey(trimmed(keys.front())))
        return {400, "The field Sec-WebSocket-Key has to be the base64 text of 16 bytes."};
    if (origins.size() > 1)
        return {400, "The request has more than one Origin field."};
    if (!origins.empty() && !isOriginAllowed(trimmed(origins.front()), request.get("Host", ""), allowedOrigins))
        return {403, "Web pages of this origin may not connect: the service has to list the origin in its option "
                     "allowedOrigins."};
    return {};
}

} // namespace Kesa::Host
