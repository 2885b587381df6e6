#include <Log.h>

#include <LogStream.h>

#include <CapturedLog.h>

#include <Poco/FileStream.h>
#include <Poco/StreamCopier.h>
#include <Poco/TemporaryFile.h>
#include <gtest/gtest.h>

#include <thread>

using Kesa::Test::CapturedLog;
using Logging::Log;
using Poco::Message;

namespace
{

/// Keeps the messages as the logger hands them on, position and prefix included.
class RawChannel: public Poco::Channel
{
public:
    void log(const Message& message) override { m_messages.push_back(message); }
    std::vector<Message> m_messages;
};

/// Puts logger, channel and level back.
class LogTest: public ::testing::Test
{
protected:
    LogTest(): m_logger(&Log::Logger(), true), m_channel(Log::GetCompoundLogChannel()), m_level(Log::GetLogLevel()) {}
    ~LogTest() override
    {
        Log::SetLogger(m_logger, false);
        m_logger->setChannel(m_channel);
        Log::SetLogLevel(m_level, "");
    }

    Poco::AutoPtr<RawChannel> raw()
    {
        Poco::AutoPtr<RawChannel> channel(new RawChannel);
        Log::Logger().setChannel(channel);
        return channel;
    }

    Poco::AutoPtr<Poco::Logger> m_logger;
    Poco::AutoPtr<Poco::Channel> m_channel;
    Message::Priority m_level;
};

TEST_F(LogTest, TheThresholdIsInfoUntilItIsSet)
{
    EXPECT_EQ(Log::GetLogLevel(), Message::PRIO_INFORMATION);
}

TEST_F(LogTest, AStatementHasPositionPrefixAndMessage)
{
    const auto channel = raw();
    const int line = __LINE__ + 1;
    KESA_LOG_INFO("New subscription: " << 5);
    ASSERT_EQ(channel->m_messages.size(), 1U);
    EXPECT_EQ(channel->m_messages[0].getText(), "[LogTest.cpp:" + std::to_string(line) + "] Info: New subscription: 5");
    EXPECT_EQ(channel->m_messages[0].getPriority(), Message::PRIO_INFORMATION);
}

TEST_F(LogTest, EachLevelWritesItsPriorityAndPrefix)
{
    CapturedLog log(Message::PRIO_TRACE);
    KESA_LOG_TRACE("text");
    KESA_LOG_DEBUG("text");
    KESA_LOG_INFO("text");
    KESA_LOG_NOTICE("text");
    KESA_LOG_WARNING("text");
    KESA_LOG_ERROR("text");
    KESA_LOG_CRITICAL("text");
    const auto entries = log.entries();
    ASSERT_EQ(entries.size(), 7U);
    for (std::size_t i = 0; i < entries.size(); ++i)
    {
        EXPECT_EQ(entries[i].priority, Message::PRIO_TRACE - static_cast<int>(i));
        EXPECT_EQ(entries[i].text, "text");
    }
}

TEST_F(LogTest, BelowTheThresholdNoArgumentIsEvaluated)
{
    CapturedLog log(Message::PRIO_NOTICE);
    int evaluated = 0;
    KESA_LOG_INFO("count " << ++evaluated);
    EXPECT_EQ(evaluated, 0);
    KESA_LOG_NOTICE("count " << ++evaluated);
    EXPECT_EQ(evaluated, 1);
    ASSERT_EQ(log.entries().size(), 1U);
    EXPECT_TRUE(log.contains(Message::PRIO_NOTICE, "count 1"));
}

TEST_F(LogTest, AStatementIsOneStatementForAnElse)
{
    CapturedLog log;
    if (log.entries().empty())
        KESA_LOG_INFO("empty");
    else
        KESA_LOG_INFO("not empty");
    EXPECT_TRUE(log.contains(Message::PRIO_INFORMATION, "empty"));
}

TEST_F(LogTest, TheThresholdLetsThroughWhatIsAsGrave)
{
    Log::SetLogLevel(Message::PRIO_WARNING, "");
    EXPECT_EQ(Log::GetLogLevel(), Message::PRIO_WARNING);
    EXPECT_TRUE(Log::IsLogLevelActive(Message::PRIO_CRITICAL));
    EXPECT_TRUE(Log::IsLogLevelActive(Message::PRIO_WARNING));
    EXPECT_FALSE(Log::IsLogLevelActive(Message::PRIO_NOTICE));
}

TEST_F(LogTest, ALevelForAnotherLoggerLeavesTheThreshold)
{
    Poco::Logger& other = Poco::Logger::get("Other");
    Log::SetLogLevel(Message::PRIO_DEBUG, "Other");
    EXPECT_EQ(other.getLevel(), Message::PRIO_DEBUG);
    EXPECT_EQ(Log::GetLogLevel(), Message::PRIO_INFORMATION);
    Log::SetLogLevel(Message::PRIO_ERROR, Log::Logger().name());
    EXPECT_EQ(Log::GetLogLevel(), Message::PRIO_ERROR);
    EXPECT_EQ(other.getLevel(), Message::PRIO_DEBUG);
}

TEST_F(LogTest, LevelsHaveTheirNames)
{
    EXPECT_EQ(Log::logLevelToString(Message::PRIO_FATAL), "Fatal");
    EXPECT_EQ(Log::logLevelToString(Message::PRIO_CRITICAL), "Critical");
    EXPECT_EQ(Log::logLevelToString(Message::PRIO_ERROR), "Error");
    EXPECT_EQ(Log::logLevelToString(Message::PRIO_WARNING), "Warning");
    EXPECT_EQ(Log::logLevelToString(Message::PRIO_NOTICE), "Notice");
    EXPECT_EQ(Log::logLevelToString(Message::PRIO_INFORMATION), "Info");
    EXPECT_EQ(Log::logLevelToString(Message::PRIO_DEBUG), "Debug");
    EXPECT_EQ(Log::logLevelToString(Message::PRIO_TRACE), "Trace");
}

TEST_F(LogTest, ALoggerOfTheApplicationTakesOver)
{
    Poco::AutoPtr<Poco::Logger> own(&Poco::Logger::get("Application"), true);
    Poco::AutoPtr<RawChannel> channel(new RawChannel);
    own->setChannel(channel);
    own->setLevel(Message::PRIO_DEBUG);
    Log::SetLogger(own, true);
    EXPECT_EQ(Log::GetLogLevel(), Message::PRIO_DEBUG);
    EXPECT_EQ(&Log::Logger(), own.get());
    KESA_LOG_DEBUG("seen");
    ASSERT_EQ(channel->m_messages.size(), 1U);
    EXPECT_EQ(channel->m_messages[0].getSource(), "Application");
}

TEST_F(LogTest, ALoggerMayBeGivenThePresentThreshold)
{
    Poco::AutoPtr<Poco::Logger> own(&Poco::Logger::get("Application"), true);
    own->setLevel(Message::PRIO_TRACE);
    Log::SetLogLevel(Message::PRIO_ERROR, "");
    Log::SetLogger(own, false);
    EXPECT_EQ(Log::GetLogLevel(), Message::PRIO_ERROR);
    EXPECT_EQ(own->getLevel(), Message::PRIO_ERROR);
}

TEST_F(LogTest, TheLogGoesToTheFileOfAName)
{
    Poco::TemporaryFile file;
    Log::ConfigureLogging(file.path());
    KESA_LOG_WARNING("to the file");
    Log::ConfigureLogging("");
    Poco::FileInputStream in(file.path());
    std::string text;
    Poco::StreamCopier::copyToString(in, text);
    EXPECT_NE(text.find("Warning: to the file\n"), std::string::npos) << text;
}

TEST_F(LogTest, AFileThatCannotBeOpenedIsAnErrorAndTheLogGoesOn)
{
    const auto channel = raw();
    EXPECT_THROW(Log::ConfigureLogging("/no/such/directory/log"), Poco::FileException);
    KESA_LOG_INFO("still here");
    EXPECT_EQ(channel->m_messages.size(), 1U);
}

TEST_F(LogTest, ACaptureSeesWhatThreadsLogAndLeavesNothingBehind)
{
    const auto before = raw();
    {
        CapturedLog log(Message::PRIO_INFORMATION);
        std::thread thread([] { KESA_LOG_INFO("from a thread"); });
        EXPECT_TRUE(log.waitFor(Message::PRIO_INFORMATION, "from a thread"));
        thread.join();
        EXPECT_FALSE(log.waitFor(Message::PRIO_INFORMATION, "never said", std::chrono::milliseconds(1)));
        EXPECT_TRUE(log.containsPart(Message::PRIO_INFORMATION, "a thr"));
        EXPECT_FALSE(log.contains(Message::PRIO_INFORMATION, "a thr"));
        log.clear();
        EXPECT_EQ(log.count(Message::PRIO_INFORMATION), 0U);
    }
    EXPECT_TRUE(before->m_messages.empty());
    KESA_LOG_INFO("after the capture");
    EXPECT_EQ(before->m_messages.size(), 1U);
}

TEST_F(LogTest, ACaptureKeepsAWrongPrefix)
{
    CapturedLog log;
    Logging::LogStream(Log::Logger(), Message::PRIO_ERROR) << "Info: text" << std::endl;
    EXPECT_FALSE(log.contains(Message::PRIO_ERROR, "text"));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, "Info: text"));
}

} // namespace
