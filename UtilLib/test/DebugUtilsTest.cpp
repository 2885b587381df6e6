#include <DebugUtils.h>

#include <CapturedLog.h>

#include <gtest/gtest.h>

#include <pthread.h>
#include <thread>

namespace
{

/// The name that the operating system shows for a thread that was given this one.
std::string shownName(const std::string& shortName)
{
    std::string shown;
    std::thread(
        [&]
        {
            DebugUtils::setThreadName(shortName, "DebugUtilsTest::shownName");
            char name[16] = {};
            pthread_getname_np(pthread_self(), name, sizeof name);
            shown = name;
        })
        .join();
    return shown;
}

TEST(DebugUtilsTest, AThreadBearsItsShortName)
{
    EXPECT_EQ(shownName("SubscrUpdt"), "SubscrUpdt");
}

TEST(DebugUtilsTest, ANameOfFifteenCharactersIsWhole)
{
    EXPECT_EQ(shownName("123456789012345"), "123456789012345");
}

TEST(DebugUtilsTest, ALongerNameIsCutToFifteenCharacters)
{
    EXPECT_EQ(shownName("1234567890123456"), "123456789012345");
}

TEST(DebugUtilsTest, TheLongNameIsLogged)
{
    Kesa::Test::CapturedLog log;
    shownName("short");
    EXPECT_TRUE(log.contains(Poco::Message::PRIO_TRACE, "thread short runs DebugUtilsTest::shownName"));
}

} // namespace
