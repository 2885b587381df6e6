#pragma once

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

namespace Kesa::Command
{

/// A copy of `object` that shares no part with it. Parts held by value stay so.
Poco::JSON::Object::Ptr deepCopy(const Poco::JSON::Object& object);

/// Replaces by deep copies those objects and arrays inside `object`, at any depth, that somebody else holds too. Parts
/// that are held by value stay so.
void separateFromOthers(Poco::JSON::Object& object);

} // namespace Kesa::Command
