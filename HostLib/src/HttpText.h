#pragma once

#include "Export.h"

#include <string_view>

namespace Kesa::Host
{

/// A byte that may stand in a word of HTTP, such as a method or a field name.
KESA_API bool isTokenCharacter(unsigned char c);
/// True for a word of HTTP: not empty, and nothing but token characters.
KESA_API bool isToken(std::string_view text);
/// The text without blanks and tabs around it.
KESA_API std::string_view trimmed(std::string_view text);
/// Compares ASCII texts without regard to case.
KESA_API bool equalsIgnoringCase(std::string_view a, std::string_view b);
/// True if the comma-separated list holds the word, in any letter case.
KESA_API bool listHolds(std::string_view list, std::string_view word);

} // namespace Kesa::Host
