#pragma once

#include "Export.h"

#include <Mutex.h>

#include <Poco/Clock.h>
#include <Poco/Event.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

struct epoll_event;

namespace Kesa::Net
{

class Connection;
class ConnectionQueue;

/// The I/O thread's loop: polls all connections, reads and sends for them, keeps their deadlines, and closes them.
///
/// Ownership: shares each connection until it is closed; borrows the two queues for its own lifetime.
/// Threads:   run() on the I/O thread; the rest from any thread.
/// Locks:     m_mutex is taken alone, never together with a connection's.
/// Shutdown:  1. refuse(); 2. close the connections and waitUntilEmpty(), if their peers are to notice; 3. quit();
///            4. join the thread.
class KESA_API IoLoop
{
public:
    typedef std::shared_ptr<Connection> Entry;

    /// `ready` gets connections with messages, `ended` those that are over. Raises Poco::SystemException when the
    /// system has no descriptors left.
    IoLoop(ConnectionQueue& ready, ConnectionQueue& ended);
    ~IoLoop();
    IoLoop(const IoLoop&) = delete;
    IoLoop& operator=(const IoLoop&) = delete;

    /// Serves the connection; false, and nothing is done, after refuse().
    bool add(const Entry& connection);

    /// Has the loop look at this connection.
    void post(const Entry& connection);

    /// Takes no more connections from now on.
    void refuse();

    /// Waits so long for the last connection to be closed. Only after refuse().
    bool waitUntilEmpty(long milliseconds);

    /// Those that are not closed.
    std::vector<Entry> connections() const;

    /// How many of them have not ended.
    std::size_t openCount() const { return m_open; }

    /// Serves until quit(), then closes what is still open.
    void run();

    /// Ends run() soon.
    void quit();

private:
    typedef std::pair<Poco::Clock::ClockVal, Connection*> Deadline;

    void turn();
    void wait(std::vector<epoll_event>& events);
    void dispatch(const epoll_event& event, const Poco::Clock& now);
    void lookAtPosted(const Poco::Clock& now);
    void lookAtOverdue(const Poco::Clock& now);
    void settle(Connection& connection, const Poco::Clock& now);
    void schedule(Connection& connection, const Poco::Clock& deadline);
    void forget(Connection& connection);
    void closeAll();
    void wake();

    // Fixed after construction.
    ConnectionQueue& m_ready;
    ConnectionQueue& m_ended;
    int m_epoll;
    int m_wakeUp; // an eventfd

    // The I/O thread's own.
    std::set<Deadline> m_deadlines;                                       // one for each started connection
    std::unordered_map<Connection*, Poco::Clock::ClockVal> m_scheduledAt; // and where it stands among them
    std::vector<Entry> m_gone; // closed in this turn: kept until its end, since events may still point at them
    std::vector<char> m_buffer;

    std::atomic<bool> m_isQuitting{false}; // only tells the loop to end; no data goes with it
    std::atomic<std::size_t> m_open{0};    // a figure on its own
    Poco::Event m_isEmpty{Poco::Event::EVENT_MANUALRESET};

    mutable Kesa::Util::FastMutex m_mutex;
    std::unordered_set<Entry> m_connections KESA_GUARDED_BY(m_mutex);
    std::vector<Entry> m_posted KESA_GUARDED_BY(m_mutex); // to look at in the next turn
    bool m_isRefusing KESA_GUARDED_BY(m_mutex) = false;
};

} // namespace Kesa::Net
