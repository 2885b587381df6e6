#pragma once

#include "ConnectionQueue.h"
#include "IoLoop.h"

#include <Mutex.h>

#include <Poco/Net/WebSocket.h>
#include <Poco/SharedPtr.h>
#include <Poco/Timespan.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <thread>

namespace Kesa::Net
{

class Connection;
class WebsocketConnectionManager;

/// The threads behind a WebsocketConnectionManager, and what they work on.
///
///     I/O thread       polls, reads, sends, closes; runs no handler
///     message thread   fires DataReceived, one message of each connection in turn
///     close thread     fires ConnectionClosed for connections whose last message was handled
///
/// Ownership: shared by the manager and by each thread, so that a thread that nobody can wait for still has it to the
/// end.
///            Borrows the manager until stop() or abandon() returns.
/// Threads:   every public operation from any thread, but for stop().
class KESA_API ConnectionServer: public std::enable_shared_from_this<ConnectionServer>
{
public:
    typedef Poco::SharedPtr<Poco::Net::WebSocket> Socket;

    explicit ConnectionServer(WebsocketConnectionManager& manager);

    /// Starts the threads. Raises Poco::SystemException, with none of them running, when the system has none left.
    void start();

    void addConnection(const Socket& webSocket);
    void drain(Poco::Timespan deadline);
    std::size_t connectionCount() const { return m_loop->openCount(); }

    /// Closes everything and joins the threads. Not on one of them.
    void stop();

    /// As stop(), on any thread: should it be one of the three, that one is left to end by itself.
    void abandon();

private:
    void runMessages();
    void runCloses();
    void handleMessages(const std::shared_ptr<Connection>& connection);
    void fireDataReceived(const std::shared_ptr<Connection>& connection, std::string&& text);
    void fireConnectionClosed(const std::shared_ptr<Connection>& connection);
    void join(std::thread& thread);

    WebsocketConnectionManager& m_manager;
    ConnectionQueue m_ready; // to the message thread
    ConnectionQueue m_ended; // to the close thread
    const std::shared_ptr<IoLoop> m_loop;
    std::atomic<bool> m_isAbandoned{false}; // the manager has gone: a thread that is still there fires nothing more

    Kesa::Util::FastMutex m_threadsMutex; // held while the threads are joined; taken before all others
    std::thread m_ioThread KESA_GUARDED_BY(m_threadsMutex);
    std::thread m_messageThread KESA_GUARDED_BY(m_threadsMutex);
    std::thread m_closeThread KESA_GUARDED_BY(m_threadsMutex);
};

} // namespace Kesa::Net
