#include "ChildProcess.h"
#include "DataStores.h"
#include "StoreFolder.h"

#include <CapturedLog.h>
#include <Data/ElementBase.h>

#include <Poco/Data/SQLite/Connector.h>
#include <Poco/Data/Session.h>

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <sys/resource.h>
#include <unistd.h>

using namespace DataStores;
using Kesa::Host::SqliteDataAccessPoint;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

class SqliteDataAccessPointTest: public testing::Test
{
protected:
    Store::Ptr open()
    {
        Store::Ptr store = new SqliteDataAccessPoint(m_file);
        declareShop(*store);
        return store;
    }

    /// The text with which the file is refused.
    template <class Exception>
    std::string refusal()
    {
        try
        {
            SqliteDataAccessPoint store(m_file);
        }
        catch (const Exception& exception)
        {
            return exception.message();
        }
        return "no exception";
    }

    StoreFolder m_folder;
    const std::string m_file = m_folder.file("shop.db");
};

TEST_F(SqliteDataAccessPointTest, ElementsAreThereAgainInTheirOrder)
{
    std::vector<std::string> before;
    {
        Store::Ptr store = open();
        for (const char* name: {"c", "a", "b"})
            store->insertElement("shop", "boxes", object("{\"name\":\"" + std::string(name) + "\"}"));
        const auto elements = store->getElements("shop", "boxes");
        store->updateElement(elements[0]->getUri(), object(R"({"deep":{"u":18446744073709551615,"n":[null,2.5e-7]}})"));
        store->deleteElement(*elements[1]);
        for (const auto& element: store->getElements("shop", "boxes"))
            before.push_back(textOf(element));
    }
    Store::Ptr store = open();
    EXPECT_THAT(namesIn(*store, "boxes"), ElementsAre("c", "b"));
    std::vector<std::string> after;
    for (const auto& element: store->getElements("shop", "boxes"))
        after.push_back(textOf(element));
    EXPECT_EQ(after, before);
    EXPECT_EQ(store
                  ->updateElement("shop", "boxes", store->getElements("shop", "boxes")[0]->getId(),
                                  object(R"({"deep":{"u":18446744073709551615,"n":[null,2.5e-7]}})"))
                  .value(),
              UpdateResult::NO_UPDATE);
}

TEST_F(SqliteDataAccessPointTest, LeavesOnlyItsFileBehind)
{
    Store::Ptr store = open();
    store->insertElement("shop", "boxes", object("{}"));
    store = nullptr;
    EXPECT_THAT(m_folder.names(), ElementsAre("shop.db"));
}

TEST_F(SqliteDataAccessPointTest, ElementsOfAResourceThatIsNotDeclaredStay)
{
    open()->insertElement("shop", "orders", object(R"({"name":"a"})"));
    {
        SqliteDataAccessPoint store(m_file);
        store.addService("shop");
        EXPECT_TRUE(store.getElements("shop", "orders").empty());
    }
    EXPECT_THAT(namesIn(*open(), "orders"), ElementsAre("a"));
}

TEST_F(SqliteDataAccessPointTest, FileInUseIsRefusedToOthers)
{
    Store::Ptr store = open();
    store->insertElement("shop", "boxes", object(R"({"name":"a"})"));
    EXPECT_THAT(refusal<Poco::FileException>(), HasSubstr(m_file + " is in use already"));
    std::filesystem::create_symlink(m_file, m_folder.file("link.db"));
    EXPECT_THROW(SqliteDataAccessPoint(m_folder.file("link.db")), Poco::FileException);
    EXPECT_EQ(store->insertElement("shop", "boxes", object(R"({"name":"b"})")).value(), UpdateResult::OK);
    store = nullptr;
    EXPECT_THAT(namesIn(*open(), "boxes"), ElementsAre("a", "b"));
}

TEST_F(SqliteDataAccessPointTest, FileInUseByAnotherProcessIsRefusedUntilItEnds)
{
    ChildProcess writer(KESA_STORE_WRITER, m_file);
    ASSERT_EQ(writer.readLine(), "ready");
    EXPECT_THAT(refusal<Poco::FileException>(), HasSubstr(m_file + " is in use already"));
    writer.signal(SIGKILL);
    EXPECT_EQ(writer.wait(), 256 + SIGKILL);
    EXPECT_EQ(refusal<Poco::Exception>(), "no exception");
}

TEST_F(SqliteDataAccessPointTest, OtherProgramsCannotWriteToAFileInUse)
{
    Store::Ptr store = open();
    store->insertElement("shop", "boxes", object("{}"));
    Poco::Data::Session other("SQLite", m_file);
    using namespace Poco::Data::Keywords;
    other << "PRAGMA busy_timeout = 0", now;
    EXPECT_THROW((other << "DELETE FROM elements", now), Poco::Data::DataException);
    other.close();
    EXPECT_EQ(store->insertElement("shop", "boxes", object("{}")).value(), UpdateResult::OK);
}

TEST_F(SqliteDataAccessPointTest, NameMayBeRelativeToTheWorkingDirectory)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(std::filesystem::path(m_file).parent_path());
    for (const char* name: {"a.db", "./a.db"})
        EXPECT_NO_THROW(SqliteDataAccessPoint store(name));
    std::filesystem::current_path(before);
    EXPECT_THAT(m_folder.names(), ElementsAre("a.db"));
}

TEST_F(SqliteDataAccessPointTest, FileThatCannotBeWrittenIsTold)
{
    open();
    std::filesystem::permissions(m_file, std::filesystem::perms::owner_read);
    if (::access(m_file.c_str(), W_OK) == 0)
        GTEST_SKIP() << "who runs this test may write every file";
    EXPECT_THAT(refusal<Poco::FileException>(), HasSubstr(m_file + " cannot be written: Permission denied"));
}

TEST_F(SqliteDataAccessPointTest, DirectoryThatIsNotThereIsTold)
{
    EXPECT_THROW(SqliteDataAccessPoint(m_folder.file("nowhere/shop.db")), Poco::FileException);
}

/// What stands in a file, or becomes of a good one.
struct Damage
{
    std::string name;
    std::function<std::string(std::string)> inflict;
    std::string reason;
};

class DamagedSqliteFileTest: public SqliteDataAccessPointTest, public testing::WithParamInterface<Damage>
{
};

TEST_P(DamagedSqliteFileTest, IsRefusedByNameAndLeftAlone)
{
    {
        Store::Ptr store = open();
        for (int i = 0; i < 40; ++i)
            store->insertElement("shop", "boxes", object(R"({"name":")" + std::string(500, 'x') + "\"}"));
    }
    const std::string damaged = GetParam().inflict(StoreFolder::read(m_file));
    StoreFolder::write(m_file, damaged);
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        const std::string text = refusal<Poco::DataFormatException>();
        EXPECT_THAT(text, HasSubstr(m_file));
        EXPECT_THAT(text, HasSubstr(GetParam().reason));
    }
    EXPECT_EQ(StoreFolder::read(m_file), damaged);
    EXPECT_THAT(m_folder.names(), ElementsAre("shop.db"));
}

std::string withByte(std::string content, std::size_t position, char byte)
{
    content.at(position) = byte;
    return content;
}

const std::size_t PAGE = 4096;

INSTANTIATE_TEST_SUITE_P(
    Damages, DamagedSqliteFileTest,
    testing::Values(
        Damage{"Empty", [](const auto&) { return std::string(); }, "it is empty"},
        Damage{"Text", [](const auto&) { return std::string("my diary\n"); }, "does not begin as a file of SQLite"},
        Damage{"LongText", [](const auto& good) { return std::string(good.size(), 'd'); }, "does not begin"},
        Damage{"HeadOnly", [](const auto& good) { return good.substr(0, 50); }, "does not begin"},
        Damage{"Half", [](const auto& good) { return good.substr(0, good.size() / 2); }, "malformed"},
        Damage{"FirstPageOnly", [](const auto& good) { return good.substr(0, PAGE); }, "malformed"},
        Damage{"ForeignApplication", [](const auto& good) { return withByte(good, 68, 'X'); }, "another program"},
        Damage{"NewerVersion", [](const auto& good) { return withByte(good, 63, 2); }, "its version is 2"},
        Damage{"ZeroPage", [](auto good) { return good.replace(2 * PAGE, PAGE, PAGE, '\0'); }, "damaged"},
        Damage{"OtherText", [](const auto& good) { return withByte(good, good.rfind("xxxx"), 'y'); },
               "the checksum of the element"}),
    [](const auto& row) { return row.param.name; });

TEST_F(SqliteDataAccessPointTest, AnyFlippedByteIsRefusedOrHarmless)
{
    std::vector<std::string> good;
    {
        Store::Ptr store = open();
        for (int i = 0; i < 12; ++i)
            store->insertElement("shop", "boxes", object(R"({"name":"n)" + std::to_string(i) + "\"}"));
        good = namesIn(*store, "boxes");
    }
    const std::string content = StoreFolder::read(m_file);
    std::mt19937 random(7);
    int refused = 0;
    for (int round = 0; round < 150; ++round)
    {
        const std::size_t position = random() % content.size();
        StoreFolder::write(m_file,
                           withByte(content, position, static_cast<char>(content[position] ^ (1 + random() % 255))));
        try
        {
            EXPECT_EQ(namesIn(*open(), "boxes"), good) << position;
        }
        catch (const Poco::Exception&)
        {
            ++refused;
        }
    }
    EXPECT_GT(refused, 5);
}

TEST_F(SqliteDataAccessPointTest, WhatAnUnfinishedCreationLeftIsNoHindrance)
{
    StoreFolder::write(m_file + ".new", "half a file");
    StoreFolder::write(m_file + ".lock", "");
    open()->insertElement("shop", "boxes", object(R"({"name":"a"})"));
    EXPECT_THAT(namesIn(*open(), "boxes"), ElementsAre("a"));
    EXPECT_THAT(m_folder.names(), ElementsAre("shop.db"));
}

TEST_F(SqliteDataAccessPointTest, OrphanedLogIsRefused)
{
    StoreFolder::write(m_file + "-wal", "frames");
    EXPECT_THAT(refusal<Poco::DataFormatException>(), HasSubstr(m_file + "-wal"));
    EXPECT_THAT(m_folder.names(), ElementsAre("shop.db-wal"));
}

TEST_F(SqliteDataAccessPointTest, LogOfADamagedFileIsLeftAlone)
{
    {
        Store::Ptr store = open();
        for (int i = 0; i < 40; ++i)
            store->insertElement("shop", "boxes", object(R"({"name":"7","t":")" + std::string(500, 'z') + "\"}"));
    }
    {
        ChildProcess writer(KESA_STORE_WRITER, m_file);
        for (int line = 0; line < 4; ++line)
            writer.readLine();
        writer.signal(SIGKILL);
        writer.wait();
    }
    const std::string good = StoreFolder::read(m_file);
    const std::string damaged = withByte(good, good.rfind("zzzz"), 'y'); // the rows grow from the end of a page
    StoreFolder::write(m_file, damaged);
    const std::string log = StoreFolder::read(m_file + "-wal");
    ASSERT_NE(log, "");
    EXPECT_THAT(refusal<Poco::DataFormatException>(), HasSubstr("checksum"));
    EXPECT_EQ(StoreFolder::read(m_file), damaged);
    EXPECT_EQ(StoreFolder::read(m_file + "-wal"), log);
    StoreFolder::write(m_file, good);
    EXPECT_GT(open()->getElements("shop", "boxes").size(), 40U);
}

/// Lets this process write no file beyond a size, while it lives.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        ::getrlimit(RLIMIT_FSIZE, &m_before);
        m_signal = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, m_before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_signal);
    }

private:
    rlimit m_before{};
    void (*m_signal)(int);
};

TEST_F(SqliteDataAccessPointTest, WhatCannotBeWrittenDoesNotHappen)
{
    Store::Ptr store = open();
    ASSERT_EQ(store->insertElement(Poco::URI("/shop/boxes/" + ID), object(R"({"name":"a"})")).value(),
              UpdateResult::OK);
    {
        const Kesa::Test::CapturedLog log;
        const FileSizeLimit limit(64);
        const UpdateResult result = store->insertElement("shop", "boxes", object(R"({"name":"b"})"));
        EXPECT_EQ(result.value(), UpdateResult::PROCESSING_ERROR);
        EXPECT_THAT(result.message(), HasSubstr("could not be stored"));
        EXPECT_TRUE(result.created.isNull());
        EXPECT_EQ(store->updateElement("shop", "boxes", ID, object(R"({"name":"c"})")).value(),
                  UpdateResult::PROCESSING_ERROR);
        EXPECT_EQ(store->deleteElement("shop", "boxes", ID).value(), UpdateResult::PROCESSING_ERROR);
        EXPECT_EQ(log.count(Poco::Message::PRIO_ERROR), 3U);
    }
    EXPECT_THAT(namesIn(*store, "boxes"), ElementsAre("a"));
    EXPECT_EQ(store->insertElement("shop", "boxes", object(R"({"name":"d"})")).value(), UpdateResult::OK);
    store = nullptr;
    EXPECT_THAT(namesIn(*open(), "boxes"), ElementsAre("a", "d"));
}

/// The elements that the writer's acknowledged changes amount to: name, and whether it was changed.
typedef std::map<std::string, bool> Boxes;

void acknowledge(const std::string& line, Boxes& boxes)
{
    const std::string name = line.substr(7);
    if (line.rfind("insert", 0) == 0)
        boxes[name] = false;
    else if (line.rfind("update", 0) == 0)
        boxes[name] = true;
    else
        boxes.erase(name);
}

/// What the writer does next.
std::string nextLine(const std::string& line)
{
    const int n = std::stoi(line.substr(7));
    if (line.rfind("insert", 0) == 0 && n > 1)
        return "update " + std::to_string(n - 1);
    if (line.rfind("update", 0) == 0 && n > 1)
        return "delete " + std::to_string(n - 1);
    const int step = line.rfind("insert", 0) == 0 ? n : line.rfind("update", 0) == 0 ? n + 1 : n + 2;
    return "insert " + std::to_string(step + 1);
}

TEST_F(SqliteDataAccessPointTest, WhatWasAcknowledgedSurvivesAKill)
{
    Boxes expected;
    std::mt19937 random(11);
    for (int round = 0; round < 20; ++round)
    {
        ChildProcess writer(KESA_STORE_WRITER, m_file);
        ASSERT_EQ(writer.readLine(), "ready");
        std::string last;
        for (unsigned line = random() % 60 + 1; line > 0; --line)
            acknowledge(last = writer.readLine(), expected);
        writer.signal(SIGKILL);
        for (std::string line = writer.readLine(); line.size() > 7; line = writer.readLine())
            acknowledge(last = line, expected);
        writer.wait();

        Boxes found;
        for (const auto& element: open()->getElements("shop", "boxes"))
            found[element->getName()] = element->hasValue("changed");
        Boxes withNext = expected; // written, but the process did not live to tell
        acknowledge(nextLine(last), withNext);
        EXPECT_TRUE(found == expected || found == withNext) << "round " << round << " after " << last;
        expected = found;
    }
}

} // namespace
