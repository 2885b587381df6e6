#include "HttpText.h"

#include <Poco/Ascii.h>

#include <algorithm>

namespace Kesa::Host
{

bool isTokenCharacter(unsigned char c)
{
    return Poco::Ascii::isAlphaNumeric(c) ||
           (c != 0 && std::string_view("!#$%&'*+-.^_`|~").find(static_cast<char>(c)) != std::string_view::npos);
}

bool isToken(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    const auto same = [](unsigned char x, unsigned char y)
    { return Poco::Ascii::toLower(x) == Poco::Ascii::toLower(y); };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

bool listHolds(std::string_view list, std::string_view word)
{
    while (!list.empty())
    {
        const std::size_t comma = list.find(',');
        if (equalsIgnoringCase(trimmed(list.substr(0, comma)), word))
            return true;
        list.remove_prefix(comma == std::string_view::npos ? list.size() : comma + 1);
    }
    return false;
}

} // namespace Kesa::Host
