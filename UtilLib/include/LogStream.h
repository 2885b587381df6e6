#pragma once

#include "Export.h"
#include "Log.h"

#include <Poco/LogStream.h>

namespace Logging
{

/// The stream of one log statement; std::endl hands the text to the logger.
class KESA_API LogStream: public Poco::LogStream
{
public:
    LogStream(Poco::Logger& logger, Poco::Message::Priority priority);

    /// Streams where the statement stands, as "[File.cpp:12] ". Returns the stream itself.
    LogStream& addDefaultOutput(const char* file, int line);
};

} // namespace Logging

/// One log statement: KESA_LOG_INFO("New subscription: " << address). Nothing of it is evaluated below the threshold.
#define KESA_LOG(priority, prefix, message)                                                                            \
    do                                                                                                                 \
    {                                                                                                                  \
        if (::Logging::Log::IsLogLevelActive(priority))                                                                \
        {                                                                                                              \
            ::Logging::LogStream kesaLogStream(::Logging::Log::Logger(), priority);                                    \
            kesaLogStream.addDefaultOutput(__FILE__, __LINE__) << prefix << message << std::endl;                      \
        }                                                                                                              \
    } while (false)

#define KESA_LOG_TRACE(message) KESA_LOG(::Poco::Message::PRIO_TRACE, "Trace: ", message)
#define KESA_LOG_DEBUG(message) KESA_LOG(::Poco::Message::PRIO_DEBUG, "Debug: ", message)
#define KESA_LOG_INFO(message) KESA_LOG(::Poco::Message::PRIO_INFORMATION, "Info: ", message)
#define KESA_LOG_NOTICE(message) KESA_LOG(::Poco::Message::PRIO_NOTICE, "Notice: ", message)
#define KESA_LOG_WARNING(message) KESA_LOG(::Poco::Message::PRIO_WARNING, "Warning: ", message)
#define KESA_LOG_ERROR(message) KESA_LOG(::Poco::Message::PRIO_ERROR, "Error: ", message)
#define KESA_LOG_CRITICAL(message) KESA_LOG(::Poco::Message::PRIO_CRITICAL, "Critical: ", message)
