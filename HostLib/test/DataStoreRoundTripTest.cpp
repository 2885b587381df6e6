#include "DataStores.h"
#include "StoreFolder.h"

#include <JsonWriter.h>

#include <Data/ElementGeneric.h>

#include <limits>
#include <random>

using namespace DataStores;
using namespace Kesa::Data;
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{

/// Random JSON, with a liking for the edges of each type.
class RandomJson
{
public:
    explicit RandomJson(unsigned seed): m_random(seed) {}

    Object::Ptr object(int depth = 0)
    {
        Object::Ptr members = new Object;
        for (unsigned count = m_random() % 6; count > 0; --count)
            members->set(name(), value(depth + 1));
        return members;
    }

private:
    Var value(int depth)
    {
        switch (m_random() % (depth < 5 ? 9 : 7))
        {
        case 0:
            return Var();
        case 1:
            return m_random() % 2 == 0;
        case 2:
            return pick<Poco::Int64>({0, -1, 1, std::numeric_limits<Poco::Int64>::min(),
                                      std::numeric_limits<Poco::Int64>::max(), static_cast<int>(m_random())});
        case 3:
            return pick<Poco::UInt64>({std::numeric_limits<Poco::UInt64>::max(), Poco::UInt64(1) << 63, 7});
        case 4:
            return pick<double>({0.1, -2.5e-300, 1e15, 123456789012345680.0, std::numeric_limits<double>::max(),
                                 std::numeric_limits<double>::denorm_min(), number()});
        case 5:
        case 6:
            return text();
        case 7:
            return object(depth);
        default:
            return array(depth);
        }
    }

    Array::Ptr array(int depth)
    {
        Array::Ptr elements = new Array;
        for (unsigned count = m_random() % 4; count > 0; --count)
            elements->add(value(depth + 1));
        return elements;
    }

    std::string text()
    {
        static const std::vector<std::string> parts = {
            "a", "\"", "\\", std::string(1, '\0'), "\n", "\x1f", "ä", "😀", "\u2028", "name", "/", "\x7f"};
        std::string result;
        for (unsigned count = m_random() % 5; count > 0; --count)
            result += parts[m_random() % parts.size()];
        return result;
    }

    /// As text(), without zeros.
    std::string name()
    {
        std::string result = text();
        std::erase(result, '\0');
        return result;
    }

    double number() { return std::uniform_real_distribution<double>(-1e6, 1e6)(m_random); }

    template <class T>
    T pick(const std::vector<T>& values)
    {
        return values[m_random() % values.size()];
    }

    std::mt19937 m_random;
};

std::string jsonOf(const Object::Ptr& object)
{
    std::string text;
    Kesa::Command::appendJson(text, object);
    return text;
}

TEST(DataStoreRoundTripTest, RandomDocumentsAreKeptExactlyAcrossARestart)
{
    const StoreFolder folder;
    const std::string file = folder.newFile();
    std::vector<std::string> expected;
    {
        Kesa::Host::SqliteDataAccessPoint store(file);
        declareShop(store);
        RandomJson random(3);
        for (int i = 0; i < 150; ++i)
        {
            Object::Ptr members = random.object();
            UpdateResult result = store.insertElement("shop", "boxes", members);
            ASSERT_TRUE(result.success()) << result.message() << jsonOf(members);
            members->set("id", result.created->getId().toString()).set("uri", result.created->getUri().toString());
            expected.push_back(jsonOf(members));
            EXPECT_EQ(jsonOf(result.created->toJSON(0)), expected.back());
        }
    }
    Kesa::Host::SqliteDataAccessPoint store(file);
    declareShop(store);
    std::vector<std::string> found;
    for (const ElementBase::Ptr& element: store.getElements("shop", "boxes"))
        found.push_back(jsonOf(element->toJSON(0)));
    EXPECT_EQ(found, expected);
}

TEST(DataStoreRoundTripTest, RandomUpdatesAgreeWithAPlainMerge)
{
    Kesa::Host::InMemoryDataAccessPoint store;
    declareShop(store);
    RandomJson random(5);
    store.insertElement(Poco::URI("/shop/boxes/" + ID), object("{}"));
    Object::Ptr model = object("{}");
    model->set("id", ID).set("uri", "/shop/boxes/" + ID);
    for (int i = 0; i < 500; ++i)
    {
        const Object::Ptr members = random.object();
        const std::string before = jsonOf(model);
        for (const auto& [name, value]: *members)
            model->set(name, value);
        const UpdateResult result = store.updateElement("shop", "boxes", ID, members);
        EXPECT_EQ(result.value(), jsonOf(model) == before ? UpdateResult::NO_UPDATE : UpdateResult::OK);
        ASSERT_EQ(jsonOf(store.getElement("shop", "boxes", ID)->toJSON(0)), jsonOf(model));
    }
}

TEST(DataStoreRoundTripTest, AttributesOfAnElementAreItsMembers)
{
    Kesa::Host::InMemoryDataAccessPoint store;
    declareShop(store);
    RandomJson random(7);
    for (int i = 0; i < 300; ++i)
    {
        const UpdateResult result = store.insertElement("shop", "boxes", random.object());
        ASSERT_TRUE(result.success());
        const ElementGeneric copy(*store.getElement(result.created->getXObjectId()));
        EXPECT_EQ(jsonOf(copy.toJSON(0)), jsonOf(store.getElement(result.created->getXObjectId())->toJSON(0)));
        EXPECT_EQ(store.updateElement(copy).value(), UpdateResult::NO_UPDATE);
    }
}

} // namespace
