#pragma once

#include <cstddef>
#include <string>

namespace Kesa::Client
{

/// The client's half of the websocket opening handshake, apart from any socket: it writes the request and reads the
/// answer in pieces of any size.
///
/// Threads: one at a time.
class ClientHandshake
{
public:
    /// Largest head of an answer; a real one has a few hundred bytes.
    static constexpr std::size_t MAX_HEAD = 16 * 1024;

    /// With a key from the kernel's random source. `authority` is "host:port", `path` the target of the request.
    ClientHandshake(const std::string& authority, const std::string& path);
    /// With the given key: 16 bytes in Base64.
    ClientHandshake(const std::string& authority, const std::string& path, const std::string& key);

    /// The request, to be sent as it stands.
    std::string request() const;
    /// Takes the next bytes of the answer. True when the head is whole and the connection is a websocket; raises
    /// Poco::Net::WebSocketException, saying what the server did, for any answer that makes it none.
    bool feed(const char* data, std::size_t length);
    /// What followed the head in the same bytes: the first frames. Valid once feed() returned true.
    const std::string& rest() const { return m_rest; }

private:
    void check(const std::string& head) const;

    const std::string m_authority;
    const std::string m_path;
    const std::string m_key;
    std::string m_received;
    std::string m_rest;
};

} // namespace Kesa::Client
