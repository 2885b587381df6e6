#include "LineOutput.h"

#include <Poco/Exception.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <unistd.h>

namespace Kesa::Client
{

void LineOutput::write(const std::string& line)
{
    const std::string text = line + "\n";
    std::string_view rest(text);
    while (m_open && !rest.empty())
    {
        const ssize_t count = ::write(m_descriptor, rest.data(), rest.size());
        if (count >= 0)
            rest.remove_prefix(static_cast<std::size_t>(count));
        else if (errno == EPIPE || errno == EINTR)
            m_open = false;
        else
            throw Poco::WriteFileException("cannot write the output", std::strerror(errno));
    }
}

} // namespace Kesa::Client
