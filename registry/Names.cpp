#include "Names.h"

#include <Poco/Ascii.h>

#include <algorithm>

namespace Kesa::Registry
{

namespace
{

constexpr std::size_t ID_LENGTH = 36;
constexpr std::size_t ID_DIGITS = 32;

bool isHyphenPlace(std::size_t i)
{
    return i == 8 || i == 13 || i == 18 || i == 23;
}

bool isNameCharacter(char c)
{
    return Poco::Ascii::isAlphaNumeric(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-';
}

bool isHexadecimal(std::string_view text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return Poco::Ascii::isHexDigit(static_cast<unsigned char>(c)); });
}

} // namespace

bool isEntryId(std::string_view text)
{
    if (text.size() != ID_LENGTH)
        return false;
    for (std::size_t i = 0; i < ID_LENGTH; ++i)
        if (isHyphenPlace(i) ? text[i] != '-' : !isHexadecimal(text.substr(i, 1)))
            return false;
    return true;
}

bool isServiceName(std::string_view text)
{
    if (text.empty() || text.size() > MAX_NAME || !std::all_of(text.begin(), text.end(), isNameCharacter))
        return false;
    const bool isShortId = text.size() == ID_DIGITS && isHexadecimal(text); // some write UUIDs without hyphens
    return text != "registry" && text != "." && text != ".." && !isEntryId(text) && !isShortId;
}

} // namespace Kesa::Registry
