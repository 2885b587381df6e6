#pragma once

#include "DoorConnection.h"
#include "Export.h"
#include "FrontDoor.h"
#include "Listener.h"
#include "Mutex.h"

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

struct epoll_event;

namespace Kesa::Host
{

class ConnectionCaps;

/// The one thread of a front door that accepts connections, holds them until a request is whole, sends what is left of
/// answers and keeps the deadlines. It runs no handler and never waits for a single client.
///
/// A connection is in exactly one place: in the loop's map, on its way to the pool, with a pool thread, or on its way
/// back.
///
/// Ownership: owns the connections in its map; borrows the listener and the caps until it is destroyed.
/// Threads:   run() on a thread of its own; giveBack() and stop() from any thread.
/// Shutdown:  stop() makes run() return, at the latest FrontDoor::STOP_GRACE later.
class KESA_API DoorLoop
{
public:
    typedef std::unique_ptr<DoorConnection> Connection;
    typedef std::function<void(Connection)> Dispatch;

    /// `dispatch` takes a connection whose request is whole; it must not wait.
    DoorLoop(Listener& listener, ConnectionCaps& caps, std::shared_ptr<DoorSocket::Shared> shared,
             const FrontDoor::Options& options, Dispatch dispatch);
    ~DoorLoop();
    DoorLoop(const DoorLoop&) = delete;
    DoorLoop& operator=(const DoorLoop&) = delete;

    void run();
    /// Returns a connection whose request has been answered.
    void giveBack(Connection connection);
    /// Says that a connection will not come back.
    void forget();
    void stop();

private:
    void handle(const epoll_event& event);
    template <class Action>
    void guarded(std::uint64_t id, Action action);
    void acceptSome();
    void admit(int descriptor, const std::string& address);
    void enableListener(bool on);
    void warnOfExhaustion();

    void onEvent(DoorConnection& connection, unsigned events);
    void read(DoorConnection& connection, bool peerIsDone);
    bool skipEmptyLines(DoorConnection& connection, std::size_t received);
    void onReceived(DoorConnection& connection, std::size_t received, bool peerIsDone);
    void onHead(DoorConnection& connection, bool peerIsDone);
    void dispatch(DoorConnection& connection);
    void refuse(DoorConnection& connection, int status, const std::string& message);
    void write(DoorConnection& connection);
    void nextRequest(DoorConnection& connection);
    void linger(DoorConnection& connection);
    void discard(DoorConnection& connection);
    void drop(DoorConnection& connection);

    void takeReturned();
    void watch(DoorConnection& connection, unsigned events);
    void onTick();
    void onDeadline(DoorConnection& connection);
    void beginStop();
    bool isDone();
    int timeout() const;

    Listener& m_listener;
    ConnectionCaps& m_caps;
    const std::shared_ptr<DoorSocket::Shared> m_shared;
    const FrontDoor::Options m_options;
    const Dispatch m_dispatch;
    const int m_epoll;
    const int m_wake; ///< an eventfd

    // The loop's own, touched by its thread alone.
    std::unordered_map<std::uint64_t, Connection> m_connections;
    std::array<char, RequestHeadParser::MAX_HEAD> m_buffer;
    std::uint64_t m_lastId = 1; ///< 0 and 1 stand for the listener and the wake-up
    bool m_isListening = false;
    bool m_isStopping = false;
    Poco::Clock m_nextTick{0};
    Poco::Clock m_stopEnd{0};
    Poco::Clock m_nextWarning{0};

    std::atomic<std::size_t> m_away{0};       ///< connections that are with the pool; atomic: both sides count
    std::atomic<bool> m_stopRequested{false}; ///< atomic: set by the stopping thread
    Kesa::Util::FastMutex m_mutex;
    std::vector<Connection> m_returned KESA_GUARDED_BY(m_mutex);
};

} // namespace Kesa::Host
