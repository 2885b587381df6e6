#include "ClientHandshake.h"

#include "RandomBytes.h"

#include <Poco/Base64Encoder.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/NetException.h>
#include <Poco/SHA1Engine.h>
#include <Poco/String.h>
#include <Poco/StringTokenizer.h>

#include <sstream>

namespace Kesa::Client
{
namespace
{

std::string base64(const unsigned char* data, std::size_t length)
{
    std::ostringstream text;
    Poco::Base64Encoder encoder(text);
    encoder.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(length));
    encoder.close();
    return text.str();
}

std::string randomKey()
{
    unsigned char key[16];
    fillRandom(key, sizeof key);
    return base64(key, sizeof key);
}

/// The answer that only a websocket server gives to this key.
std::string expectedAccept(const std::string& key)
{
    Poco::SHA1Engine sha1;
    sha1.update(key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11");
    const Poco::DigestEngine::Digest& digest = sha1.digest();
    return base64(digest.data(), digest.size());
}

bool hasToken(const std::string& list, const std::string& token)
{
    for (const auto& item: Poco::StringTokenizer(list, ",", Poco::StringTokenizer::TOK_TRIM))
        if (Poco::icompare(item, token) == 0)
            return true;
    return false;
}

void require(bool condition, const std::string& otherwise)
{
    if (!condition)
        throw Poco::Net::WebSocketException(otherwise);
}

} // namespace

ClientHandshake::ClientHandshake(const std::string& authority, const std::string& path)
    : ClientHandshake(authority, path, randomKey())
{
}

ClientHandshake::ClientHandshake(const std::string& authority, const std::string& path, const std::string& key)
    : m_authority(authority), m_path(path), m_key(key)
{
}

std::string ClientHandshake::request() const
{
    return "GET " + m_path + " HTTP/1.1\r\nHost: " + m_authority +
           "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: " + m_key +
           "\r\n\r\n";
}

bool ClientHandshake::feed(const char* data, std::size_t length)
{
    // The end mark may be cut by the border of two pieces.
    const std::size_t from = m_received.size() < 3 ? 0 : m_received.size() - 3;
    m_received.append(data, length);
    const std::size_t end = m_received.find("\r\n\r\n", from);
    if (end == std::string::npos)
    {
        require(m_received.size() <= MAX_HEAD, "the answer to the upgrade has no end");
        return false;
    }
    check(m_received.substr(0, end + 4));
    m_rest = m_received.substr(end + 4);
    return true;
}

void ClientHandshake::check(const std::string& head) const
{
    Poco::Net::HTTPResponse response;
    try
    {
        std::istringstream stream(head);
        response.read(stream);
    }
    catch (const Poco::Exception&)
    {
        throw Poco::Net::WebSocketException("the server does not speak HTTP");
    }
    require(response.getStatus() == Poco::Net::HTTPResponse::HTTP_SWITCHING_PROTOCOLS,
            "the server refused the websocket with HTTP " + std::to_string(response.getStatus()) + " " +
                response.getReason());
    require(Poco::icompare(response.get("Upgrade", ""), "websocket") == 0 &&
                hasToken(response.get("Connection", ""), "upgrade"),
            "the server switched to something else than a websocket");
    require(Poco::trim(response.get("Sec-WebSocket-Accept", "")) == expectedAccept(m_key),
            "the server's Sec-WebSocket-Accept does not fit the key");
    require(!response.has("Sec-WebSocket-Extensions") && !response.has("Sec-WebSocket-Protocol"),
            "the server chose an extension or protocol that was not offered");
}

} // namespace Kesa::Client
