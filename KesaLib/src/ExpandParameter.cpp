#include "Command/Query/ExpandParameter.h"

#include "QueryText.h"

#include <limits>

namespace Kesa::Command
{

ExpandParameter::ExpandParameter(const std::string& value): m_level(0)
{
    if (const auto level = readNumber(value, std::numeric_limits<unsigned int>::max()))
        m_level = static_cast<unsigned int>(*level);
    else if (!isNegativeNumber(value))
        m_properties = splitNames(value);
    m_valid = !m_properties.empty() || readNumber(value, 1).has_value();
}

ExpandParameter::~ExpandParameter() = default;

} // namespace Kesa::Command
