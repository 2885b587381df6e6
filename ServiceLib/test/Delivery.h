#pragma once

#include "LoopbackConnection.h"
#include "ScriptedSource.h"

#include <Command/WebSocketRequestObject.h>
#include <Time/Now.h>
#include <Websocket/WebSocketProxy.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <utility>

namespace Kesa::Test
{

using Util::TestClock;

/// What a client sends to subscribe; `members` are further members of the message, as in "\"interval\":1000".
inline Command::WebSocketRequestObject subscribeTo(const std::string& event, const std::string& members = "")
{
    return Command::WebSocketRequestObject(R"({"type":"subscribe","event":")" + event + '"' +
                                           (members.empty() ? "" : "," + members) + "}");
}

/// A handle to which every write raises Poco::Net::WebSocketException.
inline Net::WebSocketProxy noConnection()
{
    return Net::WebSocketProxy(Poco::SharedPtr<Poco::Net::WebSocket>(), nullptr);
}

/// Waits until `condition` holds, at most 20 s. False when the time has passed.
template <class Condition>
bool eventually(Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Runs `action` on a thread of its own; false when it has not ended after 20 s, as when it waits for a lock that the
/// caller holds. The thread is waited for in any case.
template <class Action>
bool runsElsewhere(Action action)
{
    std::future<void> done = std::async(std::launch::async, std::move(action));
    return done.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
}

/// Holds up whoever passes, until it is opened.
class Gate
{
public:
    void open() { m_promise.set_value(); }
    /// At most 20 s.
    void pass()
    {
        m_reached.set_value();
        m_opened.wait_for(std::chrono::seconds(20));
    }
    /// Waits until somebody stands at the gate; false after 20 s.
    bool isReached() { return m_reached.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready; }

private:
    std::promise<void> m_promise;
    std::shared_future<void> m_opened = m_promise.get_future().share();
    std::promise<void> m_reached;
};

} // namespace Kesa::Test
