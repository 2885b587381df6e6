#pragma once

#include <Poco/JSON/Object.h>

#include <string>

namespace Kesa::Host
{

/// What may stand in a store of documents, and how.
///
/// Threads: every operation from any thread.
class StoreRules
{
public:
    /// Raises Poco::InvalidArgumentException if nothing of this `kind`, as "A service", can have the name: it would not
    /// stand in a URL as it is.
    static void checkName(const std::string& kind, const std::string& name);
    /// Raises Poco::InvalidArgumentException if `schemaText` is neither empty nor a JSON Schema object.
    static void checkSpecification(const std::string& resource, const std::string& schemaText);
    /// Whether `text` is a UUID in its usual form, the only one in which an element is known.
    static bool isId(const std::string& text);
    /// The members of `base`, unless it is null, and those of `members`, which count where both have one.
    static Poco::JSON::Object::Ptr joined(const Poco::JSON::Object* base, const Poco::JSON::Object& members);
    /// Appends the object as JSON to `text`. Gives what is wrong with it, or an empty text.
    static std::string write(const Poco::JSON::Object::Ptr& object, std::string& text);
};

} // namespace Kesa::Host
