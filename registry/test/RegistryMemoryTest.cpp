#include "EntryStore.h"
#include "FakeService.h"
#include "LivenessChecker.h"
#include "MemoryShortage.h"
#include "StateFile.h"
#include "TestDirectory.h"
#include "TestEntries.h"
#include "TestTools.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Kesa::Registry;
using Kesa::Registry::Test::entryOf;
using Kesa::Registry::Test::TestDirectory;
using Kesa::Test::MemoryShortage;
using Outcome = EntryStore::Outcome;

namespace
{

thread_local bool isShort = false;

bool isOnShortThread()
{
    return isShort;
}

/// What comes out while one allocation of this thread fails; NotSaved also stands for an exception.
template <class Change>
Outcome changeShortOfMemory(Change change)
{
    Outcome outcome = Outcome::NotSaved;
    isShort = true;
    try
    {
        outcome = change();
    }
    catch (const std::bad_alloc&)
    {
    }
    isShort = false;
    return outcome;
}

std::unique_ptr<EntryStore> openStore(const std::string& path)
{
    return std::make_unique<EntryStore>(std::make_unique<StateFile>(path, EntryReader(true)));
}

} // namespace

TEST(RegistryMemoryTest, ChangeForWhichThereIsNoMemoryIsMadeOrNotMade)
{
    const TestDirectory directory;
    auto store = openStore(directory.file("state"));
    long failures = 0;
    for (bool hasStruck = true; hasStruck; ++failures)
    {
        ASSERT_LT(failures, 1000) << "each allocation fails once, and there are not that many";
        const EntryPtr entry = entryOf("clock");
        const MemoryShortage shortage(isOnShortThread, failures);
        const Outcome added = changeShortOfMemory([&] { return store->add(entry); });
        EXPECT_EQ(store->find(entry->id) != nullptr, added == Outcome::Done) << "allocation " << failures;
        if (added == Outcome::Done)
        {
            const Outcome removed = changeShortOfMemory([&] { return store->remove(entry->id); });
            EXPECT_EQ(store->find(entry->id) == nullptr, removed == Outcome::Done) << "allocation " << failures;
        }
        hasStruck = shortage.hasStruck();
    }
    EXPECT_GT(failures, 5) << "the failures have to be real";
    EXPECT_EQ(store->add(entryOf("bell")), Outcome::Done);
    const std::string list = *store->list();
    store.reset();
    EXPECT_EQ(*openStore(directory.file("state"))->list(), list) << "file and memory agree";
}

TEST(RegistryMemoryTest, ChangesOfOthersEndHoweverOneFails)
{
    const TestDirectory directory;
    const auto store = openStore(directory.file("state"));
    std::atomic<bool> isOver{false};
    std::atomic<std::size_t> done{0};
    const auto change = [&]
    {
        while (!isOver)
            done += store->add(entryOf("clock")) == Outcome::Done ? 1 : 0;
    };
    std::thread first(change);
    std::thread second(change);
    for (long allowed = 0; allowed < 200; ++allowed)
    {
        const EntryPtr entry = entryOf("bell");
        const MemoryShortage shortage(isOnShortThread, allowed % 40);
        done += changeShortOfMemory([&] { return store->add(entry); }) == Outcome::Done ? 1 : 0;
    }
    isOver = true;
    first.join();
    second.join();
    EXPECT_EQ(store->size(), done);
}

TEST(RegistryMemoryTest, ServicesAreCheckedOnWhateverFails)
{
    std::atomic<int> told{0};
    LivenessChecker::Options options;
    options.period = 1;
    const auto isWatched = [](const std::string&) { return isShort = true; }; // from now on this thread is short
    const auto gone = [&](const std::vector<std::string>& ids) { told += static_cast<int>(ids.size()); };
    LivenessChecker checker(isWatched, gone, options);
    const int nobody = Poco::Net::ServerSocket(Poco::Net::SocketAddress("127.0.0.1", 0)).address().port();
    checker.watch(*entryOf("clock", nobody), true);
    checker.start();
    for (long allowed = 0; allowed < 40; ++allowed)
    {
        const MemoryShortage shortage(isOnShortThread, allowed);
        ASSERT_TRUE(eventually([&] { return shortage.hasStruck(); }));
        const int before = told;
        ASSERT_TRUE(eventually([&] { return told > before; })) << "allocation " << allowed;
    }
}

TEST(RegistryMemoryTest, CallbackThatRaisesEndsOneRoundOfChecks)
{
    std::atomic<int> told{0};
    LivenessChecker::Options options;
    options.period = 1;
    const auto gone = [&](const std::vector<std::string>&)
    {
        if (++told < 3)
            throw std::runtime_error("not now");
    };
    LivenessChecker checker([](const std::string&) { return true; }, gone, options);
    const int nobody = Poco::Net::ServerSocket(Poco::Net::SocketAddress("127.0.0.1", 0)).address().port();
    checker.watch(*entryOf("clock", nobody), true);
    checker.start();
    EXPECT_TRUE(eventually([&] { return told > 3; }));
}
