#include "StopSignal.h"

#include <gtest/gtest.h>

#include <csignal>
#include <poll.h>

namespace
{

bool isReadable(int descriptor)
{
    pollfd ready{descriptor, POLLIN, 0};
    return poll(&ready, 1, 0) == 1;
}

class StopSignalTest: public testing::TestWithParam<int>
{
};

TEST_P(StopSignalTest, MakesItsDescriptorReadableAndStaysSo)
{
    Kesa::Client::StopSignal stop;
    EXPECT_FALSE(isReadable(stop.descriptor()));
    std::raise(GetParam());
    EXPECT_TRUE(isReadable(stop.descriptor()));
    EXPECT_TRUE(isReadable(stop.descriptor()));
}

TEST_P(StopSignalTest, LetsTheSecondSignalEndTheProcess)
{
    const auto signalTwice = []
    {
        Kesa::Client::StopSignal stop;
        std::raise(GetParam());
        std::raise(GetParam());
    };
    EXPECT_EXIT(signalTwice(), testing::KilledBySignal(GetParam()), "");
}

TEST_P(StopSignalTest, PutsTheDefaultBackAtItsEnd)
{
    const auto signalAfterwards = []
    {
        {
            Kesa::Client::StopSignal stop;
        }
        std::raise(GetParam());
    };
    EXPECT_EXIT(signalAfterwards(), testing::KilledBySignal(GetParam()), "");
}

INSTANTIATE_TEST_SUITE_P(Signals, StopSignalTest, testing::Values(SIGINT, SIGTERM));

} // namespace
