#pragma once

#include <functional>

namespace Kesa::Service
{

/// Marks the calling thread, for the guard's lifetime, as being inside the library, perhaps with locks held. A change
/// that a callback reports meanwhile is put off until the outermost guard of the thread goes, that is, until those
/// locks are free. So the guard has to be built before any lock is taken.
class LibraryCall
{
public:
    LibraryCall();
    /// The outermost one runs what was put off; an exception of it is logged.
    ~LibraryCall();
    LibraryCall(const LibraryCall&) = delete;
    LibraryCall& operator=(const LibraryCall&) = delete;

    static bool isInside();
    /// Puts the action off until the outermost guard of this thread goes.
    static void defer(std::function<void()> action);
};

} // namespace Kesa::Service
