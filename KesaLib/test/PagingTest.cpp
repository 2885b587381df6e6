#include <Command/Query/Paging.h>

#include <Command/ResponseObject.h>

#include <Poco/URI.h>

#include <gtest/gtest.h>

#include <limits>

using namespace Kesa::Command;

namespace
{

struct Case
{
    const char* offset;
    const char* limit;
    bool valid;
    Paging::PagingType type;
    Paging::PagingRequestType requestType;
    int number;
    const char* id;
    int pageSize;
};

std::ostream& operator<<(std::ostream& out, const Case& c)
{
    return out << c.offset << "/" << c.limit;
}

class PagingTexts: public testing::TestWithParam<Case>
{
};

TEST_P(PagingTexts, AreRead)
{
    const Case& expected = GetParam();
    const Paging paging(expected.offset, expected.limit);
    EXPECT_EQ(paging.isValid(), expected.valid);
    EXPECT_EQ(paging.getType(), expected.type);
    EXPECT_EQ(paging.getPagingRequestType(), expected.requestType);
    EXPECT_EQ(paging.getNumberOffset(), expected.number);
    EXPECT_EQ(paging.getUUIDOffset(), expected.id);
    EXPECT_EQ(paging.getLimit(), expected.pageSize);
}

const int INT_LIMIT = std::numeric_limits<int>::max();

INSTANTIATE_TEST_SUITE_P(
    Table, PagingTexts,
    testing::Values(Case{"", "", true, Paging::TYPE_TOTAL, Paging::NONE, 0, "", 50},
                    Case{"", "10", true, Paging::TYPE_INDEX, Paging::LIMIT, 0, "", 10},
                    Case{"20", "", true, Paging::TYPE_INDEX, Paging::OFFSET, 20, "", 50},
                    Case{"20", "10", true, Paging::TYPE_INDEX, Paging::OFFSET_LIMIT, 20, "", 10},
                    Case{"0", "1", true, Paging::TYPE_INDEX, Paging::OFFSET_LIMIT, 0, "", 1},
                    Case{"an-id", "", true, Paging::TYPE_UUID, Paging::OFFSET, 0, "an-id", 50},
                    Case{"2f", "3", true, Paging::TYPE_UUID, Paging::OFFSET_LIMIT, 0, "2f", 3},
                    Case{"99999999999999999999", "", true, Paging::TYPE_INDEX, Paging::OFFSET, INT_LIMIT, "", 50},
                    Case{"", "500", true, Paging::TYPE_INDEX, Paging::LIMIT, 0, "", 500},
                    Case{"", "501", true, Paging::TYPE_INDEX, Paging::LIMIT, 0, "", 500},
                    Case{"", "99999999999999999999", true, Paging::TYPE_INDEX, Paging::LIMIT, 0, "", 500},
                    Case{"", "0", false, Paging::TYPE_INDEX, Paging::LIMIT, 0, "", 50},
                    Case{"", "-1", false, Paging::TYPE_INDEX, Paging::LIMIT, 0, "", 50},
                    Case{"", "ten", false, Paging::TYPE_INDEX, Paging::LIMIT, 0, "", 50},
                    Case{"-1", "", false, Paging::TYPE_INDEX, Paging::OFFSET, 0, "", 50}));

TEST(PagingTest, NumbersAreReadAsTheirTexts)
{
    const Paging paging(20, 10);
    EXPECT_TRUE(paging.isValid());
    EXPECT_EQ(paging.getNumberOffset(), 20);
    EXPECT_EQ(paging.getLimit(), 10);
    EXPECT_EQ(paging.getPagingRequestType(), Paging::OFFSET_LIMIT);
    EXPECT_FALSE(Paging(-1, 10).isValid());
    EXPECT_FALSE(Paging(0, 0).isValid());
    EXPECT_EQ(Paging(0, 9999).getLimit(), Paging::PAGING_LIMIT_MAX);
}

TEST(PagingTest, DefaultPagingIsForcedAndCutsAtTheMaximum)
{
    const Paging paging = Paging::createDefaultPaging();
    EXPECT_TRUE(paging.isValid());
    EXPECT_EQ(paging.getPagingRequestType(), Paging::FORCED);
    EXPECT_EQ(paging.getType(), Paging::TYPE_INDEX);
    EXPECT_EQ(paging.getNumberOffset(), 0);
    EXPECT_EQ(paging.getLimit(), 500);
}

/// A list of elements with the ids "e0", "e1" and so on.
Poco::JSON::Array::Ptr list(int size)
{
    Poco::JSON::Array::Ptr array = new Poco::JSON::Array;
    for (int i = 0; i < size; ++i)
    {
        Poco::JSON::Object::Ptr element = new Poco::JSON::Object;
        element->set("id", "e" + std::to_string(i));
        array->add(element);
    }
    return array;
}

std::string ids(const Poco::JSON::Array::Ptr& page)
{
    std::string result;
    for (unsigned int i = 0; i < page->size(); ++i)
        result += page->getObject(i)->getValue<std::string>("id") + " ";
    return result;
}

TEST(PagingTest, PageHoldsTheElementsFromItsOffset)
{
    EXPECT_EQ(ids(Paging("", "2").applyArrayPaging(list(5))), "e0 e1 ");
    EXPECT_EQ(ids(Paging("3", "").applyArrayPaging(list(5))), "e3 e4 ");
    EXPECT_EQ(ids(Paging("e2", "2").applyArrayPaging(list(5))), "e2 e3 ");
    EXPECT_EQ(ids(Paging("5", "2").applyArrayPaging(list(5))), "");
    EXPECT_EQ(ids(Paging("99999999999", "2").applyArrayPaging(list(5))), "");
    EXPECT_EQ(ids(Paging("unknown", "2").applyArrayPaging(list(5))), "");
    EXPECT_EQ(ids(Paging("", "2").applyArrayPaging(list(0))), "");
}

TEST(PagingTest, WholeListIsGivenWhereNoPageWasAskedFor)
{
    const Poco::JSON::Array::Ptr whole = list(3);
    EXPECT_EQ(Paging("", "").applyArrayPaging(whole), whole);
}

TEST(PagingTest, PageSharesItsElementsWithTheList)
{
    const Poco::JSON::Array::Ptr whole = list(3);
    EXPECT_EQ(Paging("1", "1").applyArrayPaging(whole)->getObject(0), whole->getObject(1));
}

TEST(PagingTest, NumberIsAnIdThatAnOffsetByIdFinds)
{
    Poco::JSON::Array::Ptr array = list(2);
    Poco::JSON::Object::Ptr element = new Poco::JSON::Object;
    element->set("id", 17);
    array->add(element);
    array->add("no object");
    EXPECT_EQ(Paging("x17", "1").applyArrayPaging(array)->size(), 0u);
    EXPECT_EQ(Paging("e1", "9").applyArrayPaging(array)->size(), 3u);
}

TEST(PagingTest, InfoTellsTotalsAndNeighbours)
{
    const Poco::URI url("http://h/s/r?$offset=2&a=b%26c&$limit=2#f");
    const Poco::JSON::Object::Ptr info = Paging("2", "2").createPagingInfo(*list(5), url);
    EXPECT_EQ(info->getValue<int>(ResponseObject::FIELD_PAGING_TOTAL), 5);
    EXPECT_EQ(info->getValue<int>(ResponseObject::FIELD_PAGING_TOTAL_PAGES), 3);
    EXPECT_EQ(info->getValue<int>(ResponseObject::FIELD_PAGING_OFFSET), 2);
    EXPECT_EQ(info->getValue<int>(ResponseObject::FIELD_PAGING_LIMIT), 2);
    EXPECT_FALSE(info->has(ResponseObject::FIELD_PAGING_OFFSET_ID));
    EXPECT_EQ(info->getValue<std::string>(ResponseObject::FIELD_PAGING_PREVIOUS), "/s/r?a=b%26c&$offset=0&$limit=2");
    EXPECT_EQ(info->getValue<std::string>(ResponseObject::FIELD_PAGING_NEXT), "/s/r?a=b%26c&$offset=4&$limit=2");
}

TEST(PagingTest, InfoByIdGivesIdsEncoded)
{
    Poco::JSON::Array::Ptr array = list(3);
    array->getObject(2)->set("id", "a&b c");
    const Poco::JSON::Object::Ptr info =
        Paging("e1", "1").createPagingInfo(*array, Poco::URI("/s/r?$offset=e1&$limit=1"));
    EXPECT_EQ(info->getValue<std::string>(ResponseObject::FIELD_PAGING_OFFSET_ID), "e1");
    EXPECT_EQ(info->getValue<std::string>(ResponseObject::FIELD_PAGING_PREVIOUS), "/s/r?$offset=e0&$limit=1");
    EXPECT_EQ(info->getValue<std::string>(ResponseObject::FIELD_PAGING_NEXT), "/s/r?$offset=a%26b%20c&$limit=1");
}

TEST(PagingTest, InfoOfTheOnlyPageHasNoNeighbours)
{
    for (const Paging& paging: {Paging("", "5"), Paging("0", "50"), Paging::createDefaultPaging()})
    {
        const Poco::JSON::Object::Ptr info = paging.createPagingInfo(*list(5), Poco::URI("/s/r"));
        EXPECT_EQ(info->getValue<unsigned int>(ResponseObject::FIELD_PAGING_TOTAL_PAGES), 1u);
        EXPECT_FALSE(info->has(ResponseObject::FIELD_PAGING_PREVIOUS));
        EXPECT_FALSE(info->has(ResponseObject::FIELD_PAGING_NEXT));
    }
    const Poco::JSON::Object::Ptr whole = Paging("", "").createPagingInfo(*list(5), Poco::URI("/s/r"));
    EXPECT_EQ(whole->getValue<unsigned int>(ResponseObject::FIELD_PAGING_TOTAL_PAGES), 1u);
    EXPECT_EQ(whole->getValue<unsigned int>(ResponseObject::FIELD_PAGING_TOTAL), 5u);
}

TEST(PagingTest, InfoBehindTheEndPointsBackIntoTheList)
{
    const Poco::JSON::Object::Ptr info = Paging("100", "2").createPagingInfo(*list(5), Poco::URI("/s/r"));
    EXPECT_EQ(info->getValue<std::string>(ResponseObject::FIELD_PAGING_PREVIOUS), "/s/r?$offset=3&$limit=2");
    EXPECT_FALSE(info->has(ResponseObject::FIELD_PAGING_NEXT));
}

} // namespace
