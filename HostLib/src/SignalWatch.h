#pragma once

#include "Export.h"

#include <csignal>

namespace Kesa::Host
{

/// For its own lifetime, SIGTERM and SIGINT ask for a stop instead of ending the process; a second one ends it at once,
/// as without this class. Afterwards the handlers that stood before stand again.
///
/// Threads: build and destroy it on one thread. At most one at a time in a process: Poco::IllegalStateException.
class KESA_API SignalWatch
{
public:
    /// A signal adds one to this eventfd, which is borrowed.
    explicit SignalWatch(int eventDescriptor);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

private:
    struct sigaction m_oldTerm;
    struct sigaction m_oldInt;
};

} // namespace Kesa::Host
