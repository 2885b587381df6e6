#include "StateFile.h"

#include "TestDirectory.h"
#include "TestEntries.h"

#include <Poco/Exception.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace Kesa::Registry;
using Kesa::Registry::Test::contentOf;
using Kesa::Registry::Test::entryOf;
using Kesa::Registry::Test::TestDirectory;
using Kesa::Registry::Test::writeFile;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

class StateFileTest: public testing::Test
{
protected:
    std::vector<EntryPtr> load() { return StateFile(path, reader).load(); }

    /// Why the file is not taken; empty if it is. Checks that it is left alone.
    std::string refusal()
    {
        const std::string before = contentOf(path);
        std::string reason;
        try
        {
            load();
        }
        catch (const Poco::Exception& e)
        {
            reason = e.message();
            EXPECT_THAT(reason, StartsWith("The state file " + path + " "));
            EXPECT_EQ(reason.find('\n'), std::string::npos) << "one line";
        }
        EXPECT_EQ(contentOf(path), before);
        return reason;
    }

    /// The content of a file with these entries.
    std::string written(const std::vector<EntryPtr>& entries)
    {
        StateFile(path, reader).save(entries);
        return contentOf(path);
    }

    const TestDirectory directory;
    const std::string path = directory.file("state");
    const EntryReader reader{true};
};

} // namespace

TEST_F(StateFileTest, GivesBackWhatWasSaved)
{
    const std::vector<EntryPtr> entries{entryOf("clock", 1, R"(,"x":"\n\u00e4")"), entryOf("bell", 2)};
    written(entries);
    const std::vector<EntryPtr> loaded = load();
    ASSERT_EQ(loaded.size(), 2U);
    EXPECT_EQ(loaded[0]->text, entries[0]->text);
    EXPECT_EQ(loaded[1]->text, entries[1]->text);
    EXPECT_EQ(loaded[1]->id, entries[1]->id);
}

TEST_F(StateFileTest, IsCreatedWhenThereIsNone)
{
    EXPECT_TRUE(load().empty());
    EXPECT_THAT(contentOf(path), StartsWith("kesa-registry state 1 entries 0 bytes 0 "));
    EXPECT_TRUE(load().empty());
}

TEST_F(StateFileTest, SaysAtOnceWhenItCannotBeCreated)
{
    EXPECT_THROW(StateFile(directory.file("nowhere/state"), reader), Poco::FileException);
    std::filesystem::create_directory(path + ".new");
    EXPECT_THROW(load(), Poco::FileException);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(StateFileTest, HoldsTheOldContentWhenTheNewOneCannotBeWritten)
{
    const std::string before = written({entryOf("clock")});
    StateFile file(path, reader);
    std::filesystem::create_directory(path + ".new");
    EXPECT_THROW(file.save({}), Poco::FileException);
    EXPECT_EQ(contentOf(path), before);
    std::filesystem::remove(path + ".new");
    file.save({});
    EXPECT_NE(contentOf(path), before);
}

TEST_F(StateFileTest, LeavesNoHalfFileWhenTheDiskIsFull)
{
    const std::string before = written({entryOf("clock")});
    StateFile file(path, reader);
    std::signal(SIGXFSZ, SIG_IGN); // the next write beyond the limit fails instead
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit full{before.size() + 10, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
    EXPECT_THROW(file.save({entryOf("clock"), entryOf("bell")}), Poco::FileException);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(contentOf(path), before);
    EXPECT_FALSE(std::filesystem::exists(path + ".new")) << "it would take room of the disk";
}

TEST_F(StateFileTest, IsRefusedWhenItIsCutOffAnywhere)
{
    const std::string whole = written({entryOf("clock"), entryOf("bell")});
    for (std::size_t size = 0; size < whole.size(); ++size)
    {
        writeFile(path, whole.substr(0, size));
        EXPECT_NE(refusal(), "") << "cut off after " << size << " bytes";
    }
    writeFile(path, whole);
    EXPECT_EQ(refusal(), "");
}

TEST_F(StateFileTest, IsRefusedWhenAnyByteIsDifferent)
{
    const std::string whole = written({entryOf("clock")});
    for (std::size_t i = 0; i < whole.size(); ++i)
        for (const char mask: {'\x01', '\x80'})
        {
            std::string damaged = whole;
            damaged[i] = static_cast<char>(damaged[i] ^ mask);
            writeFile(path, damaged);
            EXPECT_NE(refusal(), "") << "byte " << i;
        }
}

TEST_F(StateFileTest, SaysWhatIsWrongWithIt)
{
    const std::string whole = written({entryOf("clock")});
    const auto reasonFor = [&](const std::string& content)
    {
        writeFile(path, content);
        return refusal();
    };
    EXPECT_THAT(reasonFor(""), HasSubstr("is empty"));
    EXPECT_THAT(reasonFor("# my notes\n"), HasSubstr("was not written by a registry"));
    EXPECT_THAT(reasonFor(std::string(100, '\0')), HasSubstr("was not written by a registry"));
    EXPECT_THAT(reasonFor("kesa-registry state 2 whatever comes\n"), HasSubstr("has the version 2"));
    EXPECT_THAT(reasonFor("kesa-registry state 1 whatever comes\n"), HasSubstr("damaged first line"));
    EXPECT_THAT(reasonFor("kesa-registry state 0 entries 0 bytes 0 crc32 00000000\n"), HasSubstr("damaged first line"));
    EXPECT_THAT(reasonFor("kesa-registry state 1 entries 0 bytes 0 crc32 00000000 \n"), HasSubstr("damaged first"));
    EXPECT_THAT(reasonFor(whole.substr(0, whole.size() - 1)), HasSubstr("is cut off"));
    EXPECT_THAT(reasonFor(whole + "x"), HasSubstr("is damaged"));
}

TEST_F(StateFileTest, IsRefusedWithAnEntryThatCannotBeUsed)
{
    Entry broken = *entryOf("clock");
    broken.text = R"({"name":"clock"})";
    written({entryOf("bell"), std::make_shared<Entry>(broken)});
    EXPECT_THAT(refusal(), HasSubstr("in line 3: The entry has no member 'id'"));
}

TEST_F(StateFileTest, IsRefusedWithOneIdTwice)
{
    const EntryPtr entry = entryOf("clock");
    written({entry, entry});
    EXPECT_THAT(refusal(), HasSubstr("its id stands there twice"));
}

TEST_F(StateFileTest, IsRefusedWhenItIsLargerThanAnyRegistryWrites)
{
    writeFile(path, "kesa-registry state 1 ");
    std::filesystem::resize_file(path, 1024U * 1024U * 1024U);
    EXPECT_THROW(load(), Poco::FileException);
    EXPECT_EQ(std::filesystem::file_size(path), 1024U * 1024U * 1024U);
}

TEST_F(StateFileTest, IsRefusedWhenItIsNoRegularFile)
{
    std::filesystem::create_directory(path);
    EXPECT_THROW(load(), Poco::FileException);
    std::filesystem::remove(path);
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_THROW(load(), Poco::FileException) << "and nobody waits for a writer";
}

TEST_F(StateFileTest, IsForOneRegistryAtATime)
{
    {
        const StateFile file(path, reader);
        try
        {
            StateFile(path, reader).load();
            FAIL() << "a second one got it";
        }
        catch (const Poco::FileException& e)
        {
            EXPECT_EQ(e.message(), "The state file " + path + " is in use by another registry");
        }
    }
    EXPECT_NO_THROW(StateFile(path, reader));
}

TEST_F(StateFileTest, OverwritesWhatAKilledRegistryLeftBesideIt)
{
    writeFile(path + ".new", std::string(10000, 'x'));
    written({entryOf("clock")});
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
    EXPECT_EQ(load().size(), 1U);
}

TEST_F(StateFileTest, FollowsASymbolicLink)
{
    const std::string link = directory.file("link");
    std::filesystem::create_symlink(path, link);
    written({});
    StateFile(link, reader).save({entryOf("clock")});
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(load().size(), 1U);
}
