#include "WorkerActivity.h"

#include "BusyPool.h"
#include "Delivery.h"

#include <LibraryThread.h>

#include <Poco/Event.h>
#include <Poco/Exception.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

using namespace Kesa;
using namespace Kesa::Service;
using namespace Kesa::Test;

TEST(WorkerActivity, IsStoppedAndNotRunningBeforeItsFirstStart)
{
    const WorkerActivity activity([] {});
    EXPECT_FALSE(activity.isRunning());
    EXPECT_TRUE(activity.isStopped());
}

TEST(WorkerActivity, RunsItsBodyOnALibraryThreadUntilItIsStopped)
{
    Poco::Event wake;
    std::atomic<bool> isMarked{false};
    WorkerActivity activity(
        [&]
        {
            isMarked = Util::LibraryThread::isCurrent();
            wake.wait();
            activity.ending();
        });
    activity.start();
    EXPECT_TRUE(activity.isRunning());
    EXPECT_FALSE(activity.isStopped());
    activity.start(); // the one that runs is enough
    activity.stop();
    EXPECT_TRUE(activity.isStopped());
    EXPECT_TRUE(activity.isRunning());
    wake.set();
    activity.wait();
    EXPECT_FALSE(activity.isRunning());
    EXPECT_TRUE(isMarked);
}

TEST(WorkerActivity, ABodyThatEndsByItselfDoesNotCountAsStopped)
{
    WorkerActivity activity([&] { activity.ending(); });
    activity.start();
    activity.wait();
    EXPECT_FALSE(activity.isRunning());
    EXPECT_FALSE(activity.isStopped());
}

TEST(WorkerActivity, StartsAgainAsSoonAsItsBodyHasSaidThatItEnds)
{
    std::atomic<int> runs{0};
    WorkerActivity activity(
        [&]
        {
            activity.ending();
            if (++runs < 5)
                activity.start();
        });
    activity.start();
    EXPECT_TRUE(eventually([&] { return runs == 5; }));
    activity.wait();
    EXPECT_EQ(runs, 5);
    EXPECT_FALSE(activity.isRunning());
}

TEST(WorkerActivity, WithoutAThreadNothingHasChanged)
{
    std::atomic<int> runs{0};
    WorkerActivity activity(
        [&]
        {
            ++runs;
            activity.ending();
        });
    {
        const BusyPool busy;
        EXPECT_THROW(activity.start(), Poco::NoThreadAvailableException);
        EXPECT_FALSE(activity.isRunning());
        EXPECT_TRUE(activity.isStopped());
        activity.wait();
    }
    activity.start();
    activity.wait();
    EXPECT_EQ(runs, 1);
}

TEST(WorkerActivity, MayBeDestroyedAsSoonAsItsBodyHasEnded)
{
    for (int i = 0; i < 300; ++i)
    {
        Poco::Event wake;
        auto activity = std::make_unique<WorkerActivity>([&] { wake.wait(); });
        activity->start();
        activity->stop();
        wake.set();
        activity.reset(); // waits
    }
    SUCCEED() << "the sanitizers see what is touched too late";
}
