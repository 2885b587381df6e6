#include "Delivery.h"
#include "SubscriptionObject.h"

#include <Command/WebSocketResponseObject.h>

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>

#include <gtest/gtest.h>

#include <ostream>

using namespace Kesa;
using namespace Kesa::Service;
using namespace Kesa::Test;
using Command::WebSocketResponseObject;
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{

/// Opens the comparison to the test; never built.
class Comparison: public SubscriptionObject
{
public:
    using SubscriptionObject::firstLevelCompare;
    using SubscriptionObject::isEqualData;
    using SubscriptionObject::isEqualDataList;
};

typedef SubscriptionObject::NotificationPtr NotificationPtr;

Var parse(const std::string& json)
{
    Poco::JSON::Parser parser;
    return parser.parse(json);
}

/// A notification with that data; an empty text stands for an empty pointer, "-" for one without data.
NotificationPtr notification(const std::string& json)
{
    if (json.empty())
        return nullptr;
    NotificationPtr result = new WebSocketResponseObject;
    if (json == "-")
        return result;
    const Var data = parse(json);
    if (data.type() == typeid(Array::Ptr))
        result->setData(data.extract<Array::Ptr>());
    else
        result->setData(data.extract<Object::Ptr>());
    return result;
}

enum Outcome
{
    EQUAL,
    DIFFERENT,
    BAD_CAST,     ///< "Can not convert ... to ..."
    EMPTY_EXTRACT ///< "Can not extract empty value."
};

struct Row
{
    const char* name;
    const char* before;
    const char* after;
    Outcome outcome;
};

std::ostream& operator<<(std::ostream& out, const Row& row)
{
    return out << row.before << " -> " << row.after;
}

template <class Compare>
void expectOutcome(const Row& row, Compare compare)
{
    NotificationPtr before = notification(row.before);
    NotificationPtr after = notification(row.after);
    try
    {
        const bool isEqual = compare(before, after);
        EXPECT_EQ(isEqual ? EQUAL : DIFFERENT, row.outcome);
    }
    catch (const Poco::BadCastException& exc)
    {
        EXPECT_EQ(row.outcome, BAD_CAST) << exc.displayText();
        EXPECT_EQ(exc.message().find("Can not convert "), 0U) << exc.message();
    }
    catch (const Poco::InvalidAccessException& exc)
    {
        EXPECT_EQ(row.outcome, EMPTY_EXTRACT) << exc.displayText();
        EXPECT_EQ(exc.message(), "Can not extract empty value.");
    }
}

class DataComparisonTest: public testing::TestWithParam<Row>
{
};
class ListComparisonTest: public testing::TestWithParam<Row>
{
};

std::string nameOf(const testing::TestParamInfo<Row>& row)
{
    return row.param.name;
}

} // namespace

TEST_P(DataComparisonTest, LooksAtTheFirstLevelAndAtIdentifyingMembersBelow)
{
    expectOutcome(GetParam(), Comparison::isEqualData);
}

INSTANTIATE_TEST_SUITE_P(
    Notifications, DataComparisonTest,
    testing::Values(Row{"BothEmpty", "", "", DIFFERENT}, Row{"FirstOne", "", R"({"a":1})", DIFFERENT},
                    Row{"NoneAfterOne", R"({"a":1})", "", DIFFERENT}, Row{"NoDataInBoth", "-", "-", EQUAL},
                    Row{"DataGone", R"({"a":1})", "-", DIFFERENT}, Row{"ObjectAfterNoData", "-", R"({"a":1})", EQUAL},
                    Row{"ListAfterNoData", "-", "[1]", DIFFERENT}, Row{"NoDataAfterList", "[1]", "-", DIFFERENT},
                    Row{"ListAfterObject", R"({"a":1})", "[1]", DIFFERENT},
                    Row{"ObjectAfterList", "[1]", R"({"a":1})", DIFFERENT}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    FirstLevel, DataComparisonTest,
    testing::Values(Row{"EmptyObjects", "{}", "{}", EQUAL},
                    Row{"Same", R"({"a":1,"b":"x"})", R"({"b":"x","a":1})", EQUAL},
                    Row{"ScalarChanged", R"({"a":1,"b":"x"})", R"({"a":2,"b":"x"})", DIFFERENT},
                    Row{"LastScalarChanged", R"({"a":1,"b":"x"})", R"({"a":1,"b":"y"})", DIFFERENT},
                    Row{"MemberMore", R"({"a":1})", R"({"a":1,"b":2})", DIFFERENT},
                    Row{"MemberLess", R"({"a":1,"b":2})", R"({"a":1})", DIFFERENT},
                    Row{"MemberRenamed", R"({"a":1})", R"({"b":1})", DIFFERENT},
                    Row{"NullStaysNull", R"({"a":null})", R"({"a":null})", EQUAL},
                    Row{"NullBecomesValue", R"({"a":null})", R"({"a":0})", DIFFERENT},
                    Row{"ValueBecomesNull", R"({"a":0})", R"({"a":null})", DIFFERENT},
                    Row{"NumberBecomesItsText", R"({"a":7})", R"({"a":"7"})", EQUAL},
                    Row{"TruthValueChanged", R"({"a":true})", R"({"a":false})", DIFFERENT},
                    Row{"ScalarBecomesObject", R"({"a":1})", R"({"a":{"id":1}})", DIFFERENT},
                    Row{"ObjectBecomesScalar", R"({"a":{"id":1}})", R"({"a":1})", BAD_CAST},
                    Row{"ObjectBecomesArray", R"({"a":{"id":1}})", R"({"a":[1]})", BAD_CAST},
                    Row{"ObjectBecomesNull", R"({"a":{"id":1}})", R"({"a":null})", EMPTY_EXTRACT},
                    Row{"ArrayBecomesScalar", R"({"a":[1]})", R"({"a":1})", BAD_CAST},
                    Row{"ArrayBecomesObject", R"({"a":[1]})", R"({"a":{"id":1}})", BAD_CAST},
                    Row{"ArrayBecomesNull", R"({"a":[1]})", R"({"a":null})", EMPTY_EXTRACT},
                    Row{"StopsAtTheFirstDifference", R"({"a":1,"b":{"id":1}})", R"({"a":2,"b":1})", DIFFERENT}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    NestedObject, DataComparisonTest,
    testing::Values(
        Row{"OtherMemberChanged", R"({"o":{"id":1,"x":1}})", R"({"o":{"id":1,"x":2}})", EQUAL},
        Row{"IdChanged", R"({"o":{"id":1}})", R"({"o":{"id":2}})", DIFFERENT},
        Row{"UriChanged", R"({"o":{"uri":"/a"}})", R"({"o":{"uri":"/b"}})", DIFFERENT},
        Row{"NameChanged", R"({"o":{"name":"a"}})", R"({"o":{"name":"b"}})", DIFFERENT},
        Row{"DescriptionChanged", R"({"o":{"description":"a"}})", R"({"o":{"description":"b"}})", EQUAL},
        Row{"NameGone", R"({"o":{"id":1,"name":"a"}})", R"({"o":{"id":1}})", DIFFERENT},
        Row{"NameCame", R"({"o":{"id":1}})", R"({"o":{"id":1,"name":"a"}})", EQUAL},
        Row{"OtherMemberCame", R"({"o":{"id":1}})", R"({"o":{"id":1,"x":1,"y":2}})", EQUAL},
        Row{"NothingIdentifying", R"({"o":{"x":1}})", R"({"o":{"y":[2]}})", EQUAL},
        Row{"BecameEmpty", R"({"o":{"x":1}})", R"({"o":{}})", EQUAL},
        Row{"DeeperMemberChanged", R"({"o":{"id":1,"p":{"id":1}}})", R"({"o":{"id":1,"p":{"id":2}}})", EQUAL},
        Row{"OtherMemberChangedItsType", R"({"o":{"id":1,"p":{"id":1}}})", R"({"o":{"id":1,"p":7}})", EQUAL}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    NestedArray, DataComparisonTest,
    testing::Values(Row{"Empty", R"({"l":[]})", R"({"l":[]})", EQUAL},
                    Row{"Grew", R"({"l":[1]})", R"({"l":[1,2]})", DIFFERENT},
                    Row{"ScalarsSame", R"({"l":[1,"x",null]})", R"({"l":[1,"x",null]})", EQUAL},
                    Row{"ScalarChanged", R"({"l":[1,2]})", R"({"l":[1,3]})", DIFFERENT},
                    Row{"ScalarsReordered", R"({"l":[1,2]})", R"({"l":[2,1]})", DIFFERENT},
                    Row{"ObjectsOtherMemberChanged", R"({"l":[{"id":1,"x":1}]})", R"({"l":[{"id":1,"x":2}]})", EQUAL},
                    Row{"ObjectsIdChanged", R"({"l":[{"id":1}]})", R"({"l":[{"id":2}]})", DIFFERENT},
                    Row{"ObjectsReordered", R"({"l":[{"id":1},{"id":2}]})", R"({"l":[{"id":2},{"id":1}]})", DIFFERENT},
                    Row{"ObjectBecomesScalar", R"({"l":[{"id":1}]})", R"({"l":[1]})", BAD_CAST},
                    Row{"ObjectBecomesNull", R"({"l":[{"id":1}]})", R"({"l":[null]})", EMPTY_EXTRACT},
                    Row{"ScalarBecomesObject", R"({"l":[1]})", R"({"l":[{"id":1}]})", DIFFERENT},
                    Row{"ArraysSame", R"({"l":[[1],[2]]})", R"({"l":[[1],[2]]})", EQUAL},
                    Row{"ArraysChanged", R"({"l":[[1],[2]]})", R"({"l":[[1],[3]]})", DIFFERENT},
                    Row{"ArraysGrew", R"({"l":[[1]]})", R"({"l":[[1,2]]})", DIFFERENT},
                    Row{"ArraysOfObjectsOtherMember", R"({"l":[[{"id":1,"x":1}]]})", R"({"l":[[{"id":1,"x":2}]]})",
                        EQUAL},
                    Row{"ArrayBecomesScalar", R"({"l":[[1]]})", R"({"l":[1]})", BAD_CAST}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    TopLevelArray, DataComparisonTest,
    testing::Values(Row{"Empty", "[]", "[]", EQUAL}, Row{"Scalars", "[1,2]", "[1,2]", EQUAL},
                    Row{"ScalarChanged", "[1,2]", "[1,3]", DIFFERENT}, Row{"Shrank", "[1,2]", "[1]", DIFFERENT},
                    Row{"ObjectsInFull", R"([{"id":1,"x":1}])", R"([{"id":1,"x":2}])", DIFFERENT},
                    Row{"ObjectsMemberMore", R"([{"id":1}])", R"([{"id":1,"x":2}])", DIFFERENT},
                    Row{"ObjectsNestedOther", R"([{"o":{"x":1}}])", R"([{"o":{"x":2}}])", EQUAL},
                    Row{"ObjectsNestedId", R"([{"o":{"id":1}}])", R"([{"o":{"id":2}}])", DIFFERENT},
                    Row{"ArraysOfScalars", "[[1]]", "[[2]]", DIFFERENT},
                    Row{"ArraysOfObjectsOtherMember", R"([[{"id":1,"x":1}]])", R"([[{"id":1,"x":2}]])", EQUAL},
                    Row{"ArraysOfObjectsId", R"([[{"id":1}]])", R"([[{"id":2}]])", DIFFERENT},
                    Row{"ArraysOfObjectsMemberMore", R"([[{"id":1}]])", R"([[{"id":1,"x":2}]])", EQUAL}),
    nameOf);

TEST_P(ListComparisonTest, LooksAtMembershipAndOrderAlone)
{
    expectOutcome(GetParam(), Comparison::isEqualDataList);
}

INSTANTIATE_TEST_SUITE_P(Notifications, ListComparisonTest,
                         testing::Values(Row{"BothEmpty", "", "", EQUAL}, Row{"FirstOne", "", "[]", DIFFERENT},
                                         Row{"NoneAfterOne", "[]", "", DIFFERENT},
                                         Row{"NoDataInBoth", "-", "-", DIFFERENT},
                                         Row{"DataGone", "[]", "-", DIFFERENT}, Row{"DataCame", "-", "[]", DIFFERENT},
                                         Row{"ObjectInsteadOfList", R"({"id":1})", R"({"id":1})", DIFFERENT}),
                         nameOf);

INSTANTIATE_TEST_SUITE_P(
    Lists, ListComparisonTest,
    testing::Values(Row{"BothWithoutElements", "[]", "[]", EQUAL}, Row{"ElementCame", "[]", R"([{"id":1}])", DIFFERENT},
                    Row{"ElementGone", R"([{"id":1},{"id":2}])", R"([{"id":1}])", DIFFERENT},
                    Row{"Same", R"([{"id":1},{"id":2}])", R"([{"id":1},{"id":2}])", EQUAL},
                    Row{"Reordered", R"([{"id":1},{"id":2}])", R"([{"id":2},{"id":1}])", DIFFERENT},
                    Row{"Replaced", R"([{"id":1}])", R"([{"id":2}])", DIFFERENT},
                    Row{"OtherMembersChanged", R"([{"id":1,"x":1,"o":{"id":1}}])", R"([{"id":1,"y":2,"o":7}])", EQUAL},
                    Row{"IdGone", R"([{"id":1}])", R"([{"x":1}])", DIFFERENT},
                    Row{"IdCame", R"([{"x":1}])", R"([{"id":1}])", DIFFERENT},
                    Row{"NeitherHasAnId", R"([{"x":1}])", R"([{"y":2}])", EQUAL},
                    Row{"DifferenceAfterOneWithoutId", R"([{"x":1},{"id":1}])", R"([{"x":1},{"id":2}])", DIFFERENT},
                    Row{"NumberAndItsDigits", R"([{"id":7}])", R"([{"id":"7"}])", EQUAL},
                    Row{"ScalarsAreNoElements", "[1]", "[1]", BAD_CAST},
                    Row{"ListsAreNoElements", "[[1]]", "[[1]]", BAD_CAST},
                    Row{"ElementBecomesScalar", R"([{"id":1}])", "[1]", BAD_CAST},
                    Row{"ElementBecomesNull", R"([{"id":1}])", "[null]", EMPTY_EXTRACT}),
    nameOf);

TEST(NotificationComparison, AnEmptyIdCannotBeCompared)
{
    NotificationPtr list = notification(R"([{"id":null}])");
    try
    {
        Comparison::isEqualDataList(list, notification(R"([{"id":null}])"));
        FAIL() << "an empty id was compared";
    }
    catch (const Poco::InvalidAccessException& exc)
    {
        EXPECT_EQ(exc.message(), "Can not convert empty value.");
    }
}

TEST(NotificationComparison, PagingBlocksOfTwoNotificationsNeverCountAsEqual)
{
    NotificationPtr before = notification(R"([{"id":1}])");
    NotificationPtr after = notification(R"([{"id":1}])");
    EXPECT_TRUE(Comparison::isEqualData(before, after));
    EXPECT_TRUE(Comparison::isEqualDataList(before, after));
    Object::Ptr block = new Object;
    before->setPaging(block);
    EXPECT_FALSE(Comparison::isEqualData(before, after));
    EXPECT_FALSE(Comparison::isEqualDataList(before, after));
    after->setPaging(block);
    EXPECT_FALSE(Comparison::isEqualData(before, after));
    EXPECT_FALSE(Comparison::isEqualDataList(before, after));
    EXPECT_TRUE(Comparison::isEqualData(before, before)) << "the block is compared as a pointer";
    EXPECT_TRUE(Comparison::isEqualDataList(before, before));
}

TEST(NotificationComparison, NullListElementsAreEqualOnlyToEachOther)
{
    const auto listOf = [](const Object::Ptr& element)
    {
        Array::Ptr list = new Array;
        list->add(element);
        NotificationPtr result = new WebSocketResponseObject;
        result->setData(list);
        return result;
    };
    const Object::Ptr none;
    Object::Ptr some = new Object;
    EXPECT_TRUE(Comparison::isEqualDataList(listOf(none), listOf(none)));
    EXPECT_FALSE(Comparison::isEqualDataList(listOf(none), listOf(some)));
    EXPECT_FALSE(Comparison::isEqualDataList(listOf(some), listOf(none)));
}

TEST(NotificationComparison, NullPointersAreEqualOnlyToEachOther)
{
    Object::Ptr object = new Object;
    Array::Ptr array = new Array;
    for (const uint8_t level: {0, 1})
    {
        EXPECT_TRUE(Comparison::firstLevelCompare(Object::Ptr(), Object::Ptr(), level));
        EXPECT_FALSE(Comparison::firstLevelCompare(object, Object::Ptr(), level));
        EXPECT_FALSE(Comparison::firstLevelCompare(Object::Ptr(), object, level));
        EXPECT_TRUE(Comparison::firstLevelCompare(Array::Ptr(), Array::Ptr(), level));
        EXPECT_FALSE(Comparison::firstLevelCompare(array, Array::Ptr(), level));
        EXPECT_FALSE(Comparison::firstLevelCompare(Array::Ptr(), array, level));
    }
}

TEST(NotificationComparison, PartsThatAreHeldByValueAreNotExtracted)
{
    const auto with = [](const Var& part)
    {
        Object::Ptr result = new Object;
        result->set("part", part);
        return result;
    };
    EXPECT_THROW(Comparison::firstLevelCompare(with(Object()), with(Object()), 0), Poco::BadCastException);
    EXPECT_THROW(Comparison::firstLevelCompare(with(Array()), with(Array()), 0), Poco::BadCastException);
}

TEST(NotificationComparison, AnArrayRaisesTheLevelOfItsArraysAlone)
{
    const auto array = [](const std::string& json) { return parse(json).extract<Array::Ptr>(); };
    EXPECT_FALSE(Comparison::firstLevelCompare(array(R"([{"x":1}])"), array(R"([{"x":2}])"), 0));
    EXPECT_TRUE(Comparison::firstLevelCompare(array(R"([{"x":1}])"), array(R"([{"x":2}])"), 1));
    EXPECT_TRUE(Comparison::firstLevelCompare(array(R"([[{"x":1}]])"), array(R"([[{"x":2}]])"), 0));
}
