#include "Command/Query/QueryFilterJSON.h"

#include "Command/Query/AnyValueSearch.h"
#include "Command/Query/AttributeValueSearch.h"
#include "Command/Query/FilterParameter.h"

#include <algorithm>

namespace Kesa::Command
{

bool QueryFilterJSON::findContainedFields(const Poco::JSON::Object& object,
                                          const std::vector<Poco::SharedPtr<RenderCriterion>>* criteria)
{
    if (!criteria)
        return true;
    bool fieldNamed = false;
    for (const auto& criterion: *criteria)
    {
        const auto* fields = dynamic_cast<const FilterParameter*>(criterion.get());
        if (!fields || !fields->isValid())
            continue;
        fieldNamed = true;
        if (std::any_of(object.begin(), object.end(),
                        [fields](const auto& member) { return fields->contains(member.first); }))
            return true;
    }
    return !fieldNamed;
}

bool QueryFilterJSON::findContainedFreetexts(const Poco::JSON::Object& object,
                                             const std::vector<Poco::SharedPtr<AnyValueSearch>>& searches)
{
    const auto matches = [&object](const Poco::SharedPtr<AnyValueSearch>& search)
    {
        return search.isNull() || !search->isValid() ||
               std::any_of(object.begin(), object.end(),
                           [&search](const auto& member) { return search->match(member.second); });
    };
    return std::all_of(searches.begin(), searches.end(), matches);
}

bool QueryFilterJSON::findContainedAttributePairs(const Poco::JSON::Object& object,
                                                  const std::vector<Poco::SharedPtr<AttributeValueSearch>>& searches)
{
    const auto matches = [&object](const Poco::SharedPtr<AttributeValueSearch>& search)
    {
        return search.isNull() || !search->isValid() || !object.has(search->getName()) ||
               search->match(object.get(search->getName()));
    };
    return std::all_of(searches.begin(), searches.end(), matches);
}

} // namespace Kesa::Command
