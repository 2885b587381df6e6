#pragma once

#include "Export.h"

#include <cstddef>

namespace Kesa::Net
{

/// Tells whether bytes that arrive in pieces are UTF-8, at the first byte that cannot be.
///
/// Threads: one at a time.
class KESA_API Utf8Checker
{
public:
    /// Takes the next bytes; false when they cannot go on what came before. Then begin anew with reset().
    bool take(const char* bytes, std::size_t size);

    /// True when the bytes so far end with a whole character.
    bool isWhole() const { return m_left == 0; }

    void reset() { *this = Utf8Checker(); }

private:
    bool takeFirst(unsigned char byte);
    void expect(int count, unsigned char low, unsigned char high);

    int m_left = 0;              // bytes that the present character still lacks
    unsigned char m_low = 0x80;  // the next one is at least this
    unsigned char m_high = 0xBF; // and at most this
};

} // namespace Kesa::Net
