#pragma once

#include <Poco/Timestamp.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <sys/resource.h>
#include <thread>

/// Waits until the condition holds; false if it does not within ten seconds.
template <class Condition>
bool eventually(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

inline long entriesOf(const char* directory)
{
    return std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator());
}

/// How many descriptors, and how many threads, this process has open.
inline long openDescriptors()
{
    return entriesOf("/proc/self/fd");
}
inline long runningThreads()
{
    return entriesOf("/proc/self/task");
}

/// Lets this process open as many descriptors as the system allows it.
inline void raiseDescriptorLimit()
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

/// Milliseconds that pass while this object lives.
class Stopwatch
{
public:
    double milliseconds() const
    {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - m_start).count();
    }

private:
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};
