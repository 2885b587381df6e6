#include "RegistryAgent.h"

#include "MemoryRegistry.h"
#include "TestTools.h"

#include <Entries.h>
#include <LibraryThread.h>
#include <MemoryShortage.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Kesa::Host::RegistryAgent;
using Kesa::Test::entryOf;
using Kesa::Test::MemoryShortage;
using testing::ElementsAre;

/// POCO's SharedPtr loses its object when there is no memory for its counter. The sanitizer asks this function.
extern "C" int __lsan_is_turned_off()
{
    return 1;
}

TEST(RegistryAgentMemoryTest, ServiceIsRegisteredAndUnregisteredWhateverFails)
{
    MemoryRegistry registry;
    int strikes = 0;
    for (long allowed = 0; allowed < 600; allowed = allowed + 1 + allowed / 8)
    {
        const MemoryShortage shortage(&Kesa::Util::LibraryThread::isCurrent, allowed);
        RegistryAgent agent(entryOf("shop"), {5, 1});
        agent.start();
        ASSERT_TRUE(eventually([&] { return registry.ids("shop") == std::vector<std::string>{agent.id()}; }))
            << "allocation " << allowed;
        strikes += shortage.hasStruck() ? 1 : 0;
        agent.stop();
        registry.removeAll(); // the failure may have come just then
    }
    EXPECT_GT(strikes, 10) << "the failures have to be real";
}
