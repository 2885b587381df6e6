#pragma once

#include "Export.h"

#include <Poco/AutoPtr.h>
#include <Poco/Message.h>

#include <string>

namespace Poco
{
class Channel;
class Logger;
} // namespace Poco

namespace Logging
{

/// The process's logger and its threshold.
///
/// Threads: any; but POCO takes a channel or a level only while nobody logs, so configure before other threads start.
///          IsLogLevelActive is one relaxed atomic read, since it guards every log statement on the hot paths.
class KESA_API Log
{
public:
    /// True when a message of this priority would be written.
    static bool IsLogLevelActive(Poco::Message::Priority priority);

    /// The logger that all statements write to. It may be given a channel of the application's with setChannel().
    static Poco::Logger& Logger();

    /// Sends the log to the file of this name, or to standard error when the name is empty.
    /// Raises a Poco::FileException when the file cannot be opened.
    static void ConfigureLogging(const std::string& fileName);

    /// Sets the threshold of the logger with this name and of those below it; an empty name means all loggers.
    static void SetLogLevel(Poco::Message::Priority priority, const std::string& name);

    /// "Trace", "Debug", "Info", "Notice", "Warning", "Error", "Critical" or "Fatal".
    static std::string logLevelToString(Poco::Message::Priority priority);

    /// The threshold: messages up to this priority are written.
    static Poco::Message::Priority GetLogLevel();

    /// Replaces the process's logger; with `takeLevel` its level becomes the threshold, else it gets the present one.
    /// Shares the logger. The previous one lives on in POCO's registry.
    static void SetLogger(Poco::AutoPtr<Poco::Logger>& logger, bool takeLevel);

    /// The channel that the log ends in. Shared with the caller.
    static Poco::AutoPtr<Poco::Channel> GetCompoundLogChannel();
};

} // namespace Logging
