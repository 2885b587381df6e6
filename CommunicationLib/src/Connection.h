#pragma once

#include "Channel.h"
#include "FrameReader.h"
#include "OutQueue.h"

#include <Mutex.h>

#include <Poco/Clock.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

namespace Kesa::Net
{

class IoLoop;

/// One served websocket connection: what waits to be written, what waits to be handled, and how far its life has come.
///
///     Open ──────> Finishing ──────> Closing ──────> Lingering ──────> Closed
///          the peer has      our close      all of it      the peer has closed
///          said its last     frame is       has left       too, or time is up
///          word              queued
///
/// Any state goes to Closed at once when the socket breaks. "Ended" is every state from Closing on: writes raise.
///
/// Ownership: shared by the I/O loop, until it is closed, and by the proxies.
/// Threads:   as grouped below. Only the I/O thread reads, registers and closes the socket. Every use of the descriptor
///            but for reading happens under the lock and with the state not Closed, so that nobody meets a reused one.
/// Locks:     m_mutex is a leaf: nothing is fired, logged or locked under it.
class KESA_API Connection: public Channel, public std::enable_shared_from_this<Connection>, private FrameReader::Sink
{
public:
    /// Prepares the socket. `loop` is told when the I/O thread has to look at the connection.
    Connection(const Socket& socket, const std::shared_ptr<IoLoop>& loop);

    // Any thread.

    void write(const std::string& text) override;
    void write(const std::shared_ptr<const std::string>& text, Poco::UInt64 number) override;
    bool hasEnded() const override { return m_ended; }
    void shutdown() override;

    /// Closes with this code; messages that are not handled yet are dropped, what waits for the peer is still sent.
    void close(unsigned short code, const std::string& reason);

    /// As close(), at once and on this thread, for a connection that no loop has taken.
    void refuse(unsigned short code, const std::string& reason);

    /// Why the connection has ended; empty before.
    std::string reason() const;

    // The I/O thread.

    /// What the loop has to do after a step.
    struct Step
    {
        bool hasMessages = false;  ///< hand the connection to the message thread
        bool isOver = false;       ///< hand it to the close thread
        bool hasJustEnded = false; ///< count it no more
        bool isClosed = false;     ///< forget it
        Poco::Clock deadline;      ///< look at it again then
    };

    /// Registers with this epoll and takes the bytes that followed the upgrade request; does nothing the second time.
    void start(int epoll, const Poco::Clock& now);

    /// Reads once, with this buffer.
    void read(char* buffer, std::size_t size, const Poco::Clock& now);

    /// Sends what the socket takes of what waits.
    void flush(const Poco::Clock& now);

    /// Notes that the connection can be used no more; the next step closes it.
    void breakOff(const std::string& reason);

    /// Goes on to the next state where that is due, and says what follows from it.
    Step step(const Poco::Clock& now);

    // The message thread.

    /// Takes the next message out; false when there is none.
    bool takeMessage(std::string& text);

    /// What the message thread has to do after a message.
    struct Done
    {
        bool hasMessages = false; ///< queue the connection again
        bool isOver = false;      ///< hand it to the close thread
    };

    /// The message that was taken has left its handler.
    Done messageDone();

private:
    enum class State
    {
        Open,
        Finishing,
        Closing,
        Lingering,
        Closed
    };
    enum class SendResult
    {
        Sent,
        Queued,
        Overflow,
        Broken
    };

    // The reader's events, on the I/O thread.
    void onMessage(std::string&& text) override;
    void onPing(std::string&& payload) override;
    void onClose(unsigned short code) override;
    void onFailure(unsigned short code, const char* why) override;

    void take(const char* data, std::size_t size, const Poco::Clock& now);
    void takeEndOfInput(const Poco::Clock& now);
    void takeLeftovers(const Poco::Clock& now);
    void wakeLoop();
    void writeText(const std::string& text, const OutQueue::Text* shared, Poco::UInt64 number);

    void requireOpenLocked() const KESA_REQUIRES(m_mutex);
    SendResult sendOrQueueLocked(const std::string& text, const OutQueue::Text* shared, Poco::UInt64 number)
        KESA_REQUIRES(m_mutex);
    std::size_t sendAtOnceLocked(const FrameHeader& header, const std::string& text) KESA_REQUIRES(m_mutex);
    std::size_t countSentLocked(ssize_t result) KESA_REQUIRES(m_mutex);
    void flushLocked(const Poco::Clock& now) KESA_REQUIRES(m_mutex);
    void pushedLocked(bool wasEmpty, const Poco::Clock& now) KESA_REQUIRES(m_mutex);
    void finishLocked(unsigned short code, const std::string& text, const std::string& reason, const Poco::Clock& now)
        KESA_REQUIRES(m_mutex);
    void startCloseLocked(unsigned short code, const std::string& text, const std::string& reason,
                          const Poco::Clock& now) KESA_REQUIRES(m_mutex);
    void advanceLocked(const Poco::Clock& now) KESA_REQUIRES(m_mutex);
    void checkLifeLocked(const Poco::Clock& now) KESA_REQUIRES(m_mutex);
    void askLocked(const Poco::Clock& now) KESA_REQUIRES(m_mutex);
    void breakLocked(const std::string& reason) KESA_REQUIRES(m_mutex);
    void endLocked(const std::string& reason) KESA_REQUIRES(m_mutex);
    void closeSocketLocked() KESA_REQUIRES(m_mutex);
    bool isIdleLocked() const KESA_REQUIRES(m_mutex);
    bool isOverLocked() KESA_REQUIRES(m_mutex);
    bool wantsToReadLocked() const KESA_REQUIRES(m_mutex);
    void updateInterestLocked() KESA_REQUIRES(m_mutex);
    Poco::Clock deadlineLocked(const Poco::Clock& now) const KESA_REQUIRES(m_mutex);

    // Fixed after construction.
    const int m_descriptor;
    const std::weak_ptr<IoLoop> m_loop;

    // The I/O thread's own.
    FrameReader m_reader;
    bool m_isStarted = false;

    std::atomic<bool> m_ended{false}; // written under the lock; read without it, since proxies ask for it under locks

    mutable Kesa::Util::FastMutex m_mutex;
    State m_state KESA_GUARDED_BY(m_mutex) = State::Open;
    std::string m_reason KESA_GUARDED_BY(m_mutex);
    OutQueue m_out KESA_GUARDED_BY(m_mutex);
    std::deque<std::string> m_inbox KESA_GUARDED_BY(m_mutex);
    std::size_t m_inboxCost KESA_GUARDED_BY(m_mutex) = 0;
    bool m_isScheduled KESA_GUARDED_BY(m_mutex) = false;     // queued for the message thread, or in its hands
    bool m_wasCounted KESA_GUARDED_BY(m_mutex) = false;      // the loop knows that the connection has ended
    bool m_wasReported KESA_GUARDED_BY(m_mutex) = false;     // given to the close thread
    bool m_isBroken KESA_GUARDED_BY(m_mutex) = false;        // the socket is of no use any more
    bool m_inputEnded KESA_GUARDED_BY(m_mutex) = false;      // the peer has closed its end
    bool m_heardAll KESA_GUARDED_BY(m_mutex) = false;        // nothing that may still come matters
    bool m_keepsInbox KESA_GUARDED_BY(m_mutex) = false;      // the end was orderly: what came before it is handled
    bool m_isAsked KESA_GUARDED_BY(m_mutex) = false;         // a ping has been sent since anything was heard
    bool m_wasReading KESA_GUARDED_BY(m_mutex) = true;       // what wantsToReadLocked() said last
    unsigned short m_closeCode KESA_GUARDED_BY(m_mutex) = 0; // to send after finishing; 0 sends no close frame
    std::string m_closeText KESA_GUARDED_BY(m_mutex);        // and the words that go with it
    int m_epoll KESA_GUARDED_BY(m_mutex) = -1;
    std::uint32_t m_interest KESA_GUARDED_BY(m_mutex) = 0; // what epoll was told
    Poco::Clock m_lastHeard KESA_GUARDED_BY(m_mutex);      // last sign of life, or when reading was taken up again
    Poco::Clock m_lastTaken KESA_GUARDED_BY(m_mutex);      // when the peer last took a byte of what waits
    Poco::Clock m_closeDeadline KESA_GUARDED_BY(m_mutex);
};

} // namespace Kesa::Net
