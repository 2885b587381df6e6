#pragma once

#include <Command/WebSocketResponseObject.h>
#include <SubscriptionHandling/SubscriptionInterfaces.h>
#include <SubscriptionHandling/SubscriptionRequest.h>

#include <Poco/JSON/Parser.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

namespace Kesa::Test
{

/// A data source that says what the test told it. Any thread.
class ScriptedSource: public Service::ISubscriptionDataSource
{
public:
    explicit ScriptedSource(const std::string& json = "{}"): m_json(json) {}

    /// What is delivered from now on: the text of a JSON object or array.
    void deliver(const std::string& json)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_json = json;
        m_fails = false;
    }
    /// Loads fail from now on.
    void fail()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_fails = true;
    }
    /// Runs at the beginning of each load, without a lock.
    void onLoad(std::function<void()> hook)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_hook = std::move(hook);
    }
    int loads() const { return m_loads; }

    bool fetchData(const Service::SubscriptionRequest&, Command::WebSocketResponseObject& response) override
    {
        ++m_loads;
        std::function<void()> hook;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            hook = m_hook;
        }
        if (hook)
            hook();
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_fails)
            return false;
        Poco::JSON::Parser parser;
        const Poco::Dynamic::Var data = parser.parse(m_json);
        if (data.type() == typeid(Poco::JSON::Array::Ptr))
            response.setData(data.extract<Poco::JSON::Array::Ptr>());
        else
            response.setData(data.extract<Poco::JSON::Object::Ptr>());
        return true;
    }

private:
    std::mutex m_mutex;
    std::string m_json;
    bool m_fails = false;
    std::function<void()> m_hook;
    std::atomic<int> m_loads{0};
};

} // namespace Kesa::Test
