#include "Names.h"

#include <gtest/gtest.h>

#include <string>

using Kesa::Registry::isEntryId;
using Kesa::Registry::isServiceName;

namespace
{

const std::string ID = "550e8400-e29b-41d4-a716-446655440000";

} // namespace

TEST(NamesTest, TakesEveryCharacterThatANameMayHave)
{
    EXPECT_TRUE(isServiceName("AZaz09._-"));
    EXPECT_TRUE(isServiceName("x"));
    EXPECT_TRUE(isServiceName("registry2"));
    EXPECT_TRUE(isServiceName("Registry"));
    EXPECT_TRUE(isServiceName(std::string(64, 'n')));
}

TEST(NamesTest, RefusesOtherTextsAsNames)
{
    for (const std::string& text: {std::string(), std::string(65, 'n'), std::string("a b"), std::string("a/b"),
                                   std::string("a?"), std::string("\xc3\xa4"), std::string("a\0b", 3), std::string("."),
                                   std::string(".."), std::string("registry")})
        EXPECT_FALSE(isServiceName(text)) << text;
}

TEST(NamesTest, RefusesWhatCouldBeTakenForAnId)
{
    EXPECT_FALSE(isServiceName(ID));
    EXPECT_FALSE(isServiceName("550E8400-E29B-41D4-A716-446655440000"));
    EXPECT_FALSE(isServiceName("550e8400e29b41d4a716446655440000"));
    EXPECT_TRUE(isServiceName("550e8400e29b41d4a71644665544000")) << "one digit less is no id";
    EXPECT_TRUE(isServiceName(ID + "x"));
}

TEST(NamesTest, KnowsIdsOfEntries)
{
    EXPECT_TRUE(isEntryId(ID));
    EXPECT_TRUE(isEntryId("550E8400-E29B-41D4-A716-446655440000"));
    EXPECT_FALSE(isEntryId(""));
    EXPECT_FALSE(isEntryId(ID + "0"));
    EXPECT_FALSE(isEntryId(ID.substr(1)));
    EXPECT_FALSE(isEntryId("g50e8400-e29b-41d4-a716-446655440000"));
    EXPECT_FALSE(isEntryId("550e8400e-29b-41d4-a716-446655440000"));
}
