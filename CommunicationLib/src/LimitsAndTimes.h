#pragma once

#include <Poco/Clock.h>

#include <cstddef>

/// The connection layer's fixed values, each with its reason.
namespace Kesa::Net
{

constexpr Poco::Clock::ClockDiff seconds(long value)
{
    return value * Poco::Clock::ClockDiff(1000000);
}

/// Largest message, over all its fragments. Requests are a few hundred bytes; this leaves room for any of them and
/// bounds what one peer can make us hold.
constexpr std::size_t MAX_MESSAGE = 1024 * 1024;

/// What may wait for one peer. A message into an empty queue is taken whatever its size.
constexpr std::size_t MAX_WAITING = 4 * 1024 * 1024;

/// What a waiting frame costs beside its bytes, so that very many tiny frames stay within the bound too.
constexpr std::size_t FRAME_COST = 64;

/// While more than this waits for a peer its messages are not read: who does not read answers gets no new ones.
constexpr std::size_t STOP_READING_ABOVE = 64 * 1024;

/// While messages of this cost wait for their handler, no more are read. Handlers take one message at a time, so more
/// would only cost memory.
constexpr std::size_t MAX_INBOX = 64 * 1024;

/// What a waiting message costs beside its bytes.
constexpr std::size_t MESSAGE_COST = 64;

/// Read for one connection before the loop turns to the next: big enough for almost every message, and a thousand busy
/// connections are still served in well under 100 ms.
constexpr std::size_t READ_PER_TURN = 16 * 1024;

/// Written for one connection before the loop turns to the next.
constexpr std::size_t WRITE_PER_TURN = 256 * 1024;

/// Frames up to this size are copied beside their header and sent with a plain send(), which is cheaper than two
/// buffers.
constexpr std::size_t SMALL_FRAME = 4096;

/// Unsent bytes that the kernel may hold for one peer: enough to keep the line busy between two turns, and small enough
/// that what a stalled peer misses waits with us, where it can be replaced by something newer.
constexpr int KERNEL_UNSENT = 16 * 1024;

/// Room for all that the upgrade left in its read buffer, which holds 4 to 128 KiB, depending on POCO's release.
constexpr int MAX_LEFTOVER = 256 * 1024;

/// A peer of which nothing was heard for so long is asked by a ping; shorter than the usual idle bound of proxies.
constexpr Poco::Clock::ClockDiff PING_PERIOD = seconds(20);

/// A peer of which nothing was heard for so long is gone: two lost pings and then some.
constexpr Poco::Clock::ClockDiff SILENCE = seconds(60);

/// A peer that took no byte for so long, while something waits, is gone.
constexpr Poco::Clock::ClockDiff STALL = seconds(60);

/// Time for the closing handshake, from the first close frame until the peer has closed its end.
constexpr Poco::Clock::ClockDiff CLOSE_TIME = seconds(5);

/// Longest wait of the loop in milliseconds while connections stand: how late a deadline is noticed when the clock
/// jumps.
constexpr int LONGEST_WAIT_MS = 100;

/// Time in milliseconds that a stop leaves the peers to take their close frame.
constexpr long STOP_LINGER_MS = 500;

/// Pause in milliseconds between two slices of a drain, and how many are told in a slice at the least.
constexpr long DRAIN_PAUSE_MS = 20;
constexpr std::size_t DRAIN_SLICE = 16;

/// Close codes of RFC 6455 that are sent from here.
enum CloseCode : unsigned short
{
    CLOSE_NORMAL = 1000,
    CLOSE_GOING_AWAY = 1001,
    CLOSE_PROTOCOL_ERROR = 1002,
    CLOSE_UNSUPPORTED_DATA = 1003,
    CLOSE_NO_CODE = 1005, ///< never on the wire: a close frame without a code
    CLOSE_INVALID_TEXT = 1007,
    CLOSE_TOO_BIG = 1009,
    CLOSE_INTERNAL_ERROR = 1011
};

} // namespace Kesa::Net
