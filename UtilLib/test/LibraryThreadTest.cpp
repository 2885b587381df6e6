#include <LibraryThread.h>

#include <gtest/gtest.h>

#include <thread>

using Kesa::Util::LibraryThread;

namespace
{

TEST(LibraryThreadTest, AThreadIsMarkedForTheGuardsLifetime)
{
    EXPECT_FALSE(LibraryThread::isCurrent());
    {
        LibraryThread mark;
        EXPECT_TRUE(LibraryThread::isCurrent());
    }
    EXPECT_FALSE(LibraryThread::isCurrent());
}

TEST(LibraryThreadTest, MarksNest)
{
    LibraryThread outer;
    {
        LibraryThread inner;
        EXPECT_TRUE(LibraryThread::isCurrent());
    }
    EXPECT_TRUE(LibraryThread::isCurrent());
}

TEST(LibraryThreadTest, AnotherThreadIsNotMarked)
{
    LibraryThread mark;
    bool marked = true;
    std::thread([&marked] { marked = LibraryThread::isCurrent(); }).join();
    EXPECT_FALSE(marked);
}

} // namespace
