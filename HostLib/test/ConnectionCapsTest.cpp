#include "ConnectionCaps.h"

#include <gtest/gtest.h>

using Kesa::Host::ConnectionCaps;

TEST(ConnectionCapsTest, RefusesBeyondTheCapOfAnAddressButNotOthers)
{
    ConnectionCaps caps(10, 2);
    EXPECT_TRUE(caps.enter("a"));
    EXPECT_TRUE(caps.enter("a"));
    EXPECT_FALSE(caps.enter("a"));
    EXPECT_TRUE(caps.enter("b"));
    EXPECT_EQ(caps.count(), 3u);
}

TEST(ConnectionCapsTest, RefusesBeyondTheCapInAll)
{
    ConnectionCaps caps(2, 10);
    EXPECT_TRUE(caps.enter("a"));
    EXPECT_TRUE(caps.enter("b"));
    EXPECT_FALSE(caps.enter("c"));
    EXPECT_EQ(caps.count(), 2u);
}

TEST(ConnectionCapsTest, LetsTheNextInWhenOneLeaves)
{
    ConnectionCaps caps(1, 1);
    EXPECT_TRUE(caps.enter("a"));
    caps.leave("a");
    EXPECT_EQ(caps.count(), 0u);
    EXPECT_TRUE(caps.enter("b"));
}

TEST(ConnectionCapsTest, LetsNobodyInWithACapOfZero)
{
    ConnectionCaps caps(10, 0);
    EXPECT_FALSE(caps.enter("a"));
}
