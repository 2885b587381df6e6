#include "MemoryRegistry.h"
#include "RegistryAgent.h"
#include "TestTools.h"

#include <CapturedLog.h>
#include <Entries.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

using Kesa::Host::RegistryAgent;
using Kesa::Test::CapturedLog;
using Kesa::Test::entryOf;
using Kesa::Test::FakeRegistry;
using testing::ElementsAre;

namespace
{

/// Registers at once, and comes back at once.
std::unique_ptr<RegistryAgent> startAgent(const std::string& name)
{
    auto agent = std::make_unique<RegistryAgent>(entryOf(name), RegistryAgent::Times{60000, 60000, 1});
    agent->start();
    EXPECT_TRUE(eventually([&] { return !agent->id().empty(); }));
    return agent;
}

/// The monitor looks for the first time ten seconds after its start; so several tests in one share that time.
template <class Condition>
bool beforeTheSecondLook(Condition condition)
{
    return eventually(condition) || eventually(condition);
}

} // namespace

TEST(RegistryAgentWatchTest, EntryThatIsGoneAndNoOtherIsRegisteredAgainOnce)
{
    CapturedLog log;
    std::string slowId;
    std::atomic<bool> isHanging{false};
    MemoryRegistry registry(
        [&](const std::string& request) -> std::optional<MemoryRegistry::Answer>
        {
            if (!isHanging || request.compare(0, 6 + slowId.size(), "HEAD /" + slowId) != 0)
                return std::nullopt;
            return MemoryRegistry::Answer{"", MemoryRegistry::Answer::HANG};
        });
    const auto kept = startAgent("kept");
    const auto lost = startAgent("lost");
    const auto slow = startAgent("slow");
    slowId = slow->id();
    isHanging = true;
    const std::string lostId = lost->id();
    registry.remove(lostId);

    ASSERT_TRUE(beforeTheSecondLook([&] { return registry.count("PUT /lost") == 2; }));
    ASSERT_TRUE(eventually([&] { return lost->id() != lostId && !lost->id().empty(); }));
    EXPECT_THAT(registry.ids("lost"), ElementsAre(lost->id()));
    ASSERT_TRUE(beforeTheSecondLook([&] { return registry.count("HEAD /" + kept->id()) > 0; }));
    EXPECT_EQ(registry.count("PUT /kept"), 1) << "the registry was found to be there, and that is no reason";

    // A stop while the monitor waits for the answer to a check.
    ASSERT_TRUE(beforeTheSecondLook([&] { return registry.count("HEAD /" + slowId) > 0; }));
    const Stopwatch end;
    slow->stop();
    EXPECT_LT(end.milliseconds(), RegistryAgent::STOP_TIME + 1000);

    lost->stop();
    EXPECT_EQ(registry.count("DELETE /" + lostId), 0) << "what is gone is not removed again";
    EXPECT_THAT(registry.ids("lost"), ElementsAre());
    EXPECT_EQ(log.count(Poco::Message::PRIO_WARNING,
                        "The entry of 'lost' at the service registry is gone. Registering again."),
              1U);
}
