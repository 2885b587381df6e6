#pragma once

#include "LoopbackConnection.h"
#include "Requests.h"

#include <ApplicationServices.h>
#include <Command/WebSocketResponseObject.h>
#include <GenericServiceBootstrap.h>
#include <SubscriptionHandling/SubscriptionTrigger.h>

#include <Poco/Delegate.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace Kesa::Test
{

/// A shop whose orders change: "/shop/orders" lists them, "/shop/orders/0" and so on are the orders. Any thread.
class ShopTrigger: public Service::SubscriptionTrigger
{
public:
    static constexpr std::size_t ORDERS = 4;

    /// An order's amount rises. False when the service is not started.
    bool raise(std::size_t order)
    {
        ++m_amounts[order];
        return changedElement(Command::HttpRequest::POST, "shop", "orders", std::to_string(order), nullptr);
    }
    /// The order "extra" comes into the list or leaves it.
    bool toggleExtra()
    {
        const bool comes = !(m_hasExtra.fetch_xor(1) & 1);
        return changedElement(comes ? Command::HttpRequest::PUT : Command::HttpRequest::DELETE, "shop", "orders",
                              "extra", nullptr);
    }
    int amount(std::size_t order) const { return m_amounts[order]; }
    std::set<std::string> ids() const
    {
        std::set<std::string> all = m_hasExtra & 1 ? std::set<std::string>{"extra"} : std::set<std::string>();
        for (std::size_t order = 0; order < ORDERS; ++order)
            all.insert(std::to_string(order));
        return all;
    }
    /// Each load takes so long from now on.
    void beSlow(std::chrono::milliseconds time) { m_slowness = time.count(); }

    bool fetchData(const Service::SubscriptionRequest& request, Command::WebSocketResponseObject& response) override
    {
        if (m_slowness > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(m_slowness));
        const std::string& element = request.getUrlPath().getElement();
        if (element.empty())
        {
            Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
            for (const std::string& id: ids())
                list->add(entry(id));
            response.setData(list);
            return true;
        }
        if (element.size() > 1)
            return false;
        Poco::JSON::Object::Ptr order = entry(element);
        order->set("amount", m_amounts[static_cast<std::size_t>(element[0] - '0')].load());
        response.setData(order);
        return true;
    }
    void checkNewSubscription(Service::SubscriptionSubscribingEventPayload&) override {}

private:
    static Poco::JSON::Object::Ptr entry(const std::string& id)
    {
        Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
        object->set("id", id);
        object->set("uri", "/shop/orders/" + id);
        return object;
    }

    std::array<std::atomic<int>, ORDERS> m_amounts{};
    std::atomic<unsigned int> m_hasExtra{0};
    std::atomic<long> m_slowness{0};
};

/// The shop as a service that starts and stops as the test says.
class ShopService: public Service::GenericServiceBootstrap
{
public:
    ~ShopService() override
    {
        stops = true;
        shutdown();
    }

    bool starts = true;
    bool stops = true;
    Poco::SharedPtr<ShopTrigger> trigger; ///< of the latest start
    std::function<void()> whenStarting;

protected:
    bool startupImpl() override
    {
        if (whenStarting)
            whenStarting();
        return starts;
    }
    bool shutdownImpl() override { return stops; }
    Service::SubscriptionTrigger::Ptr createSubscriptionInterface() override { return trigger = new ShopTrigger; }
};

/// Eight threads that do to a running shop what a bad day does: orders change, clients come, subscribe, unsubscribe and
/// go, listeners come and go and report changes themselves. Ends when each thread has done its rounds or the service
/// has stopped.
class Storm
{
public:
    struct Force
    {
        int changes = 300;           ///< of each of three threads
        int clients = 20;            ///< of each of four threads
        bool autosubscribes = false; ///< some clients follow the elements of the list, too
        bool mayStop = false;        ///< the service may stop meanwhile
    };

    Storm(const Poco::SharedPtr<ShopTrigger>& trigger, const Force& force): m_trigger(trigger), m_force(force)
    {
        for (int i = 0; i < 3; ++i)
            m_threads.emplace_back([this] { change(); });
        for (unsigned int i = 0; i < 4; ++i)
            m_threads.emplace_back([this, i] { comeAndGo(i); });
        m_listening = std::thread([this] { listen(); });
    }
    ~Storm() { waitForEnd(); }
    Storm(const Storm&) = delete;
    Storm& operator=(const Storm&) = delete;

    void waitForEnd()
    {
        for (std::thread& thread: m_threads)
            thread.join();
        m_threads.clear();
        m_isOver = true;
        if (m_listening.joinable())
            m_listening.join();
    }

    /// Changes that were reported so far, and those whose report raised an exception.
    int changes() const { return m_changes; }
    int failedChanges() const { return m_failedChanges; }
    /// Clients whose connection failed them while the service was up.
    int failedClients() const { return m_failedClients; }
    /// The connections of the clients that have gone.
    const std::vector<std::shared_ptr<LoopbackConnection>>& gone() const { return m_gone; }

private:
    void change()
    {
        for (int i = 0; i < m_force.changes; ++i)
        {
            try
            {
                if (!(i % 8 == 0 ? m_trigger->toggleExtra() : m_trigger->raise(static_cast<std::size_t>(i) % 4)))
                    return;
            }
            catch (const Poco::Exception&)
            {
                ++m_failedChanges;
            }
            ++m_changes;
        }
    }

    void comeAndGo(unsigned int seed)
    {
        std::minstd_rand random(seed + 1);
        for (int i = 0; i < m_force.clients; ++i)
        {
            const auto client = std::make_shared<LoopbackConnection>();
            {
                auto server = ApplicationServices::getService<Net::WebsocketConnectionManager>();
                if (server.isNull())
                    return;
                client->serveBy(*server);
            }
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_gone.push_back(client);
            }
            try
            {
                talk(*client, random);
            }
            catch (const std::exception&) // the connection has ended
            {
                if (!m_force.mayStop)
                    ++m_failedClients;
            }
            client->leave();
        }
    }

    void talk(LoopbackConnection& client, std::minstd_rand& random)
    {
        static const std::vector<std::string> kinds = {R"(,"updateLimit":0)", R"(,"updateLimit":5)", R"(,"interval":2)",
                                                       ""};
        const unsigned int messages = 1 + random() % 6;
        for (unsigned int i = 0; i < messages; ++i)
        {
            const std::string event =
                random() % 4 == 0 ? "/shop/orders" : "/shop/orders/" + std::to_string(random() % ShopTrigger::ORDERS);
            const std::string members = m_force.autosubscribes && random() % 3 == 0
                                            ? R"(,"updateLimit":0,"autosubscribe":true)"
                                            : kinds[random() % kinds.size()];
            client.say(random() % 4 == 0 ? requestText("unsubscribe", event)
                                         : requestText("subscribe", event, members));
        }
        if (random() % 2 == 0) // the others go with their answers on the way
            return;
        for (unsigned int i = 0; i < messages; ++i) // at least one answer each
            client.nextText();
    }

    /// Hears of subscriptions and says that something has changed.
    struct Listener
    {
        explicit Listener(ShopTrigger& trigger): shop(trigger) {}
        void added(Service::SubscriptionAddedEventPayload&) { shop.raise(0); }
        void removed(Service::SubscriptionRemovedEventPayload&) { shop.raise(1); }
        ShopTrigger& shop;
    };

    void listen()
    {
        Listener listener(*m_trigger);
        const Poco::Delegate<Listener, Service::SubscriptionAddedEventPayload, false> added(&listener,
                                                                                            &Listener::added);
        const Poco::Delegate<Listener, Service::SubscriptionRemovedEventPayload, false> removed(&listener,
                                                                                                &Listener::removed);
        for (std::size_t i = 0; !m_isOver; ++i)
        {
            const Command::UrlPath url("/shop/orders/" + std::to_string(i % ShopTrigger::ORDERS));
            m_trigger->registerEvent(url, added);
            m_trigger->registerEvent(url, removed);
            std::this_thread::yield();
            m_trigger->removeEvent(url, added);
            m_trigger->removeEvent(url, removed);
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // leaves the processor to the others
        }
    }

    Poco::SharedPtr<ShopTrigger> m_trigger;
    const Force m_force;
    std::atomic<int> m_changes{0};
    std::atomic<int> m_failedChanges{0};
    std::atomic<int> m_failedClients{0};
    std::atomic<bool> m_isOver{false};
    std::mutex m_mutex; ///< guards m_gone while the threads run
    std::vector<std::shared_ptr<LoopbackConnection>> m_gone;
    std::vector<std::thread> m_threads;
    std::thread m_listening;
};

} // namespace Kesa::Test
