#include "Command/Query/FilterParameter.h"

#include "QueryText.h"

namespace Kesa::Command
{

FilterParameter::FilterParameter(const std::string& value)
{
    for (const std::string& name: splitNames(value))
        if (m_names.insert(name).second)
            m_fields.emplace_back(name);
    m_valid = !m_fields.empty();
}

FilterParameter::~FilterParameter() = default;

} // namespace Kesa::Command
