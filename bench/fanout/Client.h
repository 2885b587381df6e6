#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Fanout
{

constexpr std::size_t CONNECTIONS = 1000; ///< as many as one service may have subscriptions
constexpr std::size_t ROUNDS = 100;       ///< changes in one run
constexpr std::size_t MAX_FRAME = 1024;

/// What the server's and the client's process share.
struct Shared
{
    std::atomic<std::int64_t> changedAt; ///< nanoseconds of the monotonic clock: when the present round began
    std::atomic<std::size_t> latencies;  ///< how many of `nanoseconds` are set in this run
    std::array<std::int64_t, CONNECTIONS * ROUNDS> nanoseconds; ///< from the change to the received frame
    std::atomic<std::size_t> frameLength; ///< of the last frame that came from the service on its first connection
    std::array<char, MAX_FRAME> frame;    ///< that frame as it went over the wire, for the bare loop
};

/// Nanoseconds of the monotonic clock, which all processes of a machine share.
std::int64_t monotonicNanoseconds();

/// What travels over the control pipes: the client says DONE when every connection has what it waits for.
enum class Command : char
{
    SERVICE = 's', ///< count one frame on each connection to the service
    BARE = 'b',    ///< count one frame on each connection to the bare loop
    DONE = 'd'
};

/// Runs in a process of its own: opens all connections, subscribes, then counts frames as it is told, until `commands`
/// ends.
///
/// Errors: std::runtime_error with what went wrong.
class Client
{
public:
    /// Connects to both ports of the loopback address and subscribes to `url` on each connection of the first.
    Client(Shared& shared, std::uint16_t servicePort, std::uint16_t barePort, const char* url);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Obeys the commands of one pipe and answers on the other; both are descriptors.
    void run(int commands, int answers);

private:
    /// One connection and the bytes of the frame that has not arrived in whole.
    struct Connection
    {
        int socket = -1;
        std::size_t length = 0;
        std::array<char, MAX_FRAME> bytes{};
    };
    typedef std::vector<Connection> Connections;

    void open(Connection& connection, std::size_t index, int poller, std::uint16_t port);
    void subscribe(Connection& connection, const char* url);
    void readRound(Connections& connections, int poller, bool fromService);
    std::size_t receive(Connection& connection, bool fromService);
    void keepFrame(const Connection& connection, std::size_t length);

    Shared& m_shared;
    Connections m_service{CONNECTIONS};
    Connections m_bare{CONNECTIONS};
    int m_servicePoller = -1;
    int m_barePoller = -1;
};

} // namespace Fanout
