#include "LogStream.h"

#include <cstring>

namespace Logging
{

LogStream::LogStream(Poco::Logger& logger, Poco::Message::Priority priority): Poco::LogStream(logger, priority) {}

LogStream& LogStream::addDefaultOutput(const char* file, int line)
{
    const char* slash = std::strrchr(file, '/');
    *this << '[' << (slash ? slash + 1 : file) << ':' << line << "] ";
    return *this;
}

} // namespace Logging
