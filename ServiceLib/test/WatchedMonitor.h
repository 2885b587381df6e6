#pragma once

#include <SRServiceMonitor.h>

#include <Poco/Delegate.h>
#include <Poco/ErrorHandler.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Kesa::Test
{

/// A monitor and what it has told, with the seconds since it was built.
class WatchedMonitor
{
public:
    typedef std::chrono::steady_clock Clock;

    struct Status
    {
        Service::SRServiceMonitor::SRStatus status;
        double seconds;
        std::thread::id thread;
    };

    WatchedMonitor(): m_start(Clock::now()), m_monitor(new Service::SRServiceMonitor)
    {
        m_monitor->ServiceRegistryStatus += Poco::delegate(this, &WatchedMonitor::onStatus);
        m_monitor->ServiceEntryGone += Poco::delegate(this, &WatchedMonitor::onGone);
    }
    ~WatchedMonitor() { end(); }

    Service::SRServiceMonitor& monitor() { return *m_monitor; }

    /// Destroys the monitor; waits for a running check.
    void end() { m_monitor.reset(); }

    /// What the handler of ServiceEntryGone does besides; set before the first check.
    std::function<void(const std::string&)> onEntryGone = [](const std::string&) {};

    /// True once so many reports of the status have come, and false if that takes more than `limit`.
    bool waitForStatus(std::size_t count, std::chrono::seconds limit)
    {
        std::unique_lock lock(m_mutex);
        return m_told.wait_for(lock, limit, [&] { return m_status.size() >= count; });
    }
    bool waitForGone(std::size_t count, std::chrono::seconds limit)
    {
        std::unique_lock lock(m_mutex);
        return m_told.wait_for(lock, limit, [&] { return m_gone.size() >= count; });
    }
    std::vector<Status> status() const
    {
        std::lock_guard lock(m_mutex);
        return m_status;
    }
    std::vector<std::string> gone() const
    {
        std::lock_guard lock(m_mutex);
        return m_gone;
    }

private:
    void onStatus(const void* sender, Service::SRServiceMonitor::SRStatus& status)
    {
        EXPECT_EQ(sender, nullptr);
        const std::chrono::duration<double> age = Clock::now() - m_start;
        std::lock_guard lock(m_mutex);
        m_status.push_back({status, age.count(), std::this_thread::get_id()});
        m_told.notify_all();
    }
    void onGone(const void* sender, std::string& uuid)
    {
        EXPECT_EQ(sender, nullptr);
        onEntryGone(uuid);
        std::lock_guard lock(m_mutex);
        EXPECT_TRUE(!m_status.empty() && m_status.back().thread == std::this_thread::get_id())
            << "both events come from the timer's thread";
        m_gone.push_back(uuid);
        m_told.notify_all();
    }

    const Clock::time_point m_start;
    mutable std::mutex m_mutex; ///< guards what was told
    std::condition_variable m_told;
    std::vector<Status> m_status;
    std::vector<std::string> m_gone;
    std::unique_ptr<Service::SRServiceMonitor> m_monitor; ///< goes first, since its handlers use the rest
};

/// Counts what leaves a timer's callback as an exception.
class CountingErrorHandler: public Poco::ErrorHandler
{
public:
    CountingErrorHandler(): m_previous(Poco::ErrorHandler::set(this)) {}
    ~CountingErrorHandler() override { Poco::ErrorHandler::set(m_previous); }

    using Poco::ErrorHandler::exception;
    void exception(const Poco::Exception&) override { ++count; }

    std::atomic<int> count = 0;

private:
    Poco::ErrorHandler* m_previous;
};

} // namespace Kesa::Test
