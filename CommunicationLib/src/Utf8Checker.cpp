#include "Utf8Checker.h"

#include <cstdint>
#include <cstring>

namespace Kesa::Net
{

namespace
{

/// How many of the first bytes are ASCII; may stop up to seven bytes early.
std::size_t countAscii(const char* bytes, std::size_t size)
{
    std::size_t count = 0;
    std::uint64_t eight;
    for (; count + sizeof eight <= size; count += sizeof eight)
    {
        std::memcpy(&eight, bytes + count, sizeof eight);
        if (eight & 0x8080808080808080U)
            break;
    }
    return count;
}

} // namespace

bool Utf8Checker::take(const char* bytes, std::size_t size)
{
    for (std::size_t at = m_left == 0 ? countAscii(bytes, size) : 0; at < size; ++at)
    {
        const auto byte = static_cast<unsigned char>(bytes[at]);
        if (m_left == 0)
        {
            if (!takeFirst(byte))
                return false;
        }
        else if (byte < m_low || byte > m_high)
            return false;
        else
            expect(m_left - 1, 0x80, 0xBF);
    }
    return true;
}

/// The first byte of a character tells how many follow; after some of them the second has a narrower range, which keeps
/// out longer forms than needed, surrogates, and what is beyond U+10FFFF.
bool Utf8Checker::takeFirst(unsigned char byte)
{
    if (byte < 0x80)
        return true;
    if (byte < 0xC2 || byte > 0xF4)
        return false;
    if (byte < 0xE0)
        expect(1, 0x80, 0xBF);
    else if (byte < 0xF0)
        expect(2, byte == 0xE0 ? 0xA0 : 0x80, byte == 0xED ? 0x9F : 0xBF);
    else
        expect(3, byte == 0xF0 ? 0x90 : 0x80, byte == 0xF4 ? 0x8F : 0xBF);
    return true;
}

void Utf8Checker::expect(int count, unsigned char low, unsigned char high)
{
    m_left = count;
    m_low = low;
    m_high = high;
}

} // namespace Kesa::Net
