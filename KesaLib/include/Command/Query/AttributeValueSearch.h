#pragma once

#include "AbstractValueSearch.h"

#include <string>

namespace Kesa::Command
{

/// The search "name=value": the whole text of one first-level scalar; letter case counts, numbers as JSON writes them.
class KESA_API AttributeValueSearch: public AbstractValueSearch
{
public:
    /// An empty name is invalid.
    AttributeValueSearch(const std::string& name, const std::string& queryValue);
    ~AttributeValueSearch() override;

    /// The attribute's name.
    const std::string& getName() const { return m_name; }

protected:
    bool matchImpl(const Poco::Dynamic::Var& value, int level) const override;
    bool matchImpl(const Data::AttributeValueBase& value, int level) const override;

private:
    std::string m_name;
};

} // namespace Kesa::Command
