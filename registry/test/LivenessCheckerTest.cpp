#include "LivenessChecker.h"

#include "CapturedLog.h"
#include "FakeService.h"
#include "TestEntries.h"
#include "TestTools.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <sys/resource.h>

using namespace Kesa::Registry;
using Kesa::Registry::Test::entryOf;
using Kesa::Registry::Test::FakeService;
using Poco::Net::StreamSocket;

namespace
{

const std::string OK = "HTTP/1.1 200 OK\r\n\r\n";

/// A port at which nothing listens.
int unusedPort()
{
    return Poco::Net::ServerSocket(Poco::Net::SocketAddress("127.0.0.1", 0)).address().port();
}

class LivenessCheckerTest: public testing::Test
{
protected:
    LivenessCheckerTest()
    {
        options.period = 20;
        options.timeout = 5000; // sanitizers are slow
    }

    void start() { begin().start(); }

    /// A checker that does not run yet.
    LivenessChecker& begin()
    {
        checker = std::make_unique<LivenessChecker>(
            [this](const std::string& id)
            {
                std::lock_guard lock(mutex);
                return left.count(id) == 0;
            },
            [this](const std::vector<std::string>& ids)
            {
                std::lock_guard lock(mutex);
                dead.insert(dead.end(), ids.begin(), ids.end());
            },
            options);
        return *checker;
    }

    EntryPtr watch(int port, bool atOnce = true)
    {
        const EntryPtr entry = entryOf("clock", port);
        checker->watch(*entry, atOnce);
        return entry;
    }

    bool isDead(const EntryPtr& entry)
    {
        std::lock_guard lock(mutex);
        return std::count(dead.begin(), dead.end(), entry->id) > 0;
    }

    void forget(const EntryPtr& entry)
    {
        std::lock_guard lock(mutex);
        left.insert(entry->id);
    }

    LivenessChecker::Options options;
    std::mutex mutex; ///< guards the two below
    std::set<std::string> left;
    std::vector<std::string> dead;
    std::unique_ptr<LivenessChecker> checker;
};

struct Answer
{
    std::string text;
    bool isAlive;
};

const Answer ANSWERS[] = {
    {"HTTP/1.1 200 OK\r\n\r\n", true},
    {"HTTP/1.1 404 Not Found\r\n", true},
    {"HTTP/1.0 500 Oops\r\n", true},
    {"HTTP/1.1 100 Continue\r\n", true},
    {"HTTP/2.0 501\r\n", true},
    {"HTTP/1.1 204", true},
    {"", false},
    {"HTTP/1.1 20", false},
    {"SSH-2.0-OpenSSH_9.2\r\n", false},
    {"HTTP/1.1 2x0 OK\r\n", false},
    {"http/1.1 200 OK\r\n", false},
    {"HTTP/11 2000 OK\r\n", false},
};

class LivenessAnswerTest: public LivenessCheckerTest, public testing::WithParamInterface<Answer>
{
};

} // namespace

TEST_P(LivenessAnswerTest, AnyHttpAnswerCountsAndNothingElse)
{
    FakeService service(FakeService::says(GetParam().text));
    start();
    const EntryPtr entry = watch(service.port());
    EXPECT_TRUE(eventually([&] { return service.requests() >= 6; }));
    EXPECT_EQ(isDead(entry), !GetParam().isAlive);
}

TEST_P(LivenessAnswerTest, AnAnswerMayComeByteByByte)
{
    FakeService service(
        [](StreamSocket& socket, int)
        {
            socket.setNoDelay(true);
            for (const char byte: GetParam().text)
                socket.sendBytes(&byte, 1);
        });
    start();
    const EntryPtr entry = watch(service.port());
    EXPECT_TRUE(eventually([&] { return service.requests() >= 6; }));
    EXPECT_EQ(isDead(entry), !GetParam().isAlive);
}

INSTANTIATE_TEST_SUITE_P(Answers, LivenessAnswerTest, testing::ValuesIn(ANSWERS));

TEST_F(LivenessCheckerTest, AsksWithHeadForTheEntrysUri)
{
    FakeService service(FakeService::says(OK));
    start();
    watch(service.port());
    EXPECT_TRUE(eventually([&] { return service.requests() > 0; }));
    EXPECT_EQ(service.lastRequest(), "HEAD /clock HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(service.port()) +
                                         "\r\nConnection: close\r\n\r\n");
}

TEST_F(LivenessCheckerTest, GivesUpAServiceAfterThreeRefusedConnections)
{
    options.period = 50;
    start();
    const Stopwatch time;
    const EntryPtr entry = watch(unusedPort());
    EXPECT_TRUE(eventually([&] { return isDead(entry); }));
    EXPECT_GE(time.milliseconds(), 2 * 50) << "the third check begins two periods after the first";
}

TEST_F(LivenessCheckerTest, GivesUpAServiceThatAcceptsAndNeverAnswers)
{
    const Poco::Net::ServerSocket silent(Poco::Net::SocketAddress("127.0.0.1", 0));
    options.period = 50;
    options.timeout = 100;
    start();
    const Stopwatch time;
    const EntryPtr entry = watch(silent.address().port());
    EXPECT_TRUE(eventually([&] { return isDead(entry); }));
    EXPECT_GE(time.milliseconds(), 2 * 50 + 100);
}

TEST_F(LivenessCheckerTest, FailuresCountOnlyInARow)
{
    FakeService service(
        [](StreamSocket& socket, int number)
        {
            if (number % 3 == 0)
                socket.sendBytes(OK.data(), static_cast<int>(OK.size()));
        });
    start();
    const EntryPtr entry = watch(service.port());
    EXPECT_TRUE(eventually([&] { return service.requests() >= 15; }));
    EXPECT_FALSE(isDead(entry));
}

TEST_F(LivenessCheckerTest, TellsAgainWhatIsStillWatched)
{
    start();
    const EntryPtr entry = watch(unusedPort());
    EXPECT_TRUE(eventually(
        [&]
        {
            std::lock_guard lock(mutex);
            return dead.size() >= 3;
        }));
}

TEST_F(LivenessCheckerTest, AsksNoMoreForWhatIsNotWatched)
{
    FakeService leaving(FakeService::says(OK));
    FakeService staying(FakeService::says(OK));
    start();
    const EntryPtr entry = watch(leaving.port());
    watch(staying.port());
    EXPECT_TRUE(eventually([&] { return leaving.requests() > 0; }));
    forget(entry);
    const int before = staying.requests();
    EXPECT_TRUE(eventually([&] { return staying.requests() >= before + 5; })); // what was under way is over by now
    const int asked = leaving.requests();
    EXPECT_TRUE(eventually([&] { return staying.requests() >= before + 15; }));
    EXPECT_EQ(leaving.requests(), asked);
}

TEST_F(LivenessCheckerTest, AsksANewServiceFirstAfterAPeriod)
{
    FakeService service(FakeService::says(OK));
    options.period = 200;
    start();
    const Stopwatch time;
    watch(service.port(), false);
    EXPECT_TRUE(eventually([&] { return service.requests() > 0; }));
    EXPECT_GE(time.milliseconds(), 200);
}

TEST_F(LivenessCheckerTest, AsksAtOnceWhatWasThereBeforeTheStart)
{
    FakeService service(FakeService::says(OK));
    options.period = 3600 * 1000;
    begin();
    watch(service.port(), true);
    checker->start();
    EXPECT_TRUE(eventually([&] { return service.requests() == 1; }));
}

TEST_F(LivenessCheckerTest, IsNotDelayedByHundredsThatHang)
{
    const Poco::Net::ServerSocket silent(Poco::Net::SocketAddress("127.0.0.1", 0), 1000);
    FakeService service(FakeService::says(OK));
    options.timeout = 60000;
    start();
    for (int i = 0; i < 400; ++i)
        watch(silent.address().port());
    watch(service.port());
    EXPECT_TRUE(eventually([&] { return service.requests() >= 5; }));
}

TEST_F(LivenessCheckerTest, AsksAllWithOneCheckAtATimeToo)
{
    FakeService service(FakeService::says(OK));
    options.parallel = 1;
    start();
    for (int i = 0; i < 10; ++i)
        watch(service.port());
    EXPECT_TRUE(eventually([&] { return service.requests() >= 40; }));
    checker->stop();
    EXPECT_TRUE(dead.empty());
}

TEST_F(LivenessCheckerTest, BlamesNoServiceForItsOwnLackOfDescriptors)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs descriptors of its own";
#endif
    FakeService service(FakeService::says(OK));
    Kesa::Test::CapturedLog log;
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    begin();
    watch(service.port());
    rlimit none = before;
    none.rlim_cur = 3; // all that are open stay
    ::setrlimit(RLIMIT_NOFILE, &none);
    checker->start();
    const bool isTold = eventually(
        [&] { return log.containsPart(Poco::Message::PRIO_WARNING, "Services cannot be checked at the moment"); });
    const Stopwatch time;
    EXPECT_TRUE(eventually([&] { return time.milliseconds() > 10 * options.period; })); // three checks would be over
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(isTold);
    EXPECT_TRUE(eventually([&] { return service.requests() >= 3; }));
    checker->stop();
    EXPECT_TRUE(dead.empty());
}

TEST_F(LivenessCheckerTest, StopsAtOnceWithChecksUnderWay)
{
    const Poco::Net::ServerSocket silent(Poco::Net::SocketAddress("127.0.0.1", 0));
    options.timeout = 3600 * 1000;
    const long descriptors = openDescriptors();
    start();
    for (int i = 0; i < 20; ++i)
        watch(silent.address().port());
    EXPECT_TRUE(eventually([&] { return openDescriptors() >= descriptors + 20; }));
    checker->stop();
    checker.reset();
    EXPECT_EQ(openDescriptors(), descriptors);
}
