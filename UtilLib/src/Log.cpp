#include "Log.h"

#include "Mutex.h"

#include <Poco/ConsoleChannel.h>
#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>

#include <atomic>
#include <iostream>

namespace Logging
{

namespace
{

const char* const LOGGER_NAME = "Kesa";

/// A new channel that writes one line per message to the file, or to standard error.
Poco::Channel::Ptr makeChannel(const std::string& fileName)
{
    Poco::AutoPtr<Poco::Channel> sink;
    if (fileName.empty())
        sink = new Poco::ConsoleChannel(std::cerr);
    else
        sink = new Poco::FileChannel(fileName);
    sink->open();
    Poco::AutoPtr<Poco::Formatter> formatter = new Poco::PatternFormatter("%Y-%m-%dT%H:%M:%S.%iZ %I %t");
    return new Poco::FormattingChannel(formatter, sink);
}

/// The logger in use and its threshold. Never destroyed: statements may come from destructors of static objects.
struct State
{
    State(): logger(&Poco::Logger::get(LOGGER_NAME)), threshold(Poco::Message::PRIO_INFORMATION)
    {
        logger.load()->setChannel(makeChannel(""));
        logger.load()->setLevel(threshold);
    }

    std::atomic<Poco::Logger*> logger;
    std::atomic<int> threshold;
    Kesa::Util::FastMutex mutex; ///< one change of the configuration at a time
};

State& state()
{
    static State& instance = *new State;
    return instance;
}

} // namespace

bool Log::IsLogLevelActive(Poco::Message::Priority priority)
{
    return priority <= state().threshold.load(std::memory_order_relaxed);
}

Poco::Logger& Log::Logger()
{
    return *state().logger;
}

void Log::ConfigureLogging(const std::string& fileName)
{
    const auto channel = makeChannel(fileName);
    Kesa::Util::ScopedLock<Kesa::Util::FastMutex> lock(state().mutex);
    Logger().setChannel(channel);
}

void Log::SetLogLevel(Poco::Message::Priority priority, const std::string& name)
{
    Kesa::Util::ScopedLock<Kesa::Util::FastMutex> lock(state().mutex);
    Poco::Logger::setLevel(name, priority);
    if (name.empty()) // POCO reaches only loggers that hang below the root by name
        Logger().setLevel(priority);
    state().threshold = Logger().getLevel();
}

std::string Log::logLevelToString(Poco::Message::Priority priority)
{
    switch (priority)
    {
    case Poco::Message::PRIO_FATAL:
        return "Fatal";
    case Poco::Message::PRIO_CRITICAL:
        return "Critical";
    case Poco::Message::PRIO_ERROR:
        return "Error";
    case Poco::Message::PRIO_WARNING:
        return "Warning";
    case Poco::Message::PRIO_NOTICE:
        return "Notice";
    case Poco::Message::PRIO_INFORMATION:
        return "Info";
    case Poco::Message::PRIO_DEBUG:
        return "Debug";
    case Poco::Message::PRIO_TRACE:
        return "Trace";
    }
    return "Unknown";
}

Poco::Message::Priority Log::GetLogLevel()
{
    return static_cast<Poco::Message::Priority>(state().threshold.load());
}

void Log::SetLogger(Poco::AutoPtr<Poco::Logger>& logger, bool takeLevel)
{
    Kesa::Util::ScopedLock<Kesa::Util::FastMutex> lock(state().mutex);
    if (takeLevel)
        state().threshold = logger->getLevel();
    else
        logger->setLevel(state().threshold);
    logger->duplicate(); // the process's logger is never released: a statement may be using it right now
    state().logger = logger.get();
}

Poco::AutoPtr<Poco::Channel> Log::GetCompoundLogChannel()
{
    return Logger().getChannel();
}

} // namespace Logging
