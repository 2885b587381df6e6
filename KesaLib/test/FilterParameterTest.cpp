#include <Command/Query/FilterParameter.h>

#include <gtest/gtest.h>

using Kesa::Command::FilterParameter;

namespace
{

std::vector<std::string> names(const FilterParameter& parameter)
{
    std::vector<std::string> result;
    for (const auto& field: parameter.getFields())
        result.push_back(field.getName());
    return result;
}

TEST(FilterParameterTest, NamesComeInTheOrderOfTheUrlAndEachOnce)
{
    const FilterParameter parameter("b,a,b,c d");
    EXPECT_TRUE(parameter.isValid());
    EXPECT_EQ(names(parameter), (std::vector<std::string>{"b", "a", "c d"}));
    EXPECT_TRUE(parameter.contains("c d"));
    EXPECT_FALSE(parameter.contains("c"));
    EXPECT_FALSE(parameter.contains("A"));
}

TEST(FilterParameterTest, FieldsOfAQueryHaveNoPaging)
{
    EXPECT_TRUE(FilterParameter("a").getFields().front().getPaging().isNull());
}

TEST(FilterParameterTest, FieldKeepsThePagingItIsGiven)
{
    const Poco::SharedPtr<Kesa::Command::Paging> paging = new Kesa::Command::Paging(0, 10);
    const Kesa::Command::FilterField field("list", paging);
    EXPECT_EQ(field.getPaging(), paging);
    EXPECT_EQ(field.getName(), "list");
}

TEST(FilterParameterTest, EmptyListsAndNamesAreInvalidAndNameNothing)
{
    for (const char* text: {"", ",", "a,", ",a", "a,,b"})
    {
        const FilterParameter parameter(text);
        EXPECT_FALSE(parameter.isValid()) << text;
        EXPECT_TRUE(parameter.getFields().empty()) << text;
        EXPECT_FALSE(parameter.contains("a")) << text;
    }
}

TEST(FilterParameterTest, MoreNamesThanTheBoundAreInvalid)
{
    std::string list = "a0";
    for (int i = 1; i < 1000; ++i)
        list += ",a" + std::to_string(i);
    EXPECT_EQ(FilterParameter(list).getFields().size(), 1000u);
    EXPECT_FALSE(FilterParameter(list + ",b").isValid());
}

} // namespace
