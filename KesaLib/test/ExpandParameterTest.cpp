#include <Command/Query/ExpandParameter.h>

#include <gtest/gtest.h>

using Kesa::Command::ExpandParameter;

namespace
{

struct Expansion
{
    const char* text;
    bool valid;
    unsigned int level;
    std::vector<std::string> properties;
};

TEST(ExpandParameterTest, NumbersAreLevelsAndNamesAreProperties)
{
    const Expansion table[] = {{"0", true, 0, {}},
                               {"2", true, 2, {}},
                               {"007", true, 7, {}},
                               {"4294967295", true, 4294967295u, {}},
                               {"4294967296", true, 4294967295u, {}},
                               {"18446744073709551616", true, 4294967295u, {}},
                               {"a", true, 0, {"a"}},
                               {"a,b", true, 0, {"a", "b"}},
                               {"2,a", true, 0, {"2", "a"}},
                               {"2x", true, 0, {"2x"}},
                               {"", false, 0, {}},
                               {"a,,b", false, 0, {}},
                               {"-1", false, 0, {}}};
    for (const Expansion& expected: table)
    {
        const ExpandParameter parameter(expected.text);
        EXPECT_EQ(parameter.isValid(), expected.valid) << expected.text;
        EXPECT_EQ(parameter.getLevel(), expected.level) << expected.text;
        EXPECT_EQ(parameter.getProperties(), expected.properties) << expected.text;
    }
}

} // namespace
