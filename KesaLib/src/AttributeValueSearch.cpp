#include "Command/Query/AttributeValueSearch.h"

#include "JsonWriter.h"

#include "Data/AttributeValueBase.h"

namespace Kesa::Command
{

AttributeValueSearch::AttributeValueSearch(const std::string& name, const std::string& queryValue)
    : AbstractValueSearch(queryValue, Mode::WHOLE), m_name(name)
{
    if (name.empty())
        m_valid = false;
}

AttributeValueSearch::~AttributeValueSearch() = default;

bool AttributeValueSearch::matchImpl(const Poco::Dynamic::Var& value, int) const
{
    return !asObject(value) && !asArray(value) && matchText(scalarText(value));
}

bool AttributeValueSearch::matchImpl(const Data::AttributeValueBase& value, int level) const
{
    return matchImpl(value.asGeneric(), level);
}

} // namespace Kesa::Command
