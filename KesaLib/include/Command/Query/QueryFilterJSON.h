#pragma once

#include <Export.h>

#include <Poco/JSON/Object.h>
#include <Poco/SharedPtr.h>

#include <vector>

namespace Kesa::Command
{

class AnyValueSearch;
class AttributeValueSearch;
class RenderCriterion;

/// Looks at the payload of a change with the eyes of a request's criteria. Criteria that are invalid, or null, are
/// skipped.
///
/// Threads: any, at once.
class KESA_API QueryFilterJSON
{
public:
    /// True if `object` holds at least one of the fields that the FilterParameter among `criteria` name, or if they
    /// name none. `criteria` may be null. One field is enough, since a payload may be a partial update.
    static bool findContainedFields(const Poco::JSON::Object& object,
                                    const std::vector<Poco::SharedPtr<RenderCriterion>>* criteria);
    /// True if every one of `searches` finds its text in a scalar of `object`, at any depth.
    static bool findContainedFreetexts(const Poco::JSON::Object& object,
                                       const std::vector<Poco::SharedPtr<AnyValueSearch>>& searches);
    /// True if every one of `searches` matches its attribute. An attribute that `object` lacks counts as a match, since
    /// only the whole data can tell.
    static bool findContainedAttributePairs(const Poco::JSON::Object& object,
                                            const std::vector<Poco::SharedPtr<AttributeValueSearch>>& searches);
};

} // namespace Kesa::Command
