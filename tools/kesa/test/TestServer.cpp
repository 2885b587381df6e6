#include "TestServer.h"

#include <Poco/Base64Encoder.h>
#include <Poco/Exception.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/SHA1Engine.h>
#include <Poco/Timespan.h>

#include <sstream>

namespace Kesa::Client
{
namespace
{

std::string acceptFor(const std::string& key)
{
    Poco::SHA1Engine sha1;
    sha1.update(key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11");
    const Poco::DigestEngine::Digest& digest = sha1.digest();
    std::ostringstream text;
    Poco::Base64Encoder encoder(text);
    encoder.write(reinterpret_cast<const char*>(digest.data()), static_cast<std::streamsize>(digest.size()));
    encoder.close();
    return text.str();
}

} // namespace

Peer::Peer(const Poco::Net::StreamSocket& socket): m_socket(socket)
{
    m_socket.setReceiveTimeout(Poco::Timespan(10, 0));
    m_socket.setSendTimeout(Poco::Timespan(10, 0));
}

std::string Peer::read(std::size_t length)
{
    std::string bytes(length, '\0');
    for (std::size_t done = 0; done < length;)
    {
        const int count = m_socket.receiveBytes(bytes.data() + done, static_cast<int>(length - done));
        if (count <= 0)
            throw Poco::IOException("the client closed");
        done += static_cast<std::size_t>(count);
    }
    return bytes;
}

std::string Peer::readHead()
{
    std::string head;
    while (head.find("\r\n\r\n") == std::string::npos)
        head += read(1);
    return head;
}

void Peer::upgrade(const std::string& behind)
{
    const std::string mark = "Sec-WebSocket-Key: ";
    const std::string head = readHead();
    const std::size_t start = head.find(mark) + mark.size();
    const std::string key = head.substr(start, head.find("\r\n", start) - start);
    send("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
         acceptFor(key) + "\r\n\r\n" + behind);
}

Peer::Frame Peer::readFrame()
{
    const std::string start = read(2);
    std::size_t length = start[1] & 0x7F;
    const int lengthBytes = length == 126 ? 2 : length == 127 ? 8 : 0;
    if (lengthBytes > 0)
        length = 0;
    for (const char c: read(static_cast<std::size_t>(lengthBytes)))
        length = length * 256 + static_cast<unsigned char>(c);
    const bool isMasked = (start[1] & 0x80) != 0;
    const std::string mask = isMasked ? read(4) : std::string(4, '\0');
    std::string payload = read(length);
    for (std::size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<char>(payload[i] ^ mask[i % 4]);
    return {start[0] & 0x0F, isMasked, payload};
}

void Peer::send(const std::string& bytes)
{
    for (std::size_t done = 0; done < bytes.size();)
        done +=
            static_cast<std::size_t>(m_socket.sendBytes(bytes.data() + done, static_cast<int>(bytes.size() - done)));
}

void Peer::readToEnd()
{
    char buffer[4096];
    while (m_socket.receiveBytes(buffer, sizeof buffer) > 0)
    {
    }
}

void Peer::awaitClose()
{
    while (readFrame().opcode != 8)
    {
    }
    send(closeFrame(1000));
}

void Peer::reset()
{
    m_socket.setLinger(true, 0);
    m_socket.close();
}

std::string Peer::frame(int opcode, const std::string& payload, bool isFinal)
{
    std::string bytes(1, static_cast<char>((isFinal ? 0x80 : 0) | opcode));
    const int lengthBytes = payload.size() < 126 ? 0 : payload.size() < 65536 ? 2 : 8;
    bytes += static_cast<char>(lengthBytes == 0 ? payload.size() : lengthBytes == 2 ? 126 : 127);
    for (int i = lengthBytes - 1; i >= 0; --i)
        bytes += static_cast<char>(payload.size() >> (8 * i));
    return bytes + payload;
}

std::string Peer::closeFrame(unsigned code, const std::string& text)
{
    return frame(8, std::string{static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)} + text);
}

TestServer::TestServer(const std::vector<Script>& scripts)
    : m_scripts(scripts), m_listener(Poco::Net::SocketAddress("127.0.0.1", 0))
{
    m_thread.startFunc([this] { run(); });
}

TestServer::~TestServer()
{
    m_thread.join();
}

std::string TestServer::url(const std::string& path) const
{
    return m_listener.address().toString() + path;
}

void TestServer::run()
{
    for (const Script& script: m_scripts)
    {
        if (!m_listener.poll(Poco::Timespan(10, 0), Poco::Net::Socket::SELECT_READ))
            return;
        Peer peer(m_listener.acceptConnection());
        try
        {
            script(peer);
        }
        catch (const Poco::Exception&)
        {
            // The client went; what the test expects of it, the test sees at the client.
        }
    }
}

} // namespace Kesa::Client
