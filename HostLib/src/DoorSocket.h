#pragma once

#include "Export.h"

#include <Poco/Clock.h>
#include <Poco/Net/StreamSocketImpl.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace Poco::Net
{
class StreamSocket;
}

namespace Kesa::Host
{

/// The socket on which POCO reads one request and writes its answer. It lets POCO read that request and not a byte
/// more, so that the next request, or the first frame of a websocket, stays in the kernel; and it keeps what the client
/// does not take at once, so that no thread ever waits for a slow reader.
///
/// Ownership: owns the descriptor, until release() has been called and POCO's websocket has taken it.
/// Threads:   one thread at a time: the front door's loop or the pool thread that serves the request.
/// Errors:    sendBytes() raises Poco::IOException when too much waits; receiveBytes() raises Poco::TimeoutException
/// when
///            the request's time is over.
class KESA_API DoorSocket: public Poco::Net::StreamSocketImpl
{
public:
    /// What all the sockets of a front door share.
    struct Shared
    {
        std::atomic<std::size_t> waiting{0}; ///< bytes that wait to be sent; atomic: counted by every thread
        std::atomic<bool> isStopping{false}; ///< ends the waiting for input; atomic: set once by the stopping thread
    };

    static constexpr std::size_t MAX_WAITING = 16 * 1024 * 1024; ///< for one answer: five hundred large elements
    static constexpr std::size_t MAX_WAITING_TOTAL =
        128 * 1024 * 1024;                                        ///< for all answers: what a small machine can spare
    static constexpr std::size_t SEND_AT = 64 * 1024;             ///< collected before the first send
    static constexpr std::uint64_t UNLIMITED = ~std::uint64_t(0); ///< the request's end is not known beforehand

    /// Takes `descriptor`, which is connected and does not block.
    DoorSocket(int descriptor, std::shared_ptr<Shared> shared);

    /// The door's socket below a POCO socket, or null.
    static DoorSocket* of(Poco::Net::StreamSocket& socket);

    /// From now on `bytes` bytes may be read, until `deadline`.
    void beginRequest(std::uint64_t bytes, const Poco::Clock& deadline);
    /// Throws away what POCO did not read of those bytes, all of which have arrived.
    void discardUnread();
    /// True if the kernel already holds as many bytes for us.
    bool hasArrived(std::uint64_t bytes) const;

    /// Sends what waits, as far as the client takes it. True when nothing waits any more. A broken connection counts as
    /// such and makes failed() true.
    bool flush();
    /// True once the connection broke or too much waited: the answer did not get through.
    bool failed() const { return m_failed; }
    /// True if so much as a short answer fits into the kernel's buffer now.
    bool takesMore();

    /// Sends what waits and becomes a plain socket, for those who take over the descriptor. False if not all could be
    /// sent.
    bool release();

    int receiveBytes(void* buffer, int length, int flags = 0) override;
    int sendBytes(const void* buffer, int length, int flags = 0) override;
    /// Always true: the request's head is here before POCO asks, and poll() would need a descriptor of its own.
    bool poll(const Poco::Timespan& timeout, int mode) override;

protected:
    ~DoorSocket() override;

private:
    void waitForInput() const;
    void sent(std::size_t count);
    void fail();

    const std::shared_ptr<Shared> m_shared;
    std::string m_waiting;
    std::size_t m_sent = 0; ///< how much of m_waiting has left
    std::uint64_t m_readable = 0;
    Poco::Clock m_deadline{0};
    bool m_failed = false;
    bool m_released = false;
};

} // namespace Kesa::Host
