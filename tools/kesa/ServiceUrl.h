#pragma once

#include <Poco/Types.h>

#include <string>

namespace Kesa::Client
{

/// What a command line names: a server, and on it the path that is read or followed.
///
/// Accepted forms, the port 80 and the path "/" where they are left out:
///     http://host:port/service/resource/element?query#fragment
///     ws://host:port/...
///     host:port/...
/// Threads: immutable after construction.
class ServiceUrl
{
public:
    /// Reads `text`. Raises Poco::SyntaxException, with the text and what is wrong with it, for anything else than the
    /// forms above; TLS (https, wss) is not spoken.
    explicit ServiceUrl(const std::string& text);

    /// Host without the brackets of an IPv6 address.
    const std::string& host() const { return m_host; }
    Poco::UInt16 port() const { return m_port; }
    /// "host:port" as it stands in a URL and in a Host header.
    std::string authority() const;
    /// Path, query and fragment in their encoded form: the event of a subscription.
    const std::string& event() const { return m_event; }
    /// Path and query: what a GET asks for.
    const std::string& pathAndQuery() const { return m_pathAndQuery; }
    /// The whole URL with the scheme http, for messages to the user.
    std::string toString() const { return "http://" + authority() + m_event; }

private:
    std::string m_host;
    Poco::UInt16 m_port;
    std::string m_event;
    std::string m_pathAndQuery;
};

} // namespace Kesa::Client
