#include "UnservedSocket.h"

#include <Poco/Net/NetException.h>

#include <csignal>

namespace Kesa::Net
{

namespace
{

/// Keeps a write to a socket whose peer has gone from ending the process by SIGPIPE; the write's error says the same.
class NoBrokenPipeSignal
{
public:
    NoBrokenPipeSignal()
    {
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&m_brokenPipe);
        sigaddset(&m_brokenPipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_brokenPipe, &m_before);
    }

    ~NoBrokenPipeSignal()
    {
        const timespec noWait = {0, 0};
        if (!m_wasPending)
            sigtimedwait(&m_brokenPipe, nullptr, &noWait);
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }

    NoBrokenPipeSignal(const NoBrokenPipeSignal&) = delete;
    NoBrokenPipeSignal& operator=(const NoBrokenPipeSignal&) = delete;

private:
    sigset_t m_brokenPipe;
    sigset_t m_before;
    bool m_wasPending;
};

} // namespace

UnservedSocket::UnservedSocket(const Socket& socket): Channel(socket) {}

void UnservedSocket::write(const std::string& text)
{
    const Kesa::Util::ScopedLock lock(m_mutex);
    const NoBrokenPipeSignal noSignal;
    const int size = static_cast<int>(text.size());
    if (Socket(socket())->sendFrame(text.data(), size, Poco::Net::WebSocket::FRAME_TEXT) < size)
        throw Poco::Net::WebSocketException("Only a part of a message was sent to " + peerAddress().toString());
}

void UnservedSocket::write(const std::shared_ptr<const std::string>& text, Poco::UInt64)
{
    write(*text);
}

void UnservedSocket::shutdown()
{
    const Kesa::Util::ScopedLock lock(m_mutex);
    const NoBrokenPipeSignal noSignal;
    Socket(socket())->shutdown();
}

} // namespace Kesa::Net
