#include "DataStores.h"
#include "StoreFolder.h"

#include <Data/ElementBase.h>

#include <atomic>
#include <functional>
#include <random>
#include <thread>

using namespace DataStores;
using namespace Kesa::Data;

namespace
{

struct Storm
{
    std::string name;
    std::function<Store::Ptr(const StoreFolder&)> create;
    int rounds; ///< of each writer
};

/// Readers and writers at once.
class DataStoreStormTest: public testing::TestWithParam<Storm>
{
protected:
    void SetUp() override
    {
        m_store = GetParam().create(m_folder);
        declareShop(*m_store);
    }

    /// Runs `reader` again and again on two threads while `writer`, told its number, runs on four.
    void storm(const std::function<void(int)>& writer, const std::function<void()>& reader)
    {
        std::atomic<bool> isOver{false};
        std::vector<std::thread> readers;
        for (int i = 0; i < 2; ++i)
            readers.emplace_back(
                [&]
                {
                    while (!isOver)
                        reader();
                });
        std::vector<std::thread> writers;
        for (int i = 0; i < 4; ++i)
            writers.emplace_back([&, i] { writer(i); });
        for (std::thread& thread: writers)
            thread.join();
        isOver = true;
        for (std::thread& thread: readers)
            thread.join();
    }

    const StoreFolder m_folder;
    Store::Ptr m_store;
};

TEST_P(DataStoreStormTest, NobodySeesHalfAnUpdate)
{
    m_store->insertElement(Poco::URI("/shop/boxes/" + ID), object(R"({"a":0,"b":{"c":0}})"));
    std::atomic<int> halves{0};
    const auto look = [&](const ElementBase::Ptr& element)
    {
        const Poco::JSON::Object::Ptr box = element->toJSON(0);
        if (box->getValue<int>("a") != box->getObject("b")->getValue<int>("c"))
            ++halves;
    };
    storm(
        [&](int writer)
        {
            for (int i = 0; i < GetParam().rounds; ++i)
            {
                const std::string number = std::to_string(writer * 1000 + i);
                m_store->updateElement("shop", "boxes", ID,
                                       object("{\"a\":" + number + ",\"b\":{\"c\":" + number + "}}"));
            }
        },
        [&]
        {
            look(m_store->getElement("shop", "boxes", ID));
            look(m_store->getElements("shop", "boxes").at(0));
        });
    EXPECT_EQ(halves, 0);
}

TEST_P(DataStoreStormTest, EveryUpdateOfAMemberOfItsOwnIsKept)
{
    m_store->insertElement(Poco::URI("/shop/boxes/" + ID), object("{}"));
    const int rounds = GetParam().rounds;
    storm(
        [&](int writer)
        {
            for (int i = 0; i < rounds; ++i)
                m_store->updateElement("shop", "boxes", ID,
                                       object("{\"w" + std::to_string(writer) + "n" + std::to_string(i % 10) +
                                              "\":" + std::to_string(i) + "}"));
        },
        [&] { m_store->getElement("shop", "boxes", ID)->getAttributes(); });
    const Poco::JSON::Object::Ptr box = m_store->getElement("shop", "boxes", ID)->toJSON(0);
    EXPECT_EQ(box->size(), 42U);
    for (int writer = 0; writer < 4; ++writer)
        EXPECT_EQ(box->getValue<int>("w" + std::to_string(writer) + "n9"), (rounds - 1) / 10 * 10 + 9);
}

TEST_P(DataStoreStormTest, OneOfManyGetsAnIdAndListsStayInOrder)
{
    std::atomic<int> inserted{0};
    std::atomic<int> deleted{0};
    std::atomic<int> disorders{0};
    storm(
        [&](int writer)
        {
            std::mt19937 random(static_cast<unsigned>(writer));
            for (int i = 0; i < GetParam().rounds; ++i)
            {
                const std::string id = "6ba7b810-9dad-11d1-80b4-00c04fd4300" + std::to_string(random() % 10);
                if (random() % 2)
                    inserted += m_store->insertElement(Poco::URI("/shop/boxes/" + id), object("{}")).success();
                else
                    deleted += m_store->deleteElement("shop", "boxes", id).success();
            }
        },
        [&]
        {
            XObjectId last = 0;
            for (const ElementBase::Ptr& element: m_store->getElements("shop", "boxes"))
            {
                if (element->getXObjectId() <= last)
                    ++disorders;
                last = element->getXObjectId();
                m_store->getElement(last);
            }
        });
    EXPECT_EQ(disorders, 0);
    EXPECT_GT(deleted, 0);
    EXPECT_EQ(m_store->getElements("shop", "boxes").size(), static_cast<std::size_t>(inserted - deleted));
}

TEST_P(DataStoreStormTest, ResourcesMayBeDeclaredMeanwhile)
{
    storm(
        [&](int writer)
        {
            for (int i = 0; i < 20; ++i)
            {
                const std::string name = "r" + std::to_string(writer) + "-" + std::to_string(i);
                m_store->addResource("shop", name);
                EXPECT_TRUE(m_store->insertElement("shop", name, object("{}")).success());
            }
        },
        [&]
        {
            for (const ResourceBase::Ptr& resource: m_store->getResources("shop"))
                resource->getElements();
            m_store->getServices();
        });
    EXPECT_EQ(m_store->getResources("shop").size(), 82U);
}

INSTANTIATE_TEST_SUITE_P(Stores, DataStoreStormTest,
                         testing::Values(Storm{"InMemory",
                                               [](const StoreFolder&) -> Store::Ptr
                                               { return new Kesa::Host::InMemoryDataAccessPoint; },
                                               400},
                                         Storm{"OnSqlite",
                                               [](const StoreFolder& folder) -> Store::Ptr
                                               { return new Kesa::Host::SqliteDataAccessPoint(folder.newFile()); },
                                               40}),
                         [](const auto& row) { return row.param.name; });

} // namespace
