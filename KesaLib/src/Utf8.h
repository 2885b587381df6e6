#pragma once

#include <string>

namespace Kesa::Command
{

/// The length in bytes of the well-formed UTF-8 character at `position`, which is inside `text`; 0 if there is none.
std::size_t utf8Length(const std::string& text, std::size_t position);
/// Whether all of `text` is well-formed UTF-8.
bool isUtf8(const std::string& text);
/// `text` with the character U+FFFD in the place of each byte that is not part of well-formed UTF-8.
std::string toValidUtf8(const std::string& text);
/// The first 64 bytes of `text` at most, cut between two characters, with "..." where something is missing.
std::string excerpt(const std::string& text);

/// The character that stands for what cannot be read.
inline constexpr const char* REPLACEMENT_CHARACTER = "\xEF\xBF\xBD";

} // namespace Kesa::Command
