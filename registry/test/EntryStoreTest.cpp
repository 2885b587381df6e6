#include "EntryStore.h"

#include "CapturedLog.h"
#include "StateFile.h"
#include "TestDirectory.h"
#include "TestEntries.h"
#include "TestTools.h"

#include <JSONTools.h>

#include <Poco/Exception.h>

#include <gtest/gtest.h>

#include <barrier>
#include <filesystem>
#include <set>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>

using namespace Kesa::Registry;
using Kesa::Registry::Test::contentOf;
using Kesa::Registry::Test::entryOf;
using Kesa::Registry::Test::TestDirectory;
using Kesa::Test::CapturedLog;
using Outcome = EntryStore::Outcome;

namespace
{

const std::string NOBODY = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";

std::unique_ptr<EntryStore> openStore(const std::string& path)
{
    return std::make_unique<EntryStore>(std::make_unique<StateFile>(path, EntryReader(true)));
}

std::vector<std::string> idsIn(const EntryStore::Text& list)
{
    Poco::JSON::Object::Ptr object;
    EXPECT_TRUE(Kesa::Util::JSONTools::parseJSONString(*list, object)) << *list;
    EXPECT_EQ(object->getValue<std::string>("status"), "ok");
    std::vector<std::string> ids;
    for (const auto& element: *object->getArray("data"))
        ids.push_back(element.extract<Poco::JSON::Object::Ptr>()->getValue<std::string>("id"));
    return ids;
}

/// Counts the files that take another's place in a directory.
class RenameCount
{
public:
    explicit RenameCount(const std::string& directory): m_watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        ::inotify_add_watch(m_watch, directory.c_str(), IN_MOVED_TO);
    }
    ~RenameCount() { ::close(m_watch); }
    RenameCount(const RenameCount&) = delete;
    RenameCount& operator=(const RenameCount&) = delete;

    /// Those since the last call.
    int take() const
    {
        alignas(inotify_event) char buffer[64 * 1024];
        int count = 0;
        for (ssize_t left; (left = ::read(m_watch, buffer, sizeof buffer)) > 0;)
            for (char* at = buffer; at < buffer + left; ++count)
                at += sizeof(inotify_event) + reinterpret_cast<inotify_event*>(at)->len;
        return count;
    }

private:
    const int m_watch;
};

/// Keeps a state file from being replaced, for the object's own lifetime.
class BlockedFile
{
public:
    explicit BlockedFile(const std::string& path): m_obstacle(path + ".new")
    {
        std::filesystem::create_directory(m_obstacle);
    }
    ~BlockedFile() { std::filesystem::remove(m_obstacle); }
    BlockedFile(const BlockedFile&) = delete;
    BlockedFile& operator=(const BlockedFile&) = delete;

private:
    const std::filesystem::path m_obstacle;
};

} // namespace

// --- in memory ---

TEST(EntryStoreTest, GivesBackWhatWasAdded)
{
    EntryStore store;
    const EntryPtr clock = entryOf("clock");
    EXPECT_EQ(store.add(clock), Outcome::Done);
    EXPECT_EQ(store.find(clock->id), clock);
    EXPECT_EQ(store.find(NOBODY), nullptr);
    EXPECT_EQ(store.size(), 1U);
}

TEST(EntryStoreTest, MakesTwoEntriesOfTwoRegistrationsOfOneName)
{
    EntryStore store;
    const EntryPtr first = entryOf("clock");
    const EntryPtr second = entryOf("clock");
    store.add(first);
    store.add(second);
    EXPECT_EQ(idsIn(store.list("clock")), (std::vector<std::string>{first->id, second->id})) << "the older one first";
}

TEST(EntryStoreTest, ListsAllOrThoseOfOneName)
{
    EntryStore store;
    EXPECT_EQ(*store.list(), R"({"data":[],"status":"ok"})");
    const EntryPtr clock = entryOf("clock");
    const EntryPtr bell = entryOf("bell");
    store.add(clock);
    store.add(bell);
    store.add(entryOf("bells"));
    EXPECT_EQ(idsIn(store.list()).size(), 3U);
    EXPECT_EQ(idsIn(store.list("bell")), std::vector<std::string>{bell->id});
    EXPECT_EQ(*store.list("bel"), R"({"data":[],"status":"ok"})");
    EXPECT_EQ(*store.list(""), R"({"data":[],"status":"ok"})");
}

TEST(EntryStoreTest, MakesTheListOnceAndAnewAfterAChange)
{
    EntryStore store;
    store.add(entryOf("clock"));
    const EntryStore::Text list = store.list();
    EXPECT_EQ(store.list(), list) << "the same bytes";
    store.add(entryOf("bell"));
    EXPECT_EQ(idsIn(store.list()).size(), 2U);
    EXPECT_EQ(idsIn(list).size(), 1U) << "who still sends the old one is not disturbed";
}

TEST(EntryStoreTest, RemovesAnEntryOnce)
{
    EntryStore store;
    const EntryPtr clock = entryOf("clock");
    store.add(clock);
    EntryPtr removed;
    EXPECT_EQ(store.remove(clock->id, &removed), Outcome::Done);
    EXPECT_EQ(removed, clock);
    EXPECT_EQ(store.remove(clock->id, &removed), Outcome::Unknown);
    EXPECT_EQ(removed, nullptr);
    EXPECT_EQ(*store.list(), R"({"data":[],"status":"ok"})");
}

TEST(EntryStoreTest, RemovesSeveralAndSkipsWhatIsUnknownOrNamedTwice)
{
    EntryStore store;
    const EntryPtr clock = entryOf("clock");
    const EntryPtr bell = entryOf("bell");
    store.add(clock);
    store.add(bell);
    store.add(entryOf("tower"));
    EXPECT_EQ(store.remove(std::vector<std::string>{clock->id, NOBODY, clock->id, bell->id}),
              (EntryStore::Entries{clock, bell}));
    EXPECT_EQ(store.size(), 1U);
}

TEST(EntryStoreTest, TakesAsManyEntriesAsItMayAndOneMoreWhenOneWent)
{
    EntryStore store;
    const EntryPtr first = entryOf("clock");
    store.add(first);
    for (std::size_t i = 1; i < EntryStore::MAX_ENTRIES; ++i)
    {
        auto copy = std::make_shared<Entry>(*first);
        copy->id = std::to_string(i);
        ASSERT_EQ(store.add(copy), Outcome::Done);
    }
    EXPECT_EQ(store.add(entryOf("clock")), Outcome::Full);
    EXPECT_EQ(store.remove(first->id), Outcome::Done);
    EXPECT_EQ(store.add(entryOf("clock")), Outcome::Done);
}

TEST(EntryStoreTest, IsFullWhenTheTextsAreTooLongTogether)
{
    EntryStore store;
    Entry large = *entryOf("clock");
    large.text = std::string(EntryStore::MAX_BYTES / 2, ' ');
    EXPECT_EQ(store.add(std::make_shared<Entry>(large)), Outcome::Done);
    large.id = NOBODY;
    EXPECT_EQ(store.add(std::make_shared<Entry>(large)), Outcome::Done);
    EXPECT_EQ(store.add(entryOf("clock")), Outcome::Full);
    EXPECT_EQ(store.remove(NOBODY), Outcome::Done);
    EXPECT_EQ(store.add(entryOf("clock")), Outcome::Done);
}

// --- with a file ---

TEST(EntryStoreTest, BeginsWithWhatTheFileHolds)
{
    const TestDirectory directory;
    const EntryPtr clock = entryOf("clock");
    const EntryPtr bell = entryOf("bell");
    {
        const auto store = openStore(directory.file("state"));
        store->add(clock);
        store->add(bell);
        store->add(entryOf("tower"));
        store->remove(store->entries().back()->id);
    }
    const auto store = openStore(directory.file("state"));
    EXPECT_EQ(store->size(), 2U);
    ASSERT_TRUE(store->find(clock->id));
    EXPECT_EQ(store->find(clock->id)->text, clock->text);
    EXPECT_EQ(store->remove(bell->id), Outcome::Done);
}

TEST(EntryStoreTest, ChangesNothingWhenTheFileCannotBeWritten)
{
    const TestDirectory directory;
    const std::string path = directory.file("state");
    const auto store = openStore(path);
    const EntryPtr clock = entryOf("clock");
    store->add(clock);
    const std::string before = contentOf(path);
    const CapturedLog log;
    {
        const BlockedFile blocked(path);
        EXPECT_EQ(store->add(entryOf("bell")), Outcome::NotSaved);
        EXPECT_EQ(store->remove(clock->id), Outcome::NotSaved);
        EXPECT_TRUE(store->remove(std::vector<std::string>{clock->id}).empty());
        EXPECT_TRUE(log.containsPart(Poco::Message::PRIO_ERROR, path + " cannot be written beside"));
        EXPECT_EQ(log.count(Poco::Message::PRIO_ERROR), 1U) << "a full disk is not filled with log lines";
        EXPECT_EQ(log.count(Poco::Message::PRIO_WARNING), 0U);
    }
    EXPECT_EQ(contentOf(path), before);
    EXPECT_EQ(idsIn(store->list()), std::vector<std::string>{clock->id});
    EXPECT_EQ(store->add(entryOf("bell")), Outcome::Done) << "it goes on when the file can be written again";
    EXPECT_TRUE(log.containsPart(Poco::Message::PRIO_WARNING, "can be saved again"));
}

TEST(EntryStoreTest, DoesNotWriteForAChangeThatChangesNothing)
{
    const TestDirectory directory;
    const std::string path = directory.file("state");
    const auto store = openStore(path);
    const BlockedFile blocked(path);
    EXPECT_EQ(store->remove(NOBODY), Outcome::Unknown);
}

TEST(EntryStoreTest, WritesChangesThatWaitTogether)
{
    constexpr int THREADS = 16;
    const TestDirectory directory;
    const auto store = openStore(directory.file("state"));
    const RenameCount renames(directory.file("."));
    EXPECT_TRUE(eventually(
        [&]
        {
            std::barrier together(THREADS);
            std::vector<std::thread> threads;
            for (int i = 0; i < THREADS; ++i)
                threads.emplace_back(
                    [&]
                    {
                        const EntryPtr entry = entryOf("clock");
                        together.arrive_and_wait();
                        EXPECT_EQ(store->add(entry), Outcome::Done);
                    });
            for (std::thread& thread: threads)
                thread.join();
            const int count = renames.take();
            EXPECT_GE(count, 1);
            return count < THREADS;
        }));
}

TEST(EntryStoreTest, KeepsMemoryAndFileInAgreementUnderChangesFromAllSides)
{
    constexpr int THREADS = 8;
    constexpr int ROUNDS = 40;
    const TestDirectory directory;
    const std::string path = directory.file("state");
    std::set<std::string> expected;
    {
        const auto store = openStore(path);
        Kesa::Util::FastMutex mutex;
        const auto work = [&](int number)
        {
            for (int i = 0; i < ROUNDS; ++i)
            {
                const EntryPtr entry = entryOf("service" + std::to_string(number));
                EXPECT_EQ(store->add(entry), Outcome::Done);
                EXPECT_TRUE(store->find(entry->id));
                if (i % 2 == 0)
                    EXPECT_EQ(store->remove(entry->id), Outcome::Done);
                else
                {
                    Kesa::Util::ScopedLock<Kesa::Util::FastMutex> lock(mutex);
                    expected.insert(entry->id);
                }
                EXPECT_FALSE(store->list()->empty());
            }
        };
        std::vector<std::thread> threads;
        for (int i = 0; i < THREADS; ++i)
            threads.emplace_back(work, i);
        for (std::thread& thread: threads)
            thread.join();
        const auto listed = idsIn(store->list());
        EXPECT_EQ(std::set<std::string>(listed.begin(), listed.end()), expected);
        EXPECT_EQ(listed.size(), expected.size());
    }
    const auto listed = idsIn(openStore(path)->list());
    EXPECT_EQ(std::set<std::string>(listed.begin(), listed.end()), expected);
}
