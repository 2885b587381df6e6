#include "RandomBytes.h"

#include <Poco/Exception.h>

#include <cerrno>
#include <cstring>
#include <sys/random.h>

namespace Kesa::Client
{

void fillRandom(unsigned char* buffer, std::size_t length)
{
    while (length > 0)
    {
        const ssize_t count = getrandom(buffer, length, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw Poco::SystemException("the kernel gives no random bytes", std::strerror(errno));
        buffer += count;
        length -= static_cast<std::size_t>(count);
    }
}

} // namespace Kesa::Client
