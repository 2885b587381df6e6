#pragma once

#include "RenderCriterion.h"

#include <string>
#include <vector>

namespace Kesa::Command
{

/// The order of a list: "$sortby=name,-size", with "-" for a falling order.
class KESA_API SortParameter: public RenderCriterion
{
public:
    struct Key
    {
        std::string name;
        bool descending;
    };

    /// An empty list, or an empty name in it, is invalid.
    explicit SortParameter(const std::string& value);
    ~SortParameter() override;

    /// The keys, the most significant first; none if the parameter is invalid.
    const std::vector<Key>& getKeys() const { return m_keys; }

private:
    std::vector<Key> m_keys;
};

} // namespace Kesa::Command
