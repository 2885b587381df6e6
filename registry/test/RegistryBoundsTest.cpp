#include "EntryStore.h"
#include "RegistryRequests.h"
#include "TestEntries.h"

#include <ServiceRegistry.h>

#include <gtest/gtest.h>

#include <sstream>

using namespace Kesa::Registry;
using Kesa::Registry::Test::entryOf;
using Kesa::Registry::Test::registrationOf;
using Outcome = EntryStore::Outcome;

namespace
{

/// A member with so many elements.
std::string elements(std::size_t count)
{
    std::string text = ",\"x\":[0";
    for (std::size_t i = 1; i < count; ++i)
        text += ",0";
    return text + "]";
}

/// Registers one and the same until no more are taken; gives how many were.
std::size_t fill(EntryStore& store, const std::string& more)
{
    Entry entry = *entryOf("clock", 8080, more);
    for (std::size_t i = 0;; ++i)
    {
        entry.id = std::to_string(i);
        if (store.add(std::make_shared<Entry>(entry)) != Outcome::Done)
            return i;
    }
}

/// The registry's client reads all of the list.
void expectReadable(const EntryStore& store)
{
    std::istringstream list(*store.list());
    std::vector<Kesa::MicroServiceInfo> entries;
    EXPECT_TRUE(Kesa::extractMicroServiceInfosFromResponse(entries, list));
    EXPECT_EQ(entries.size(), store.size());
}

} // namespace

TEST(RegistryBoundsTest, ClientsReadAsManyEntriesAsThereMayBe)
{
    EntryStore store;
    EXPECT_EQ(fill(store, elements(16)), EntryStore::MAX_ENTRIES);
    expectReadable(store);
}

TEST(RegistryBoundsTest, ClientsReadTheLongestEntriesThatThereMayBe)
{
    const std::string frame = registrationOf("clock", 8080, R"(,"x":"")");
    const std::string most = R"(,"x":")" + std::string(RegistryRequests::MAX_BODY - frame.size(), 'x') + "\"";
    EntryStore store;
    EXPECT_LT(fill(store, most), EntryStore::MAX_BYTES / RegistryRequests::MAX_BODY);
    expectReadable(store);
}

TEST(RegistryBoundsTest, ClientsReadTheEntriesOfMostPartsThatThereMayBe)
{
    EntryStore store;
    EXPECT_EQ(fill(store, elements(EntryReader::MAX_PARTS - 5)), EntryStore::MAX_PARTS / (EntryReader::MAX_PARTS + 1));
    expectReadable(store);
}

TEST(RegistryBoundsTest, StoredEntryOfMostPartsIsReadAgain)
{
    const EntryPtr entry = entryOf("clock", 8080, elements(EntryReader::MAX_PARTS - 5));
    EXPECT_EQ(entry->parts, EntryReader::MAX_PARTS + 1) << "its id was added";
    EXPECT_EQ(EntryReader(true).readStored(entry->text)->text, entry->text);
}
