#pragma once

#include "Export.h"

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include <set>
#include <string>

namespace Kesa::Command
{
class RequestBase;
}
namespace Kesa::Service
{
class ServiceDataAccessPoint;
}

namespace Kesa::Host
{

/// Follows references: a text that is the URL of an element is replaced by that element, whether it is the value of a
/// member or stands in an array or object of it. `$expand=2` follows all of them two levels deep, `$expand=a,b` those
/// of the members `a` and `b` one level. The members `id` and `uri` stay as they are.
///
/// Ownership: borrows the request and the data access point.
/// Threads:   one thread at a time.
class KESA_API Expansion
{
public:
    static constexpr int MAX_OBJECTS = 1000; ///< references followed for one answer; further ones stay texts

    Expansion(Service::ServiceDataAccessPoint& data, const Command::RequestBase& request);

    /// True if the request asks for any.
    bool isWanted() const { return m_level > 0 || !m_properties.empty(); }
    /// A copy of `object` with its references followed; what was not followed is shared.
    Poco::JSON::Object::Ptr expand(const Poco::JSON::Object& object);

private:
    Poco::JSON::Object::Ptr expandMembers(const Poco::JSON::Object& object, unsigned int level, int depth);
    Poco::Dynamic::Var expandValue(const Poco::Dynamic::Var& value, unsigned int level, int depth);
    Poco::Dynamic::Var follow(const Poco::Dynamic::Var& text, unsigned int level, int depth);

    Service::ServiceDataAccessPoint& m_data;
    const unsigned int m_level;
    std::set<std::string> m_properties;
    int m_left = MAX_OBJECTS;
};

} // namespace Kesa::Host
