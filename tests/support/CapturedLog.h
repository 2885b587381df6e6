#pragma once

#include <Log.h>

#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Kesa::Test
{

/// Collects what the process logs, for the object's own lifetime; afterwards channel and level are as before.
///
///     CapturedLog log;                                            // level Trace
///     subscribe("/shop/orders");
///     EXPECT_TRUE(log.contains(Poco::Message::PRIO_INFORMATION, "New subscription: /shop/orders"));
///     EXPECT_EQ(log.count(Poco::Message::PRIO_ERROR), 0U);
///     ASSERT_TRUE(log.waitFor(Poco::Message::PRIO_DEBUG, "worker ended"));    // from another thread
///
/// The text of an entry is what follows the source position and the level's prefix. A statement whose prefix does not
/// belong to its priority is kept as a whole, so that no comparison with the plain text succeeds.
///
/// Threads: every operation from any thread; threads may log while a capture begins and ends. Captures nest, the inner
/// one
///          gets the messages; build and destroy them on one thread.
class CapturedLog
{
public:
    struct Entry
    {
        Poco::Message::Priority priority;
        std::string text;
    };

    explicit CapturedLog(Poco::Message::Priority level = Poco::Message::PRIO_TRACE)
        : m_previousLevel(Logging::Log::GetLogLevel())
    {
        Switch& channel = Switch::installed();
        m_outer = channel.exchange(this);
        Logging::Log::SetLogLevel(level, "");
    }

    ~CapturedLog()
    {
        Logging::Log::SetLogLevel(m_previousLevel, "");
        Switch::installed().exchange(m_outer);
    }

    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    /// All messages so far, oldest first.
    std::vector<Entry> entries() const
    {
        std::lock_guard lock(m_mutex);
        return m_entries;
    }

    /// How many messages of this priority there are; with a text, how many of exactly that text.
    std::size_t count(Poco::Message::Priority priority) const
    {
        return countIf([&](const Entry& entry) { return entry.priority == priority; });
    }
    std::size_t count(Poco::Message::Priority priority, std::string_view text) const
    {
        return countIf([&](const Entry& entry) { return entry.priority == priority && entry.text == text; });
    }

    /// True if a message of this priority has exactly this text.
    bool contains(Poco::Message::Priority priority, std::string_view text) const { return count(priority, text) > 0; }

    /// True if a message of this priority has this part in its text.
    bool containsPart(Poco::Message::Priority priority, std::string_view part) const
    {
        return countIf([&](const Entry& entry)
                       { return entry.priority == priority && entry.text.find(part) != std::string::npos; }) > 0;
    }

    /// Waits until contains() is true, at most `limit`. False when the limit passed.
    bool waitFor(Poco::Message::Priority priority, std::string_view text,
                 std::chrono::milliseconds limit = std::chrono::seconds(10)) const
    {
        const auto found = [&](const Entry& entry) { return entry.priority == priority && entry.text == text; };
        std::unique_lock lock(m_mutex);
        return m_grown.wait_for(lock, limit, [&] { return std::any_of(m_entries.begin(), m_entries.end(), found); });
    }

    /// Forgets the messages so far.
    void clear()
    {
        std::lock_guard lock(m_mutex);
        m_entries.clear();
    }

private:
    /// The logger's channel from the first capture on: hands each message to the present capture, else to the channel
    /// that was there before. It stays for ever, since a thread may log at the very moment in which a capture ends.
    class Switch: public Poco::Channel
    {
    public:
        static Switch& installed()
        {
            static Switch& instance = *new Switch;
            const auto present = Logging::Log::Logger().getChannel();
            if (present.get() != &instance)
            {
                instance.setBehind(present);
                Logging::Log::Logger().setChannel(Poco::AutoPtr<Poco::Channel>(&instance, true));
            }
            return instance;
        }

        CapturedLog* exchange(CapturedLog* capture)
        {
            std::lock_guard lock(m_mutex);
            return std::exchange(m_capture, capture);
        }

        void log(const Poco::Message& message) override
        {
            std::lock_guard lock(m_mutex);
            if (m_capture)
                m_capture->add(message);
            else if (m_behind)
                m_behind->log(message);
        }

    private:
        void setBehind(const Poco::AutoPtr<Poco::Channel>& channel)
        {
            std::lock_guard lock(m_mutex);
            m_behind = channel;
        }

        std::mutex m_mutex;               ///< guards both; taken before a capture's own
        CapturedLog* m_capture = nullptr; ///< not owned
        Poco::AutoPtr<Poco::Channel> m_behind;
    };

    /// Installs the switch while the program starts: POCO's logger does not guard its channel against threads that log.
    static inline const bool m_isInstalled = (Switch::installed(), true);

    void add(const Poco::Message& message)
    {
        std::lock_guard lock(m_mutex);
        m_entries.push_back({message.getPriority(), withoutPrefix(message)});
        m_grown.notify_all();
    }

    static std::string withoutPrefix(const Poco::Message& message)
    {
        const std::string& text = message.getText();
        const std::string prefix = Logging::Log::logLevelToString(message.getPriority()) + ": ";
        const std::size_t position = text.find("] ");
        const std::size_t start = position == std::string::npos ? 0 : position + 2;
        return text.compare(start, prefix.size(), prefix) == 0 ? text.substr(start + prefix.size()) : text;
    }

    template <class Predicate>
    std::size_t countIf(Predicate matches) const
    {
        std::lock_guard lock(m_mutex);
        return static_cast<std::size_t>(std::count_if(m_entries.begin(), m_entries.end(), matches));
    }

    const Poco::Message::Priority m_previousLevel;
    CapturedLog* m_outer = nullptr; ///< not owned
    mutable std::mutex m_mutex;     ///< guards m_entries
    mutable std::condition_variable m_grown;
    std::vector<Entry> m_entries;
};

/// GoogleTest prints entries with this.
inline std::ostream& operator<<(std::ostream& out, const CapturedLog::Entry& entry)
{
    return out << Logging::Log::logLevelToString(entry.priority) << ": " << entry.text;
}

} // namespace Kesa::Test
