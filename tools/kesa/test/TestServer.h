#pragma once

#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Thread.h>

#include <functional>
#include <string>
#include <vector>

namespace Kesa::Client
{

/// The server's end of one connection, byte by byte in the hands of a test's script. Every wait ends after 10 s with an
/// exception.
class Peer
{
public:
    struct Frame
    {
        int opcode;
        bool isMasked;
        std::string payload;
    };

    explicit Peer(const Poco::Net::StreamSocket& socket);

    /// Reads the head of a request.
    std::string readHead();
    /// Reads the head of a websocket's request and accepts it; `behind` goes out in the same bytes.
    void upgrade(const std::string& behind = "");
    Frame readFrame();
    void send(const std::string& bytes);
    void sendText(const std::string& text) { send(frame(1, text)); }
    /// Reads until the client has closed.
    void readToEnd();
    /// Reads frames until the client's close frame and answers it.
    void awaitClose();
    /// Ends the connection with a reset.
    void reset();

    /// A frame as a server sends it.
    static std::string frame(int opcode, const std::string& payload, bool isFinal = true);
    static std::string closeFrame(unsigned code, const std::string& text = "");

private:
    std::string read(std::size_t length);

    Poco::Net::StreamSocket m_socket;
};

/// A server on a port that the kernel chose. Runs one script for each connection, one after the other, on a thread of
/// its own; what a script raises, because the client went for one, ends that script.
class TestServer
{
public:
    typedef std::function<void(Peer&)> Script;

    explicit TestServer(const std::vector<Script>& scripts);
    explicit TestServer(const Script& script): TestServer(std::vector<Script>{script}) {}
    /// Waits for the scripts.
    ~TestServer();

    /// "127.0.0.1:port" + `path`.
    std::string url(const std::string& path = "/") const;

private:
    void run();

    std::vector<Script> m_scripts;
    Poco::Net::ServerSocket m_listener;
    Poco::Thread m_thread;
};

} // namespace Kesa::Client
