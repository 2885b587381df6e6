#include "ConnectionServer.h"

#include "Connection.h"
#include "ConnectionRegistry.h"
#include "LimitsAndTimes.h"
#include "Websocket/WebSocketProxy.h"
#include "Websocket/WebsocketConnectionManager.h"

#include <DebugUtils.h>
#include <LibraryThread.h>
#include <LogStream.h>

#include <Poco/Exception.h>

#include <algorithm>
#include <system_error>
#include <vector>

namespace Kesa::Net
{

using Kesa::Util::ScopedLock;

namespace
{

const char GOING_AWAY[] = "the service goes away";

/// Runs the work of one of the library's threads under its name.
template <class Work>
void runAs(const char* shortName, const char* longName, Work work)
{
    const Kesa::Util::LibraryThread mark;
    DebugUtils::setThreadName(shortName, longName);
    work();
}

/// Runs a handler of the application and logs what it raises. True when it raised nothing.
template <class Handler>
bool runGuarded(const Connection& connection, const char* event, Handler handler)
{
    std::string error = "unknown exception";
    try
    {
        handler();
        return true;
    }
    catch (const Poco::Exception& exception)
    {
        error = exception.displayText();
    }
    catch (const std::exception& exception)
    {
        error = exception.what();
    }
    catch (...)
    {
    }
    if (connection.hasEnded()) // most likely it could not answer any more, which is no fault of anybody here
        KESA_LOG_DEBUG("A handler of " << event << " failed for the ended connection of "
                                       << connection.peerAddress().toString() << ": " << error);
    else
        KESA_LOG_ERROR("A handler of " << event << " failed for the connection of "
                                       << connection.peerAddress().toString() << ": " << error);
    return false;
}

} // namespace

ConnectionServer::ConnectionServer(WebsocketConnectionManager& manager)
    : m_manager(manager), m_loop(std::make_shared<IoLoop>(m_ready, m_ended))
{
}

void ConnectionServer::start()
{
    const auto self = shared_from_this();
    try
    {
        const ScopedLock lock(m_threadsMutex);
        m_ioThread = std::thread([self] { runAs("ws-io", "websocket I/O", [&] { self->m_loop->run(); }); });
        m_messageThread =
            std::thread([self] { runAs("ws-message", "websocket messages", [&] { self->runMessages(); }); });
        m_closeThread = std::thread([self] { runAs("ws-close", "websocket closes", [&] { self->runCloses(); }); });
    }
    catch (const std::system_error& error)
    {
        stop();
        throw Poco::SystemException("Cannot start the threads of the websocket connections", error.what());
    }
}

void ConnectionServer::addConnection(const Socket& webSocket)
{
    if (webSocket.isNull())
        throw Poco::NullPointerException("A null websocket cannot be served");
    if (webSocket->impl()->sockfd() == POCO_INVALID_SOCKET)
    {
        KESA_LOG_DEBUG("A websocket that is closed already is not served");
        return;
    }
    if (webSocket->secure() || webSocket->mode() != Poco::Net::WebSocket::WS_SERVER)
        throw Poco::InvalidArgumentException(
            "Only the server's end of a websocket without TLS can be served; let TLS end "
            "in front of the service");
    const auto connection = std::make_shared<Connection>(webSocket, m_loop);
    ConnectionRegistry::instance().add(connection);
    if (!m_loop->add(connection))
        connection->refuse(CLOSE_GOING_AWAY, GOING_AWAY);
}

void ConnectionServer::drain(Poco::Timespan deadline)
{
    m_loop->refuse();
    const std::vector<IoLoop::Entry> all = m_loop->connections();
    const auto pauses =
        static_cast<std::size_t>(std::max<Poco::Timespan::TimeDiff>(deadline.totalMilliseconds() / DRAIN_PAUSE_MS, 0));
    const std::size_t slices = std::max<std::size_t>(pauses / 2, 1); // the second half is left for the answers
    const std::size_t slice = std::max(DRAIN_SLICE, (all.size() + slices - 1) / slices);
    auto next = all.begin();
    for (std::size_t pause = 0; pause <= pauses; ++pause)
    {
        for (std::size_t i = 0; i < slice && next != all.end(); ++i, ++next)
            (*next)->close(CLOSE_GOING_AWAY, GOING_AWAY);
        if (pause == pauses || m_loop->waitUntilEmpty(DRAIN_PAUSE_MS))
            return;
    }
}

void ConnectionServer::stop()
{
    const ScopedLock lock(m_threadsMutex);
    m_loop->refuse();
    for (const IoLoop::Entry& connection: m_loop->connections())
        connection->close(CLOSE_GOING_AWAY, GOING_AWAY);
    if (m_ioThread.joinable())
        m_loop->waitUntilEmpty(STOP_LINGER_MS);
    m_loop->quit();
    join(m_ioThread);
    m_ready.finish(); // each thread hands on to the next, so they end in this order
    join(m_messageThread);
    m_ended.finish();
    join(m_closeThread);
}

void ConnectionServer::abandon()
{
    stop();
    m_isAbandoned = true;
}

void ConnectionServer::join(std::thread& thread)
{
    if (!thread.joinable())
        return;
    if (thread.get_id() == std::this_thread::get_id())
        thread.detach(); // ends when the handler that it is in has returned
    else
        thread.join();
}

void ConnectionServer::runMessages()
{
    while (const std::shared_ptr<Connection> connection = m_ready.pop())
        handleMessages(connection);
}

void ConnectionServer::handleMessages(const std::shared_ptr<Connection>& connection)
{
    std::string text;
    const bool isHandled =
        !connection->takeMessage(text) || m_isAbandoned ||
        runGuarded(*connection, "DataReceived", [&] { fireDataReceived(connection, std::move(text)); });
    if (!isHandled)
        connection->close(CLOSE_INTERNAL_ERROR, "internal error");
    const Connection::Done done = connection->messageDone();
    if (done.hasMessages)
        m_ready.push(connection);
    if (done.isOver)
        m_ended.push(connection);
}

void ConnectionServer::fireDataReceived(const std::shared_ptr<Connection>& connection, std::string&& text)
{
    WebSocketProxy proxy(connection->socket(), &m_manager, connection);
    WebsocketDataEventPayload payload(proxy);
    payload.data = std::move(text);
    payload.flags = Poco::Net::WebSocket::FRAME_TEXT;
    m_manager.DataReceived.notify(&m_manager, payload);
}

void ConnectionServer::runCloses()
{
    while (const std::shared_ptr<Connection> connection = m_ended.pop())
    {
        KESA_LOG_DEBUG("The websocket connection of " << connection->peerAddress().toString()
                                                      << " has ended: " << connection->reason());
        if (!m_isAbandoned)
            runGuarded(*connection, "ConnectionClosed", [&] { fireConnectionClosed(connection); });
    }
}

void ConnectionServer::fireConnectionClosed(const std::shared_ptr<Connection>& connection)
{
    WebSocketProxy proxy(connection->socket(), &m_manager, connection);
    const WebsocketEventPayload payload(proxy, connection->reason());
    m_manager.ConnectionClosed.notify(&m_manager, payload);
}

} // namespace Kesa::Net
