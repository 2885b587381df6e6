#pragma once

#include "../Export.h"

#include <Poco/Timestamp.h>

#include <atomic>
#include <cstdint>

namespace Kesa
{

/// A moment, told as the time since the process's origin. The origin is the load of the library until initSystemTime
/// sets it. Any thread.
class KESA_API Timestamp
{
public:
    typedef Poco::Timestamp::TimeDiff timestamp_t;

    /// The present moment.
    static Timestamp createTimestamp();
    /// A moment so many microseconds after the origin.
    static Timestamp createTimestamp(int64_t microseconds);
    /// Makes `origin` the process's time origin, for all later readings.
    static void initSystemTime(Poco::Timestamp origin);

    /// Whole milliseconds since the origin.
    timestamp_t asMilliseconds() const;
    /// Microseconds since the origin.
    operator timestamp_t() const;

private:
    explicit Timestamp(int64_t microseconds);

    timestamp_t m_timestamp;
    [[maybe_unused]] int64_t m_interval; ///< an interval that goes with the moment; none so far has one
    /// The origin, in microseconds since the epoch. Atomic: any thread reads it while a service sets it at its start.
    static std::atomic<Poco::Timestamp::TimeVal> m_systemStartupTime;
};

} // namespace Kesa
