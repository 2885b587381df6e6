#include "DataStores.h"

#include <CapturedLog.h>
#include <Data/ElementBase.h>

#include <Poco/Event.h>

#include <gmock/gmock.h>

#include <functional>
#include <thread>

using namespace DataStores;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

/// Documents that are kept as a test likes it.
class BackEnd: public Kesa::Host::DocumentDataAccessPoint
{
public:
    BackEnd(): DocumentDataAccessPoint(Limits()) {}

    std::function<void(const std::string&)> onWrite = [](const std::string&) {};
    std::function<std::vector<std::string>()> onRead = [] { return std::vector<std::string>(); };

protected:
    void writeInserted(const Address& address, const std::string& text) override
    {
        onWrite("insert " + name(address, text));
    }
    void writeUpdated(const Address& address, const std::string& text) override
    {
        onWrite("update " + name(address, text));
    }
    void writeDeleted(const Address& address) override { onWrite("delete " + address.resource + " " + address.id); }
    std::vector<Document> readDocuments(const std::string& /*service*/, const std::string& /*resource*/) override
    {
        std::vector<Document> documents;
        for (const std::string& text: onRead())
            documents.push_back({ID, text});
        return documents;
    }

private:
    static std::string name(const Address& address, const std::string& text)
    {
        return address.resource + " " + object(text)->optValue<std::string>("name", "");
    }
};

class DataStoreBackEndTest: public testing::Test
{
protected:
    UpdateResult insert(const std::string& name)
    {
        return m_store.insertElement(Poco::URI("/shop/boxes/" + ID), object("{\"name\":\"" + name + "\"}"));
    }

    BackEnd m_store;
};

TEST_F(DataStoreBackEndTest, KeepsEveryChangeAndNothingElse)
{
    declareShop(m_store);
    std::vector<std::string> writes;
    m_store.onWrite = [&](const std::string& write) { writes.push_back(write); };
    insert("a");
    insert("again");
    m_store.updateElement("shop", "boxes", ID, object(R"({"name":"b"})"));
    m_store.updateElement("shop", "boxes", ID, object(R"({"name":"b"})"));
    m_store.updateElement("shop", "boxes", ID, object(R"({"id":"c"})"));
    m_store.deleteElement("shop", "boxes", ID);
    m_store.deleteElement("shop", "boxes", ID);
    EXPECT_THAT(writes, ElementsAre("insert boxes a", "update boxes b", "delete boxes " + ID));
}

TEST_F(DataStoreBackEndTest, ChangeIsSeenOnceItIsWrittenAndReadingDoesNotWait)
{
    declareShop(m_store);
    ASSERT_TRUE(insert("a").success());
    Poco::Event isWriting;
    Poco::Event mayEnd;
    m_store.onWrite = [&](const std::string&)
    {
        isWriting.set();
        mayEnd.wait();
    };
    std::thread writer([&] { m_store.updateElement("shop", "boxes", ID, object(R"({"name":"b"})")); });
    isWriting.wait();
    EXPECT_THAT(namesIn(m_store, "boxes"), ElementsAre("a"));
    EXPECT_EQ(m_store.getElement("shop", "boxes", ID)->getName(), "a");
    EXPECT_EQ(m_store.getResources("shop").size(), 2U);
    mayEnd.set();
    writer.join();
    EXPECT_THAT(namesIn(m_store, "boxes"), ElementsAre("b"));
}

TEST_F(DataStoreBackEndTest, ExceptionKeepsAChangeFromHappening)
{
    declareShop(m_store);
    ASSERT_TRUE(insert("a").success());
    const Kesa::Test::CapturedLog log;
    m_store.onWrite = [](const std::string&) { throw Poco::IOException("the tape is full"); };
    for (const UpdateResult& result: {m_store.insertElement("shop", "boxes", object("{}")),
                                      m_store.updateElement("shop", "boxes", ID, object(R"({"name":"b"})")),
                                      m_store.deleteElement("shop", "boxes", ID)})
    {
        EXPECT_EQ(result.value(), UpdateResult::PROCESSING_ERROR);
        EXPECT_THAT(result.message(), HasSubstr("the tape is full"));
    }
    EXPECT_EQ(log.count(Poco::Message::PRIO_ERROR), 3U);
    EXPECT_THAT(namesIn(m_store, "boxes"), ElementsAre("a"));
}

TEST_F(DataStoreBackEndTest, KeptElementsAreThereOnceTheirResourceIsDeclared)
{
    m_store.onRead = [] { return std::vector<std::string>{boxText(ID, R"({"name":"kept"})")}; };
    m_store.addService("shop");
    m_store.addResource("shop", "boxes");
    EXPECT_THAT(namesIn(m_store, "boxes"), ElementsAre("kept"));
    EXPECT_EQ(insert("a").value(), UpdateResult::DUPLICATE);
}

TEST_F(DataStoreBackEndTest, ResourceWhoseElementsCannotBeReadIsNotDeclared)
{
    m_store.addService("shop");
    m_store.onRead = []() -> std::vector<std::string> { throw Poco::IOException("the tape is torn"); };
    EXPECT_THROW(m_store.addResource("shop", "boxes"), Poco::IOException);
    m_store.onRead = [] { return std::vector<std::string>{"no JSON"}; };
    EXPECT_THROW(m_store.addResource("shop", "boxes"), Poco::Exception);
    EXPECT_TRUE(m_store.getResource("shop", "boxes").isNull());
}

TEST_F(DataStoreBackEndTest, KeptElementThatNoStoreHasKeptIsNamed)
{
    m_store.addService("shop");
    const std::string path = "The element /shop/boxes/" + ID + " that was kept ";
    const std::pair<std::string, std::string> rows[] = {
        {"no JSON", path + "cannot be read"},
        {R"({"name":"no id"})", path + "cannot be read"},
        {boxText("00000000-0000-4000-8000-0000000000ff", "{}"), path + "has another id or URI"},
        {R"({"id":")" + ID + R"(","uri":"/shop/bags/)" + ID + "\"}", path + "has another id or URI"}};
    for (const auto& row: rows)
    {
        m_store.onRead = [&row] { return std::vector<std::string>{row.first}; };
        try
        {
            m_store.addResource("shop", "boxes");
            ADD_FAILURE() << row.first;
        }
        catch (const Poco::DataFormatException& exception)
        {
            EXPECT_THAT(exception.message(), HasSubstr(row.second)) << row.first;
        }
    }
    EXPECT_TRUE(m_store.getResource("shop", "boxes").isNull());
}

} // namespace
