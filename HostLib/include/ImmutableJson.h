#pragma once

#include "Export.h"

#include <Poco/JSON/Object.h>

#include <string>

namespace Kesa::Host
{

/// What a data object offers, besides being one, whose content never changes: a change makes a new object. Its JSON is
/// then made once and shared by all who read it. Objects without it are rendered for every request.
///
/// Threads: every operation from any thread, at once.
class KESA_API ImmutableJson
{
public:
    virtual ~ImmutableJson();

    /// What toJSON(0) of the object gives, shared: nobody may change it.
    virtual const Poco::JSON::Object::Ptr& sharedJson() const = 0;
    /// The same as text. Valid as long as the object.
    virtual const std::string& jsonText() const = 0;
};

} // namespace Kesa::Host
