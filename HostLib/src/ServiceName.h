#pragma once

#include "Export.h"

#include <string>

namespace Kesa::Host
{

/// Raises Poco::InvalidArgumentException, with the name and what is wrong with it, unless a service may have this name
/// at the registry: 1 to 64 of A-Z a-z 0-9 . _ -, but neither "registry" nor a UUID, which stand for something else in
/// the registry's URLs. Any thread.
KESA_API void checkServiceName(const std::string& name);

} // namespace Kesa::Host
