#pragma once

#include "ServiceUrl.h"

#include <Poco/Net/StreamSocket.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>

struct wslay_event_context;
struct wslay_event_on_msg_recv_arg;

namespace Kesa::Client
{

/// One websocket connection as a client. Never blocks after construction, except in receive() and finish(), which wait
/// at most as long as they are told.
///
/// Use: poll descriptor() for reading, and for writing while wantsWrite(); call process() when it is ready; take the
/// messages with takeMessage(). Pings are answered, fragments joined, UTF-8 and framing checked.
/// Ownership: owns its socket.
/// Threads:   one at a time.
/// Errors:    the constructor raises a Poco::Exception that says why there is no connection; afterwards an end of the
///            connection, whatever its cause, shows as isOpen() false and in endReason().
class WebsocketClient
{
public:
    /// Largest message over all its fragments, in bytes; a longer one ends the connection with 1009.
    static constexpr std::size_t MAX_MESSAGE = 16 * 1024 * 1024;
    /// Bytes of messages not taken yet past which nothing more is read.
    static constexpr std::size_t MAX_WAITING = 4 * 1024 * 1024;
    /// Bytes not yet accepted by the socket past which the connection is given up: the server no longer reads.
    static constexpr std::size_t MAX_UNSENT = 4 * 1024 * 1024;

    /// Connects to the server of `url` and upgrades on `path`, each in at most `timeoutMs` milliseconds.
    explicit WebsocketClient(const ServiceUrl& url, const std::string& path = "/", int timeoutMs = 5000);
    /// Closes the socket as it is. For an orderly end call close() and finish() first.
    ~WebsocketClient();
    WebsocketClient(const WebsocketClient&) = delete;
    WebsocketClient& operator=(const WebsocketClient&) = delete;

    int descriptor() const;
    /// True while something waits to be sent.
    bool wantsWrite() const;
    bool isOpen() const { return m_open; }
    /// Why the connection ended, for a user to read; empty while it is open.
    const std::string& endReason() const { return m_endReason; }
    /// The code that the server sent in its close frame: 1005 for one without a code, 0 as long as there was none.
    unsigned closeCode() const { return m_closeCode; }

    /// Queues a text message and sends what the socket takes at once. Ignored after close() or the end.
    void send(const std::string& text);
    /// Reads and sends what the socket allows now. Returns isOpen().
    bool process();
    /// The oldest message that was not taken yet; also after the end of the connection.
    std::optional<std::string> takeMessage();
    /// Waits at most `timeoutMs` milliseconds for a message. Empty when none came in time or the connection ended.
    std::optional<std::string> receive(int timeoutMs);

    /// Queues a close frame with `code`; the connection stays open until the server has answered.
    void close(unsigned short code = 1000);
    /// Waits at most `timeoutMs` milliseconds for the end of the connection, dropping what still arrives.
    void finish(int timeoutMs);

private:
    struct Callbacks;
    friend struct Callbacks;

    void connect(const ServiceUrl& url, int timeoutMs);
    void upgrade(const std::string& authority, const std::string& path, int timeoutMs);
    void createContext();
    bool waitReady(int timeoutMs);
    void end(const std::string& reason);
    std::string describeEnd() const;
    void onMessage(const wslay_event_on_msg_recv_arg& message);
    long readSome(unsigned char* buffer, std::size_t length);

    Poco::Net::StreamSocket m_socket;
    std::unique_ptr<wslay_event_context, void (*)(wslay_event_context*)> m_context;
    std::string m_leftover; ///< bytes behind the head of the handshake, not yet given to the context
    std::deque<std::string> m_messages;
    std::size_t m_waitingBytes = 0;
    bool m_open = true;
    unsigned m_closeCode = 0;
    std::string m_closeText;
    std::string m_breakOff; ///< how the connection ended without a closing handshake
    std::string m_endReason;
};

} // namespace Kesa::Client
