#include "Snapshot.h"

namespace SystemMonitor
{
namespace
{

using Poco::JSON::Object;

bool isSameElement(const Object& a, const Object& b)
{
    return a.get(STARTED) == b.get(STARTED);
}

/// The members of `after` that are different. Where a member went, which no list of members can tell, all of them.
Object::Ptr changedMembers(const Object& before, const Object& after)
{
    if (before.size() > after.size())
        return new Object(after);
    Object::Ptr changed = new Object;
    for (const auto& [name, value]: after)
        if (before.get(name) != value)
            changed->set(name, value);
    return changed;
}

Object::Ptr find(const Elements& elements, const std::string& id)
{
    const auto found = elements.find(id);
    return found == elements.end() ? Object::Ptr() : found->second;
}

void compare(const std::string& resource, const Elements& before, const Elements& after, std::vector<Change>& changes)
{
    for (const auto& [id, element]: before)
    {
        const Object::Ptr now = find(after, id);
        if (!now || !isSameElement(*element, *now))
            changes.push_back({Change::GONE, resource, id, element});
    }
    for (const auto& [id, element]: after)
    {
        const Object::Ptr old = find(before, id);
        if (!old || !isSameElement(*old, *element))
            changes.push_back({Change::APPEARED, resource, id, element});
        else if (const Object::Ptr changed = changedMembers(*old, *element); changed->size() > 0)
            changes.push_back({Change::CHANGED, resource, id, changed});
    }
}

} // namespace

const std::string STARTED = "startedAfterBootSeconds";

std::vector<Change> difference(const Snapshot& before, const Snapshot& after)
{
    static const Elements none;
    std::vector<Change> changes;
    for (const auto& [resource, elements]: after)
    {
        const auto old = before.find(resource);
        compare(resource, old == before.end() ? none : old->second, elements, changes);
    }
    return changes;
}

} // namespace SystemMonitor
