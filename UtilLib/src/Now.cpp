#include "Time/Now.h"

#include <atomic>

namespace Kesa::Util
{

namespace
{
/// The stopped clock's reading; 0 while the real clock runs.
std::atomic<Poco::Clock::ClockVal> g_stoppedAt{0};
} // namespace

Poco::Clock now()
{
    const Poco::Clock::ClockVal stoppedAt = g_stoppedAt.load(std::memory_order_relaxed);
    return stoppedAt == 0 ? Poco::Clock() : Poco::Clock(stoppedAt);
}

TestClock::TestClock()
{
    g_stoppedAt = Poco::Clock().microseconds();
}

TestClock::~TestClock()
{
    g_stoppedAt = 0;
}

void TestClock::advance(long milliseconds)
{
    advanceMicroseconds(Poco::Clock::ClockDiff(milliseconds) * 1000);
}

void TestClock::advanceMicroseconds(Poco::Clock::ClockDiff microseconds)
{
    g_stoppedAt += microseconds;
}

} // namespace Kesa::Util
