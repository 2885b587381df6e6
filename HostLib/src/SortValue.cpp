#include "SortValue.h"

#include "JsonWriter.h"

#include <cmath>
#include <limits>

namespace Kesa::Host
{

static_assert(std::numeric_limits<long double>::digits >= 64, "integers of 64 bits must be told apart");

namespace
{

long double numberOf(const Poco::Dynamic::Var& value)
{
    if (!value.isInteger())
        return value.convert<double>();
    return value.isSigned() ? static_cast<long double>(value.convert<Poco::Int64>())
                            : static_cast<long double>(value.convert<Poco::UInt64>());
}

} // namespace

SortValue::SortValue(const Poco::Dynamic::Var& value, bool descending): m_descending(descending)
{
    if (value.isEmpty())
        m_rank = Rank::MISSING;
    else if (value.isNumeric() && !value.isBoolean())
    {
        m_number = numberOf(value);
        m_rank = std::isfinite(m_number) ? Rank::NUMBER : Rank::MISSING; // written as null
    }
    else if (!Command::asObject(value) && !Command::asArray(value))
    {
        m_text = Command::scalarText(value);
        m_rank = Rank::TEXT;
    }
}

bool SortValue::operator<(const SortValue& other) const
{
    if (m_rank == Rank::MISSING || other.m_rank == Rank::MISSING)
        return m_rank < other.m_rank;
    return m_descending ? other.isBefore(*this) : isBefore(other);
}

bool SortValue::isBefore(const SortValue& other) const
{
    if (m_rank != other.m_rank)
        return m_rank < other.m_rank;
    return m_rank == Rank::NUMBER ? m_number < other.m_number : m_rank == Rank::TEXT && m_text < other.m_text;
}

} // namespace Kesa::Host
