#include "Command/Query/SortParameter.h"

#include "QueryText.h"

namespace Kesa::Command
{

SortParameter::SortParameter(const std::string& value)
{
    for (const std::string& text: splitNames(value))
    {
        const bool descending = text.front() == '-';
        m_keys.push_back(Key{descending ? text.substr(1) : text, descending});
        if (m_keys.back().name.empty())
            m_valid = false;
    }
    m_valid = m_valid && !m_keys.empty();
    if (!m_valid)
        m_keys.clear();
}

SortParameter::~SortParameter() = default;

} // namespace Kesa::Command
