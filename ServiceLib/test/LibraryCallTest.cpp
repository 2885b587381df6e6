#include "LibraryCall.h"

#include "Delivery.h"

#include <CapturedLog.h>

#include <Poco/Exception.h>

#include <gtest/gtest.h>

#include <vector>

using namespace Kesa::Service;
using namespace Kesa::Test;
using Poco::Message;

TEST(LibraryCall, MarksItsThreadForItsOwnLifetime)
{
    EXPECT_FALSE(LibraryCall::isInside());
    {
        const LibraryCall outer;
        EXPECT_TRUE(LibraryCall::isInside());
        {
            const LibraryCall inner;
            EXPECT_TRUE(LibraryCall::isInside());
        }
        EXPECT_TRUE(LibraryCall::isInside());
        bool insideElsewhere = true;
        EXPECT_TRUE(runsElsewhere([&] { insideElsewhere = LibraryCall::isInside(); }));
        EXPECT_FALSE(insideElsewhere);
    }
    EXPECT_FALSE(LibraryCall::isInside());
}

TEST(LibraryCall, WhatIsPutOffRunsInOrderWhenTheOutermostOneEnds)
{
    std::vector<int> ran;
    {
        const LibraryCall outer;
        {
            const LibraryCall inner;
            LibraryCall::defer([&] { ran.push_back(1); });
        }
        EXPECT_TRUE(ran.empty());
        LibraryCall::defer([&] { ran.push_back(2); });
    }
    EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

TEST(LibraryCall, WhatIsPutOffRunsOutsideTheLibrary)
{
    bool wasInside = true;
    {
        const LibraryCall call;
        LibraryCall::defer([&] { wasInside = LibraryCall::isInside(); });
    }
    EXPECT_FALSE(wasInside);
}

TEST(LibraryCall, WhatIsPutOffMeanwhileComesAfterwards)
{
    std::vector<int> ran;
    {
        const LibraryCall call;
        LibraryCall::defer(
            [&]
            {
                const LibraryCall nested;
                LibraryCall::defer([&] { ran.push_back(3); });
                ran.push_back(1);
            });
        LibraryCall::defer([&] { ran.push_back(2); });
    }
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
}

TEST(LibraryCall, AnExceptionIsLoggedAndTheNextOneRuns)
{
    CapturedLog log;
    bool ran = false;
    {
        const LibraryCall call;
        LibraryCall::defer([] { throw Poco::TimeoutException("database"); });
        LibraryCall::defer([] { throw std::runtime_error("disk"); });
        LibraryCall::defer([] { throw 7; });
        LibraryCall::defer([&] { ran = true; });
    }
    EXPECT_TRUE(ran);
    const std::string text = "A change that was reported from inside a callback failed: ";
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 3U);
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, text + "Timeout: database"));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, text + "disk"));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, text + "unknown exception"));
}

TEST(LibraryCall, ManyChangesOfOneCallbackAllRun)
{
    CapturedLog log;
    int ran = 0;
    {
        const LibraryCall call;
        for (int i = 0; i < 5000; ++i)
            LibraryCall::defer([&] { ++ran; });
    }
    EXPECT_EQ(ran, 5000);
    EXPECT_EQ(log.entries().size(), 0U);
}

TEST(LibraryCall, AChangeThatAlwaysBringsAnotherComesToAnEnd)
{
    CapturedLog log;
    int ran = 0;
    std::function<void()> endless = [&]
    {
        ++ran;
        LibraryCall::defer(endless);
    };
    {
        const LibraryCall call;
        LibraryCall::defer(endless);
    }
    EXPECT_EQ(ran, 1001);
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "Dropped 1 changes: callbacks reported more than 1000 changes while one "
                                             "was served; does a data source report its own loads?"),
              1U);
    bool ranLater = false;
    {
        const LibraryCall call;
        LibraryCall::defer([&] { ranLater = true; });
    }
    EXPECT_TRUE(ranLater) << "the next call is served as ever";
    EXPECT_EQ(ran, 1001);
}
