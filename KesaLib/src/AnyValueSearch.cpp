#include "Command/Query/AnyValueSearch.h"

#include "JsonWriter.h"

#include "Data/AttributeValueBase.h"

#include <algorithm>

namespace Kesa::Command
{

AnyValueSearch::AnyValueSearch(const std::string& queryValue): AbstractValueSearch(queryValue, Mode::CONTAINED)
{
    if (queryValue.empty())
        m_valid = false;
}

AnyValueSearch::~AnyValueSearch() = default;

bool AnyValueSearch::matchImpl(const Poco::Dynamic::Var& value, int level) const
{
    if (level >= MAX_JSON_DEPTH)
        return false;
    if (const Poco::JSON::Object* object = asObject(value))
        return std::any_of(object->begin(), object->end(),
                           [&](const auto& member) { return matchImpl(member.second, level + 1); });
    if (const Poco::JSON::Array* array = asArray(value))
        return std::any_of(array->begin(), array->end(),
                           [&](const auto& element) { return matchImpl(element, level + 1); });
    return matchText(scalarText(value));
}

bool AnyValueSearch::matchImpl(const Data::AttributeValueBase& value, int level) const
{
    return matchImpl(value.asGeneric(), level);
}

} // namespace Kesa::Command
