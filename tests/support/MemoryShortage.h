#pragma once

namespace Kesa::Test
{

/// Lets one allocation of certain threads fail, for the object's own lifetime. Replaces the operator new of the whole
/// program, so the test needs an executable of its own.
///
///     for (long n = 0;; ++n)
///     {
///         MemoryShortage shortage(isConcerned, n);    // the n-th allocation from now on fails, and no other
///         ...
///         if (!shortage.hasStruck())
///             break;                                  // there are no more
///     }
///
/// Threads: one object at a time.
class MemoryShortage
{
public:
    /// `isConcerned`: whether the calling thread's allocations count; called on all threads, must not allocate.
    MemoryShortage(bool (*isConcerned)(), long allowed);
    ~MemoryShortage();
    MemoryShortage(const MemoryShortage&) = delete;
    MemoryShortage& operator=(const MemoryShortage&) = delete;

    bool hasStruck() const;
};

} // namespace Kesa::Test
