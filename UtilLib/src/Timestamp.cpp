#include "Time/Timestamp.h"

namespace Kesa
{

std::atomic<Poco::Timestamp::TimeVal> Timestamp::m_systemStartupTime{Poco::Timestamp().epochMicroseconds()};

Timestamp::Timestamp(int64_t microseconds): m_timestamp(microseconds), m_interval(0) {}

Timestamp Timestamp::createTimestamp()
{
    return Timestamp(Poco::Timestamp().epochMicroseconds() - m_systemStartupTime.load());
}

Timestamp Timestamp::createTimestamp(int64_t microseconds)
{
    return Timestamp(microseconds);
}

void Timestamp::initSystemTime(Poco::Timestamp origin)
{
    m_systemStartupTime = origin.epochMicroseconds();
}

Timestamp::timestamp_t Timestamp::asMilliseconds() const
{
    return m_timestamp / 1000;
}

Timestamp::operator timestamp_t() const
{
    return m_timestamp;
}

} // namespace Kesa
