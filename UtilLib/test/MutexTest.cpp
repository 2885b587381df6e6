#include <Mutex.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace Kesa::Util;

namespace
{

/// Whether another thread can take the mutex now. The analysis cannot follow a lock that is given back conditionally.
template <class M>
bool freeForOthers(M& mutex) KESA_NO_THREAD_SAFETY_ANALYSIS
{
    bool taken = false;
    std::thread(
        [&]() KESA_NO_THREAD_SAFETY_ANALYSIS
        {
            taken = mutex.tryLock();
            if (taken)
                mutex.unlock();
        })
        .join();
    return taken;
}

template <class M>
class MutexTest: public ::testing::Test
{
};
typedef ::testing::Types<Mutex, FastMutex> Kinds;
TYPED_TEST_SUITE(MutexTest, Kinds);

TYPED_TEST(MutexTest, AScopedLockHoldsTheMutexForItsLifetime)
{
    TypeParam mutex;
    {
        ScopedLock<TypeParam> lock(mutex);
        EXPECT_FALSE(freeForOthers(mutex));
    }
    EXPECT_TRUE(freeForOthers(mutex));
}

TYPED_TEST(MutexTest, AScopedLockOpensAndClosesInBetween)
{
    TypeParam mutex;
    {
        ScopedLock<TypeParam> lock(mutex);
        lock.unlock();
        EXPECT_TRUE(freeForOthers(mutex));
        lock.lock();
        EXPECT_FALSE(freeForOthers(mutex));
        lock.unlock();
    }
    EXPECT_TRUE(freeForOthers(mutex));
}

TYPED_TEST(MutexTest, OneThreadAtATimeIsInside)
{
    struct Guarded
    {
        TypeParam mutex;
        int count KESA_GUARDED_BY(mutex) = 0;
    } guarded;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&guarded]
            {
                for (int step = 0; step < 10'000; ++step)
                {
                    ScopedLock<TypeParam> lock(guarded.mutex);
                    ++guarded.count;
                }
            });
    for (auto& thread: threads)
        thread.join();
    ScopedLock<TypeParam> lock(guarded.mutex);
    EXPECT_EQ(guarded.count, 40'000);
}

TEST(MutexTest, TheRecursiveMutexIsFreeOnlyAfterItsLastUnlock)
{
    Mutex mutex;
    const auto twice = [&mutex]() KESA_NO_THREAD_SAFETY_ANALYSIS
    {
        ScopedLock<Mutex> outer(mutex);
        {
            ScopedLock<Mutex> inner(mutex);
        }
        EXPECT_FALSE(freeForOthers(mutex));
    };
    twice();
    EXPECT_TRUE(freeForOthers(mutex));
}

bool canRead(RWLock& lock) KESA_NO_THREAD_SAFETY_ANALYSIS
{
    bool taken = false;
    std::thread(
        [&]() KESA_NO_THREAD_SAFETY_ANALYSIS
        {
            taken = lock.tryReadLock();
            if (taken)
                lock.unlock();
        })
        .join();
    return taken;
}

bool canWrite(RWLock& lock) KESA_NO_THREAD_SAFETY_ANALYSIS
{
    bool taken = false;
    std::thread(
        [&]() KESA_NO_THREAD_SAFETY_ANALYSIS
        {
            taken = lock.tryWriteLock();
            if (taken)
                lock.unlock();
        })
        .join();
    return taken;
}

TEST(RWLockTest, ReadersShareAndKeepWritersOut)
{
    RWLock lock;
    {
        ReadLock reading(lock);
        EXPECT_TRUE(canRead(lock));
        EXPECT_FALSE(canWrite(lock));
    }
    EXPECT_TRUE(canWrite(lock));
}

TEST(RWLockTest, AWriterIsAlone)
{
    RWLock lock;
    {
        WriteLock writing(lock);
        EXPECT_FALSE(canRead(lock));
        EXPECT_FALSE(canWrite(lock));
    }
    EXPECT_TRUE(canRead(lock));
}

} // namespace
