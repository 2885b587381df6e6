#pragma once

namespace Kesa::Client
{

/// Turns the first SIGINT or SIGTERM into a readable descriptor, so that a program that waits in poll() ends in order.
/// The second signal ends the process as if nobody had caught it. One object in a process; the handlers go with it.
///
/// Threads: construct before any other thread starts; then any.
class StopSignal
{
public:
    /// Raises Poco::SystemException without a free descriptor.
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// Becomes readable when a signal came, and stays so.
    int descriptor() const;
};

} // namespace Kesa::Client
