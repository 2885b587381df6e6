#include "WebsocketClient.h"

#include "ClientHandshake.h"
#include "RandomBytes.h"

#include <Poco/Clock.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Timespan.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <wslay/wslay.h>

namespace Kesa::Client
{
namespace
{

/// Milliseconds left of `timeoutMs` since `start`, never negative.
int remaining(const Poco::Clock& start, int timeoutMs)
{
    const auto elapsed = start.elapsed() / 1000;
    return elapsed >= timeoutMs ? 0 : static_cast<int>(timeoutMs - elapsed);
}

/// A server that vanished without a word is noticed after 40 seconds: the kernel asks, no frame is needed.
void enableKeepAlive(Poco::Net::StreamSocket& socket)
{
    socket.setKeepAlive(true);
    socket.setOption(IPPROTO_TCP, TCP_KEEPIDLE, 20);
    socket.setOption(IPPROTO_TCP, TCP_KEEPINTVL, 5);
    socket.setOption(IPPROTO_TCP, TCP_KEEPCNT, 4);
}

std::string describeOwnClose(unsigned code)
{
    const std::string text = "closed with code " + std::to_string(code);
    switch (code)
    {
    case WSLAY_CODE_PROTOCOL_ERROR:
        return text + ": the service broke the websocket protocol";
    case WSLAY_CODE_INVALID_FRAME_PAYLOAD_DATA:
        return text + ": the service sent text that is no UTF-8";
    case WSLAY_CODE_MESSAGE_TOO_BIG:
        return text + ": the service sent a message of more than " + std::to_string(WebsocketClient::MAX_MESSAGE) +
               " bytes";
    default:
        return text;
    }
}

} // namespace

/// What wslay calls. The user data is the client.
struct WebsocketClient::Callbacks
{
    static WebsocketClient& client(void* userData) { return *static_cast<WebsocketClient*>(userData); }

    static ssize_t read(wslay_event_context_ptr context, uint8_t* buffer, size_t length, int, void* userData)
    {
        const long count = client(userData).readSome(buffer, length);
        if (count > 0)
            return count;
        wslay_event_set_error(context, count == 0 ? WSLAY_ERR_WOULDBLOCK : WSLAY_ERR_CALLBACK_FAILURE);
        return -1;
    }

    static ssize_t write(wslay_event_context_ptr context, const uint8_t* data, size_t length, int, void* userData)
    {
        const ssize_t count = ::send(client(userData).descriptor(), data, length, MSG_NOSIGNAL);
        if (count >= 0)
            return count;
        const bool later = errno == EAGAIN || errno == EINTR;
        if (!later)
            client(userData).m_breakOff = std::string("with an error: ") + std::strerror(errno);
        wslay_event_set_error(context, later ? WSLAY_ERR_WOULDBLOCK : WSLAY_ERR_CALLBACK_FAILURE);
        return -1;
    }

    static int mask(wslay_event_context_ptr context, uint8_t* buffer, size_t length, void* userData)
    {
        try
        {
            fillRandom(buffer, length);
            return 0;
        }
        catch (const Poco::Exception& error) // must not cross the frames of a C library
        {
            client(userData).m_breakOff = "with an error: " + error.displayText();
            wslay_event_set_error(context, WSLAY_ERR_CALLBACK_FAILURE);
            return -1;
        }
    }

    static void message(wslay_event_context_ptr, const wslay_event_on_msg_recv_arg* message, void* userData)
    {
        client(userData).onMessage(*message);
    }
};

WebsocketClient::WebsocketClient(const ServiceUrl& url, const std::string& path, int timeoutMs)
    : m_context(nullptr, wslay_event_context_free)
{
    connect(url, timeoutMs);
    upgrade(url.authority(), path, timeoutMs);
    createContext();
    process();
}

WebsocketClient::~WebsocketClient() = default;

void WebsocketClient::connect(const ServiceUrl& url, int timeoutMs)
{
    m_socket.connect(Poco::Net::SocketAddress(url.host(), url.port()), Poco::Timespan(0, timeoutMs * 1000L));
    m_socket.setNoDelay(true);
    enableKeepAlive(m_socket);
}

void WebsocketClient::upgrade(const std::string& authority, const std::string& path, int timeoutMs)
{
    ClientHandshake handshake(authority, path);
    const std::string request = handshake.request();
    m_socket.sendBytes(request.data(), static_cast<int>(request.size()));

    const Poco::Clock start;
    char buffer[4096];
    int count = 0;
    do
    {
        if (!m_socket.poll(Poco::Timespan(0, remaining(start, timeoutMs) * 1000L), Poco::Net::Socket::SELECT_READ))
            throw Poco::TimeoutException("the server did not answer the upgrade to a websocket within " +
                                         std::to_string(timeoutMs) + " ms");
        count = m_socket.receiveBytes(buffer, sizeof buffer);
        if (count <= 0)
            throw Poco::Net::WebSocketException("the server closed the connection instead of upgrading it");
    } while (!handshake.feed(buffer, static_cast<std::size_t>(count)));
    m_leftover = handshake.rest();
    m_socket.setBlocking(false);
}

void WebsocketClient::createContext()
{
    wslay_event_callbacks callbacks{};
    callbacks.recv_callback = &Callbacks::read;
    callbacks.send_callback = &Callbacks::write;
    callbacks.genmask_callback = &Callbacks::mask;
    callbacks.on_msg_recv_callback = &Callbacks::message;
    wslay_event_context_ptr context = nullptr;
    if (wslay_event_context_client_init(&context, &callbacks, this) != 0)
        throw Poco::OutOfMemoryException("no memory for a websocket");
    m_context.reset(context);
    wslay_event_config_set_max_recv_msg_length(context, MAX_MESSAGE);
}

int WebsocketClient::descriptor() const
{
    return m_socket.impl()->sockfd();
}

bool WebsocketClient::wantsWrite() const
{
    return m_open && wslay_event_want_write(m_context.get()) != 0;
}

void WebsocketClient::send(const std::string& text)
{
    const wslay_event_msg message{WSLAY_TEXT_FRAME, reinterpret_cast<const uint8_t*>(text.data()), text.size()};
    if (m_open && wslay_event_queue_msg(m_context.get(), &message) == 0 && wslay_event_send(m_context.get()) != 0)
        process(); // reads what the server may have said before it went
}

bool WebsocketClient::process()
{
    if (!m_open)
        return false;
    wslay_event_context* context = m_context.get();
    const bool readFailed = wslay_event_want_read(context) && wslay_event_recv(context) != 0;
    const bool writeFailed = !readFailed && wslay_event_want_write(context) && wslay_event_send(context) != 0;
    const bool handshakeDone = !wslay_event_want_read(context) && !wslay_event_want_write(context);
    if (readFailed || writeFailed || handshakeDone)
        end(describeEnd());
    else if (wslay_event_get_queued_msg_length(context) > MAX_UNSENT)
        end("the server no longer reads what it is sent");
    return m_open;
}

std::optional<std::string> WebsocketClient::takeMessage()
{
    if (m_messages.empty())
        return std::nullopt;
    std::string message = std::move(m_messages.front());
    m_messages.pop_front();
    m_waitingBytes -= message.size();
    return message;
}

std::optional<std::string> WebsocketClient::receive(int timeoutMs)
{
    const Poco::Clock start;
    while (m_messages.empty() && m_open && waitReady(remaining(start, timeoutMs)))
        process();
    return takeMessage();
}

void WebsocketClient::close(unsigned short code)
{
    if (m_open && wslay_event_queue_close(m_context.get(), code, nullptr, 0) == 0)
        process();
}

void WebsocketClient::finish(int timeoutMs)
{
    const Poco::Clock start;
    while (m_open && waitReady(remaining(start, timeoutMs)))
    {
        process();
        m_messages.clear();
        m_waitingBytes = 0;
    }
}

bool WebsocketClient::waitReady(int timeoutMs)
{
    pollfd ready{descriptor(), static_cast<short>(wantsWrite() ? POLLIN | POLLOUT : POLLIN), 0};
    return ::poll(&ready, 1, timeoutMs) > 0;
}

void WebsocketClient::end(const std::string& reason)
{
    m_open = false;
    m_endReason = reason;
    m_socket.close();
}

std::string WebsocketClient::describeEnd() const
{
    if (m_closeCode != 0)
        return "the service closed the connection with code " + std::to_string(m_closeCode) +
               (m_closeText.empty() ? "" : " (" + m_closeText + ")");
    if (!m_breakOff.empty())
        return "the connection broke off " + m_breakOff;
    return describeOwnClose(wslay_event_get_status_code_sent(m_context.get()));
}

void WebsocketClient::onMessage(const wslay_event_on_msg_recv_arg& message)
{
    const char* text = reinterpret_cast<const char*>(message.msg);
    if (message.opcode == WSLAY_CONNECTION_CLOSE)
    {
        m_closeCode = message.status_code;
        if (m_closeCode == 0)
            m_closeCode = WSLAY_CODE_NO_STATUS_RCVD;
        if (message.msg_length > 2) // the code stands in front of the text
            m_closeText.assign(text + 2, message.msg_length - 2);
    }
    else if (!wslay_is_ctrl_frame(message.opcode))
    {
        m_messages.emplace_back(text, message.msg_length);
        m_waitingBytes += message.msg_length;
    }
}

/// More than 0: bytes read. 0: nothing for now. Less: the connection is gone.
long WebsocketClient::readSome(unsigned char* buffer, std::size_t length)
{
    if (m_waitingBytes > MAX_WAITING)
        return 0;
    if (!m_leftover.empty())
    {
        const std::size_t count = std::min(length, m_leftover.size());
        std::memcpy(buffer, m_leftover.data(), count);
        m_leftover.erase(0, count);
        return static_cast<long>(count);
    }
    const ssize_t count = ::recv(descriptor(), buffer, length, 0);
    if (count > 0)
        return count;
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return 0;
    m_breakOff = count == 0 ? "without a close frame" : std::string("with an error: ") + std::strerror(errno);
    return -1;
}

} // namespace Kesa::Client
