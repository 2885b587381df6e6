#pragma once

#include <Command/WebSocketResponseObject.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>

#include <Poco/JSON/Parser.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Kesa::Test
{

/// A service's trigger that delivers what the test told it, path by path, and does to new subscriptions what the test
/// wants. Any thread.
class TestTrigger: public Service::SubscriptionTrigger
{
public:
    typedef std::function<void(const Service::SubscriptionRequest&)> LoadHook;
    typedef std::function<void(Service::SubscriptionSubscribingEventPayload&)> CheckHook;

    /// What a load of the URL with this path gives from now on: the text of a JSON object or array. Loads of other
    /// paths fail.
    void deliver(const std::string& path, const std::string& json)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_data[path] = json;
    }
    /// Runs at the beginning of each load, without a lock.
    void onLoad(LoadHook hook)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_loadHook = std::move(hook);
    }
    /// Runs for each subscription that is about to be added, without a lock.
    void onCheck(CheckHook hook)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_checkHook = std::move(hook);
    }
    int loads() const { return m_loads; }
    int checks() const { return m_checks; }

    bool fetchData(const Service::SubscriptionRequest& request, Command::WebSocketResponseObject& response) override
    {
        ++m_loads;
        if (const LoadHook hook = copyOf(m_loadHook))
            hook(request);
        const std::map<std::string, std::string> data = copyOf(m_data);
        const auto found = data.find(request.getUri().getPath());
        if (found == data.end())
            return false;
        const Poco::Dynamic::Var value = Poco::JSON::Parser().parse(found->second);
        if (value.type() == typeid(Poco::JSON::Array::Ptr))
            response.setData(value.extract<Poco::JSON::Array::Ptr>());
        else
            response.setData(value.extract<Poco::JSON::Object::Ptr>());
        return true;
    }

    void checkNewSubscription(Service::SubscriptionSubscribingEventPayload& payload) override
    {
        ++m_checks;
        if (const CheckHook hook = copyOf(m_checkHook))
            hook(payload);
    }

    using SubscriptionTrigger::sendUpdate;

private:
    template <class T>
    T copyOf(const T& guarded) const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return guarded;
    }

    mutable std::mutex m_mutex; ///< guards what follows
    std::map<std::string, std::string> m_data;
    LoadHook m_loadHook;
    CheckHook m_checkHook;
    std::atomic<int> m_loads{0};
    std::atomic<int> m_checks{0};
};

} // namespace Kesa::Test
