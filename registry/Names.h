#pragma once

#include <string_view>

namespace Kesa::Registry
{

constexpr std::size_t MAX_NAME = 64; ///< characters of a service's name

/// True for a text such as "550e8400-e29b-41d4-a716-446655440000", in any letter case.
bool isEntryId(std::string_view text);

/// True for a name that a service may be registered under: 1 to 64 of A-Z a-z 0-9 . _ -, but not "registry" and nothing
/// that could be taken for the id of an entry.
bool isServiceName(std::string_view text);

} // namespace Kesa::Registry
