#include <Command/Query/SortParameter.h>

#include <gtest/gtest.h>

using Kesa::Command::SortParameter;

namespace
{

TEST(SortParameterTest, MinusMeansFallingOrder)
{
    const SortParameter parameter("name,-size,--odd");
    ASSERT_TRUE(parameter.isValid());
    ASSERT_EQ(parameter.getKeys().size(), 3u);
    EXPECT_EQ(parameter.getKeys()[0].name, "name");
    EXPECT_FALSE(parameter.getKeys()[0].descending);
    EXPECT_EQ(parameter.getKeys()[1].name, "size");
    EXPECT_TRUE(parameter.getKeys()[1].descending);
    EXPECT_EQ(parameter.getKeys()[2].name, "-odd");
}

TEST(SortParameterTest, EmptyListsAndNamesAreInvalid)
{
    for (const char* text: {"", "-", "a,-", "a,,b", ","})
    {
        EXPECT_FALSE(SortParameter(text).isValid()) << text;
        EXPECT_TRUE(SortParameter(text).getKeys().empty()) << text;
    }
}

} // namespace
