#pragma once

#include "RenderCriterion.h"

#include <string>
#include <vector>

namespace Kesa::Command
{

/// How far references are followed: "$expand=2" for a level, "$expand=a,b" for properties at level 0.
class KESA_API ExpandParameter: public RenderCriterion
{
public:
    /// An empty list, an empty name in it and a negative number are invalid. A level too large counts as the largest.
    explicit ExpandParameter(const std::string& value);
    ~ExpandParameter() override;

    unsigned int getLevel() const { return m_level; }
    const std::vector<std::string>& getProperties() const { return m_properties; }

private:
    unsigned int m_level;
    std::vector<std::string> m_properties;
};

} // namespace Kesa::Command
