#pragma once

#include <Poco/JSON/Object.h>

#include <map>
#include <string>
#include <vector>

namespace SystemMonitor
{

/// Orders ids so that "cpu2" stands before "cpu10".
struct ById
{
    bool operator()(const std::string& a, const std::string& b) const
    {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    }
};

/// The elements of one resource, from their id to their JSON.
typedef std::map<std::string, Poco::JSON::Object::Ptr, ById> Elements;

/// The state of the machine at one moment, from the name of a resource to its elements. Nobody changes one, or an
/// element in it, once it was taken, so any number of threads may read it.
typedef std::map<std::string, Elements> Snapshot;

/// What happened to one element between two snapshots.
struct Change
{
    enum Kind
    {
        APPEARED,
        CHANGED,
        GONE
    };

    Kind kind;
    std::string resource;
    std::string id;
    /// The whole element that appeared or went, or only those members of it that are different now.
    Poco::JSON::Object::Ptr data;
};

/// A process's number may be given to another one at once, which this member tells apart: an element in which it is
/// different is a new one under an old id.
extern const std::string STARTED;

/// All that happened from `before` to `after`: for each resource first what went, then what came or is different.
std::vector<Change> difference(const Snapshot& before, const Snapshot& after);

} // namespace SystemMonitor
