#include "Connection.h"

#include "IoLoop.h"
#include "LimitsAndTimes.h"

#include <Time/Now.h>

#include <Poco/Net/NetException.h>
#include <Poco/Net/WebSocketImpl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace Kesa::Net
{

namespace
{

using Kesa::Util::ScopedLock;

/// Reaches the bytes that the upgrade left in the socket object's own buffer, where epoll does not see them.
struct UpgradeBuffer: Poco::Net::WebSocketImpl
{
    typedef int (Poco::Net::WebSocketImpl::*Read)(char*, int);

    static Read read() { return &UpgradeBuffer::receiveSomeBytes; }
};

/// Failures show up at the first use of the socket, so they need no attention here.
int prepare(int descriptor)
{
    const int on = 1;
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &KERNEL_UNSENT, sizeof KERNEL_UNSENT);
    return descriptor;
}

} // namespace

Connection::Connection(const Socket& socket, const std::shared_ptr<IoLoop>& loop)
    : Channel(socket),
      m_descriptor(prepare(socket->impl()->sockfd())),
      m_loop(loop),
      m_lastHeard(Kesa::Util::now()),
      m_lastTaken(m_lastHeard),
      m_closeDeadline(m_lastHeard)
{
}

// Writing, on any thread.

void Connection::write(const std::string& text)
{
    writeText(text, nullptr, 0);
}

void Connection::write(const std::shared_ptr<const std::string>& text, Poco::UInt64 number)
{
    writeText(*text, &text, number);
}

void Connection::writeText(const std::string& text, const OutQueue::Text* shared, Poco::UInt64 number)
{
    SendResult result;
    {
        const ScopedLock lock(m_mutex);
        requireOpenLocked();
        result = sendOrQueueLocked(text, shared, number);
    }
    if (result == SendResult::Sent || result == SendResult::Queued)
        return;
    wakeLoop();
    throw Poco::Net::WebSocketException("Writing to " + peerAddress().toString() + " failed: " + reason());
}

void Connection::requireOpenLocked() const
{
    if (m_ended)
        throw Poco::Net::WebSocketException("The connection to " + peerAddress().toString() +
                                            " has ended: " + m_reason);
}

Connection::SendResult Connection::sendOrQueueLocked(const std::string& text, const OutQueue::Text* shared,
                                                     Poco::UInt64 number)
{
    const bool wasEmpty = m_out.empty();
    std::size_t sent = 0;
    if (wasEmpty)
    {
        const FrameHeader header(FrameHeader::TEXT, text.size());
        sent = sendAtOnceLocked(header, text);
        if (m_isBroken)
            return SendResult::Broken;
        if (sent == header.size + text.size())
            return SendResult::Sent;
    }
    if (!m_out.pushText(shared ? *shared : std::make_shared<const std::string>(text), number, sent))
    {
        breakLocked("it does not read, and more than " + std::to_string(MAX_WAITING) + " bytes would wait for it");
        return SendResult::Overflow;
    }
    pushedLocked(wasEmpty, Kesa::Util::now());
    return SendResult::Queued;
}

std::size_t Connection::sendAtOnceLocked(const FrameHeader& header, const std::string& text)
{
    constexpr int FLAGS = MSG_NOSIGNAL | MSG_DONTWAIT;
    if (header.size + text.size() <= SMALL_FRAME)
    {
        char frame[SMALL_FRAME];
        std::memcpy(frame, header.bytes, header.size);
        std::memcpy(frame + header.size, text.data(), text.size());
        return countSentLocked(::send(m_descriptor, frame, header.size + text.size(), FLAGS));
    }
    iovec buffers[] = {{const_cast<char*>(header.bytes), header.size}, {const_cast<char*>(text.data()), text.size()}};
    msghdr message = {};
    message.msg_iov = buffers;
    message.msg_iovlen = 2;
    return countSentLocked(::sendmsg(m_descriptor, &message, FLAGS));
}

/// The bytes that a send call took; breaks the connection when it failed for good.
std::size_t Connection::countSentLocked(ssize_t result)
{
    if (result >= 0)
        return static_cast<std::size_t>(result);
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
        breakLocked(std::strerror(errno));
    return 0;
}

void Connection::flushLocked(const Poco::Clock& now)
{
    constexpr int MOST_BUFFERS = 32;
    std::size_t budget = WRITE_PER_TURN;
    while (!m_out.empty() && budget > 0)
    {
        iovec buffers[MOST_BUFFERS];
        msghdr message = {};
        message.msg_iov = buffers;
        message.msg_iovlen = static_cast<std::size_t>(m_out.gather(buffers, MOST_BUFFERS, budget));
        const std::size_t sent = countSentLocked(::sendmsg(m_descriptor, &message, MSG_NOSIGNAL | MSG_DONTWAIT));
        if (sent == 0)
            return;
        m_out.pop(sent);
        m_lastTaken = now;
        budget -= std::min(budget, sent);
    }
}

/// Something was put into the queue: from now on it waits.
void Connection::pushedLocked(bool wasEmpty, const Poco::Clock& now)
{
    if (wasEmpty)
        m_lastTaken = now;
    updateInterestLocked();
}

// Closing, on any thread.

void Connection::shutdown()
{
    close(CLOSE_NORMAL, "");
}

void Connection::close(unsigned short code, const std::string& reason)
{
    {
        const ScopedLock lock(m_mutex);
        if (m_ended)
            return;
        m_keepsInbox = false;
        startCloseLocked(code, reason, "closed here with code " + std::to_string(code) + " " + reason,
                         Kesa::Util::now());
        updateInterestLocked();
    }
    wakeLoop();
}

void Connection::refuse(unsigned short code, const std::string& reason)
{
    char unread[SMALL_FRAME];
    const ScopedLock lock(m_mutex);
    startCloseLocked(code, reason, reason, Kesa::Util::now());
    ::shutdown(m_descriptor, SHUT_WR);
    // Closing over unread bytes would reset the connection, and the peer might not see the frame.
    for (int total = 0; total < MAX_LEFTOVER; total += static_cast<int>(sizeof unread))
        if (::recv(m_descriptor, unread, sizeof unread, MSG_DONTWAIT) <= 0)
            break;
    closeSocketLocked();
}

std::string Connection::reason() const
{
    const ScopedLock lock(m_mutex);
    return m_reason;
}

void Connection::wakeLoop()
{
    if (const std::shared_ptr<IoLoop> loop = m_loop.lock())
        loop->post(shared_from_this());
}

/// The peer has said its last word: what it said before is handled, and then our close frame with this code follows.
void Connection::finishLocked(unsigned short code, const std::string& text, const std::string& reason,
                              const Poco::Clock& now)
{
    m_state = State::Finishing;
    m_heardAll = true;
    m_closeCode = code;
    m_closeText = text;
    m_reason = reason;
    m_closeDeadline = now + CLOSE_TIME;
}

void Connection::startCloseLocked(unsigned short code, const std::string& text, const std::string& reason,
                                  const Poco::Clock& now)
{
    m_state = State::Closing;
    m_closeDeadline = now + CLOSE_TIME;
    endLocked(reason);
    if (code == 0)
        return;
    m_out.pushClose(code, text);
    flushLocked(now);
}

void Connection::breakLocked(const std::string& reason)
{
    m_isBroken = true;
    endLocked(reason);
}

void Connection::endLocked(const std::string& reason)
{
    if (!m_ended && m_reason.empty())
        m_reason = reason;
    m_ended = true;
    if (m_keepsInbox)
        return;
    m_inbox.clear();
    m_inboxCost = 0;
}

void Connection::closeSocketLocked()
{
    if (m_state == State::Closed)
        return;
    m_state = State::Closed;
    m_out.clear();
    if (m_epoll >= 0)
        ::epoll_ctl(m_epoll, EPOLL_CTL_DEL, m_descriptor, nullptr);
    try
    {
        Socket(socket())->close();
    }
    catch (const Poco::Exception&)
    {
        // It is closed all the same, and nobody is left who could do something about it.
    }
}

// The I/O thread.

void Connection::start(int epoll, const Poco::Clock& now)
{
    if (m_isStarted)
        return;
    m_isStarted = true;
    {
        const ScopedLock lock(m_mutex);
        epoll_event registration = {};
        registration.data.ptr = this;
        if (::epoll_ctl(epoll, EPOLL_CTL_ADD, m_descriptor, &registration) != 0)
            return breakLocked(std::strerror(errno));
        m_epoll = epoll;
    }
    takeLeftovers(now);
}

/// One call gives all that the upgrade left, or else what is in the socket. More calls might never end with a peer that
/// sends as fast as it is read, and everybody else would wait.
void Connection::takeLeftovers(const Poco::Clock& now)
{
    auto* const impl = dynamic_cast<Poco::Net::WebSocketImpl*>(socket()->impl());
    if (!impl)
        return;
    const std::unique_ptr<char[]> buffer(new char[MAX_LEFTOVER]);
    try
    {
        const int taken = (impl->*UpgradeBuffer::read())(buffer.get(), MAX_LEFTOVER);
        if (taken > 0) // else the end of the input shows again when the socket is read
            take(buffer.get(), static_cast<std::size_t>(taken), now);
    }
    catch (const Poco::TimeoutException&)
    {
        // There was nothing.
    }
    catch (const Poco::Exception& error)
    {
        breakOff(error.displayText());
    }
}

void Connection::read(char* buffer, std::size_t size, const Poco::Clock& now)
{
    {
        const ScopedLock lock(m_mutex);
        if (!wantsToReadLocked())
            return;
    }
    const ssize_t result = ::recv(m_descriptor, buffer, size, MSG_DONTWAIT);
    if (result > 0)
        take(buffer, static_cast<std::size_t>(result), now);
    else if (result == 0)
        takeEndOfInput(now);
    else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
        breakOff(std::strerror(errno));
}

void Connection::take(const char* data, std::size_t size, const Poco::Clock& now)
{
    {
        const ScopedLock lock(m_mutex);
        m_lastHeard = now;
        m_isAsked = false;
        if (m_heardAll || m_isBroken)
            return;
    }
    m_reader.feed(data, size, *this);
}

void Connection::takeEndOfInput(const Poco::Clock& now)
{
    const ScopedLock lock(m_mutex);
    m_inputEnded = true;
    m_heardAll = true;
    if (m_state != State::Open)
        return;
    if (m_reader.isInside())
        return breakLocked("the client closed it in the middle of a message");
    m_keepsInbox = true;
    finishLocked(0, "", "the client closed it without a close frame", now);
}

void Connection::onMessage(std::string&& text)
{
    const ScopedLock lock(m_mutex);
    if (m_state != State::Open || m_isBroken)
        return;
    m_inboxCost += text.size() + MESSAGE_COST;
    m_inbox.push_back(std::move(text));
}

void Connection::onPing(std::string&& payload)
{
    const ScopedLock lock(m_mutex);
    if (m_state != State::Open || m_isBroken)
        return;
    const bool wasEmpty = m_out.empty();
    m_out.pushPong(payload);
    if (wasEmpty)
        flushLocked(m_lastHeard);
    pushedLocked(wasEmpty, m_lastHeard);
}

void Connection::onClose(unsigned short code)
{
    const ScopedLock lock(m_mutex);
    m_heardAll = true;
    if (m_state != State::Open || m_isBroken)
        return;
    m_keepsInbox = true;
    finishLocked(code, "", "the client closed it with code " + std::to_string(code), m_lastHeard);
}

void Connection::onFailure(unsigned short code, const char* why)
{
    const ScopedLock lock(m_mutex);
    m_heardAll = true;
    if (m_state == State::Open && !m_isBroken)
        finishLocked(code, why, "closed with code " + std::to_string(code) + ": " + why, m_lastHeard);
}

void Connection::flush(const Poco::Clock& now)
{
    const ScopedLock lock(m_mutex);
    const std::size_t before = m_out.bytes();
    if (m_state == State::Closed || m_isBroken)
        return;
    flushLocked(now);
    if (m_out.bytes() < before)
        m_lastHeard = now; // who takes what waited is alive
}

void Connection::breakOff(const std::string& reason)
{
    const ScopedLock lock(m_mutex);
    breakLocked(reason);
}

Connection::Step Connection::step(const Poco::Clock& now)
{
    const ScopedLock lock(m_mutex);
    advanceLocked(now);
    updateInterestLocked();
    Step step;
    step.hasMessages = !m_inbox.empty() && !m_isScheduled;
    m_isScheduled = m_isScheduled || step.hasMessages;
    step.hasJustEnded = m_ended && !m_wasCounted;
    m_wasCounted = m_ended;
    step.isOver = isOverLocked();
    step.isClosed = m_state == State::Closed;
    step.deadline = deadlineLocked(now);
    return step;
}

void Connection::advanceLocked(const Poco::Clock& now)
{
    if (m_state == State::Finishing && !m_isBroken && (isIdleLocked() || now >= m_closeDeadline))
        startCloseLocked(m_closeCode, m_closeText, m_reason, now);
    if (m_state == State::Closing && !m_isBroken && m_out.empty() && m_heardAll)
    {
        ::shutdown(m_descriptor, SHUT_WR);
        m_state = State::Lingering;
    }
    checkLifeLocked(now);
    if (m_isBroken || (m_state == State::Lingering && m_inputEnded))
        closeSocketLocked();
}

void Connection::checkLifeLocked(const Poco::Clock& now)
{
    if (m_state == State::Closed || m_isBroken)
        return;
    if (m_state == State::Closing || m_state == State::Lingering)
    {
        if (now >= m_closeDeadline)
            breakLocked("the client did not close it in time");
    }
    else if (!m_out.empty())
    {
        if (now - m_lastTaken >= STALL)
            breakLocked("the client took nothing for " + std::to_string(STALL / seconds(1)) + " s");
    }
    else if (wantsToReadLocked())
        askLocked(now);
}

/// Asks a silent peer whether it is there, and gives it up when it has not answered for too long.
void Connection::askLocked(const Poco::Clock& now)
{
    const Poco::Clock::ClockDiff silence = now - m_lastHeard;
    if (silence >= SILENCE)
        return breakLocked("nothing was heard of the client for " + std::to_string(SILENCE / seconds(1)) + " s");
    if (silence < PING_PERIOD || m_isAsked)
        return;
    m_isAsked = true;
    m_out.pushPing();
    flushLocked(now);
    pushedLocked(true, now);
}

bool Connection::isIdleLocked() const
{
    return m_inbox.empty() && !m_isScheduled;
}

/// True once in a connection's life: when it has ended, the loop knows that, and its last message has been handled.
bool Connection::isOverLocked()
{
    if (!m_wasCounted || !isIdleLocked() || m_wasReported)
        return false;
    m_wasReported = true;
    return true;
}

bool Connection::wantsToReadLocked() const
{
    if (m_inputEnded || m_isBroken)
        return false;
    switch (m_state)
    {
    case State::Open:
        return m_inboxCost < MAX_INBOX && m_out.bytes() <= STOP_READING_ABOVE;
    case State::Closing: // to hear the answer to our close frame
    case State::Lingering:
        return true;
    case State::Finishing:
    case State::Closed:
        break;
    }
    return false;
}

/// The only place that tells epoll what to report. The mask follows from the state alone and epoll is level-triggered,
/// so that no wake-up is lost, whichever thread changed the state.
void Connection::updateInterestLocked()
{
    const bool isReading = wantsToReadLocked();
    if (isReading && !m_wasReading)
    {
        m_lastHeard = Kesa::Util::now(); // nothing could be heard while nothing was read
        m_isAsked = false;
    }
    m_wasReading = isReading;
    const std::uint32_t interest =
        (isReading ? std::uint32_t(EPOLLIN) : 0) | (m_out.empty() ? 0 : std::uint32_t(EPOLLOUT));
    if (m_epoll < 0 || m_state == State::Closed || interest == m_interest)
        return;
    epoll_event registration = {};
    registration.events = interest;
    registration.data.ptr = this;
    if (::epoll_ctl(m_epoll, EPOLL_CTL_MOD, m_descriptor, &registration) == 0)
        m_interest = interest;
}

Poco::Clock Connection::deadlineLocked(const Poco::Clock& now) const
{
    if (m_state == State::Closing || m_state == State::Lingering)
        return m_closeDeadline;
    Poco::Clock deadline = now + PING_PERIOD;
    if (m_state == State::Finishing)
        deadline = std::min(deadline, m_closeDeadline);
    if (!m_out.empty())
        return std::min(deadline, m_lastTaken + STALL);
    if (wantsToReadLocked())
        return std::min(deadline, m_lastHeard + (m_isAsked ? SILENCE : PING_PERIOD));
    return deadline;
}

// The message thread.

bool Connection::takeMessage(std::string& text)
{
    const ScopedLock lock(m_mutex);
    if (m_inbox.empty())
        return false;
    text = std::move(m_inbox.front());
    m_inbox.pop_front();
    m_inboxCost -= text.size() + MESSAGE_COST;
    updateInterestLocked();
    return true;
}

Connection::Done Connection::messageDone()
{
    Done done;
    bool isFinished;
    {
        const ScopedLock lock(m_mutex);
        done.hasMessages = !m_inbox.empty();
        m_isScheduled = done.hasMessages;
        done.isOver = isOverLocked();
        isFinished = m_state == State::Finishing && isIdleLocked();
    }
    if (isFinished)
        wakeLoop();
    return done;
}

} // namespace Kesa::Net
