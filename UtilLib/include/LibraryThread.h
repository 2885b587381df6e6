#pragma once

#include "Export.h"

namespace Kesa::Util
{

/// Marks the calling thread, for the guard's lifetime, as one of the library's own: an I/O, message, close or worker
/// thread. Stopping a service waits for these threads, so it is refused on them.
class KESA_API LibraryThread
{
public:
    LibraryThread();
    ~LibraryThread();
    LibraryThread(const LibraryThread&) = delete;
    LibraryThread& operator=(const LibraryThread&) = delete;

    /// True on a marked thread.
    static bool isCurrent();
};

} // namespace Kesa::Util
