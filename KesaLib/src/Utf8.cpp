#include "Utf8.h"

namespace Kesa::Command
{

namespace
{
const std::size_t EXCERPT_LENGTH = 64;

bool isContinuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

/// The length that the first byte announces; 0 for a byte that begins no character.
std::size_t announcedLength(unsigned char first)
{
    if (first < 0x80)
        return 1;
    if (first >= 0xC2 && first <= 0xDF)
        return 2;
    if (first >= 0xE0 && first <= 0xEF)
        return 3;
    return first >= 0xF0 && first <= 0xF4 ? 4 : 0;
}

/// Rules out overlong forms, surrogates and what lies above U+10FFFF, all of which show in the second byte.
bool isSecondByteInRange(unsigned char first, unsigned char second)
{
    switch (first)
    {
    case 0xE0:
        return second >= 0xA0;
    case 0xED:
        return second <= 0x9F;
    case 0xF0:
        return second >= 0x90;
    case 0xF4:
        return second <= 0x8F;
    default:
        return true;
    }
}
} // namespace

std::size_t utf8Length(const std::string& text, std::size_t position)
{
    const auto first = static_cast<unsigned char>(text[position]);
    const std::size_t length = announcedLength(first);
    if (length < 2)
        return length;
    if (position + length > text.size() || !isSecondByteInRange(first, static_cast<unsigned char>(text[position + 1])))
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if (!isContinuation(static_cast<unsigned char>(text[position + i])))
            return 0;
    return length;
}

bool isUtf8(const std::string& text)
{
    for (std::size_t position = 0; position < text.size();)
    {
        const std::size_t length = utf8Length(text, position);
        if (length == 0)
            return false;
        position += length;
    }
    return true;
}

std::string toValidUtf8(const std::string& text)
{
    std::string valid;
    valid.reserve(text.size());
    for (std::size_t position = 0; position < text.size();)
    {
        const std::size_t length = utf8Length(text, position);
        if (length == 0)
            valid += REPLACEMENT_CHARACTER;
        else
            valid.append(text, position, length);
        position += length == 0 ? 1 : length;
    }
    return valid;
}

std::string excerpt(const std::string& text)
{
    if (text.size() <= EXCERPT_LENGTH)
        return text;
    std::size_t end = EXCERPT_LENGTH;
    while (end > 0 && isContinuation(static_cast<unsigned char>(text[end])))
        --end;
    return text.substr(0, end) + "...";
}

} // namespace Kesa::Command
