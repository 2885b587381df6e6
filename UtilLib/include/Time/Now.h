#pragma once

#include "../Export.h"

#include <Poco/Clock.h>

namespace Kesa::Util
{

/// The present moment, in microseconds of the monotonic clock. Every clock reading of the libraries comes from here, so
/// that tests can move time. Any thread.
KESA_API Poco::Clock now();

/// Stops the clock of now() for its own lifetime and moves it by hand. For tests; at most one at a time.
class KESA_API TestClock
{
public:
    TestClock();
    ~TestClock();
    TestClock(const TestClock&) = delete;
    TestClock& operator=(const TestClock&) = delete;

    /// Moves the clock forward by so many milliseconds.
    void advance(long milliseconds);
    void advanceMicroseconds(Poco::Clock::ClockDiff microseconds);
};

} // namespace Kesa::Util
