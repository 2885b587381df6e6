#pragma once

#include <cstdint>

namespace Kesa::Data
{

/// The numeric id of a data object.
typedef std::int64_t XObjectId;

/// The id of no object.
inline constexpr XObjectId INVALID_XOBJ_ID = -1;

} // namespace Kesa::Data
