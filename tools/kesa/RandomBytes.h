#pragma once

#include <cstddef>

namespace Kesa::Client
{

/// Fills `buffer` from the kernel's random source. Raises Poco::SystemException where there is none. Any thread.
void fillRandom(unsigned char* buffer, std::size_t length);

} // namespace Kesa::Client
