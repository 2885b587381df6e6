#include "SignalWatch.h"

#include <Poco/Exception.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <unistd.h>

namespace Kesa::Host
{

namespace
{

// Written by the watch, read by the handler. Lock-free atomics are what a signal handler may touch.
std::atomic<int> eventOfWatch{-1};
std::atomic<bool> hasBeenSignalled{false};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

extern "C" void onSignal(int signal)
{
    if (hasBeenSignalled.exchange(true))
        ::_exit(128 + signal);
    const int savedError = errno;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(eventOfWatch, &one, sizeof one);
    errno = savedError;
}

} // namespace

SignalWatch::SignalWatch(int eventDescriptor)
{
    int none = -1;
    if (!eventOfWatch.compare_exchange_strong(none, eventDescriptor))
        throw Poco::IllegalStateException("This process waits for its signals already");
    hasBeenSignalled = false;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, &m_oldTerm);
    ::sigaction(SIGINT, &action, &m_oldInt);
}

SignalWatch::~SignalWatch()
{
    ::sigaction(SIGTERM, &m_oldTerm, nullptr);
    ::sigaction(SIGINT, &m_oldInt, nullptr);
    eventOfWatch = -1;
}

} // namespace Kesa::Host
