#include "ServiceUrl.h"

#include <Poco/Exception.h>
#include <Poco/URI.h>

namespace Kesa::Client
{
namespace
{

Poco::URI parse(const std::string& text)
{
    // Without its scheme "localhost:8920/x" would be read as the scheme "localhost".
    const bool hasScheme = text.find("://") != std::string::npos;
    try
    {
        return Poco::URI(hasScheme ? text : "http://" + text);
    }
    catch (const Poco::Exception& error)
    {
        throw Poco::SyntaxException("\"" + text + "\" is no URL: " + error.displayText() +
                                    "; use http://host:port/path");
    }
}

} // namespace

ServiceUrl::ServiceUrl(const std::string& text)
{
    Poco::URI uri = parse(text);
    const std::string scheme = uri.getScheme();
    if (scheme != "http" && scheme != "ws")
        throw Poco::SyntaxException("\"" + text + "\": the scheme must be http or ws, not " + scheme);
    if (uri.getHost().empty())
        throw Poco::SyntaxException("\"" + text + "\" names no host; use http://host:port/path");
    if (!uri.getUserInfo().empty())
        throw Poco::SyntaxException("\"" + text + "\": a user name in a URL is not supported");
    if (uri.getPath().empty())
        uri.setPath("/");
    m_host = uri.getHost();
    m_port = uri.getPort();
    m_event = uri.getPathEtc();
    m_pathAndQuery = uri.getPathAndQuery();
}

std::string ServiceUrl::authority() const
{
    const bool isIpv6 = m_host.find(':') != std::string::npos;
    return (isIpv6 ? "[" + m_host + "]" : m_host) + ":" + std::to_string(m_port);
}

} // namespace Kesa::Client
