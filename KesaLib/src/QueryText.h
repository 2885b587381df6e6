#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Kesa::Command
{

/// One parameter of a query.
struct QueryPair
{
    std::string raw; ///< as it stands in the URL, "key=value"
    std::string key;
    std::string value;
    bool readable; ///< false: key and value are as in `raw`, since they do not decode to UTF-8
};

/// The most parameters that are read from a query, and the most names from a list, so that no client makes a small text
/// into much work or memory.
inline constexpr std::size_t MAX_PARAMETERS = 100;
inline constexpr std::size_t MAX_NAMES = 1000;

/// Takes a query apart, in its order and without empty pieces; "+" is a blank. Nothing is raised. What stands beyond
/// MAX_PARAMETERS becomes one unreadable parameter with the key "$".
std::vector<QueryPair> splitQuery(const std::string& rawQuery);

/// Splits a list at its commas. Empty if the list is, or one of its names, and for more than MAX_NAMES of them.
std::vector<std::string> splitNames(const std::string& list);

/// A number of decimal digits alone, where a larger one counts as `largest`; nothing for any other text.
std::optional<uint64_t> readNumber(const std::string& text, uint64_t largest);

/// Whether `text` is "-" with decimal digits.
bool isNegativeNumber(const std::string& text);

} // namespace Kesa::Command
