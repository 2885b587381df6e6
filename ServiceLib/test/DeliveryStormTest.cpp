#include "Delivery.h"
#include "OnChangeSubscriptionObject.h"
#include "PeriodicSubscriptionObject.h"
#include "SubscriptionUpdater.h"

#include <CapturedLog.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

using namespace Kesa;
using namespace Kesa::Service;
using namespace Kesa::Test;
using Command::WebSocketResponseObject;

namespace
{

/// A counter that only rises; loads look at it and then take their time.
class RisingSource: public ISubscriptionDataSource
{
public:
    void rise() { ++m_state; }
    int state() const { return m_state; }

    bool fetchData(const SubscriptionRequest&, WebSocketResponseObject& response) override
    {
        Poco::JSON::Object::Ptr data = new Poco::JSON::Object;
        pause();
        data->set("state", m_state.load());
        pause();
        response.setData(data);
        return true;
    }

private:
    void pause()
    {
        const unsigned int load = ++m_loads;
        if (load % 32 == 0)
            std::this_thread::yield();
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(load % 7);
        while (std::chrono::steady_clock::now() < end)
            continue;
    }

    std::atomic<int> m_state{0};
    std::atomic<unsigned int> m_loads{0};
};

/// One client with one subscription.
struct Client
{
    Client(const std::string& members, RisingSource& source, SubscriptionUpdater& updater)
        : subscription(SubscriptionObject::Create(connection.proxy(), subscribeTo("/shop/orders/1", members)))
    {
        updater.add(subscription);
        subscription->registerDataSource(source);
        subscription->initialUpdate();
    }

    /// Reads until `state` has arrived; false when a state was older than the one before.
    bool follows(int state)
    {
        bool isInOrder = true;
        for (int last = -1; last != state;)
        {
            const int next = connection.nextMessage()->getObject("data")->getValue<int>("state");
            isInOrder = isInOrder && next >= last;
            last = next;
        }
        return isInOrder;
    }

    LoopbackConnection connection;
    SubscriptionObject::SubscriptionObjectPtr subscription;
};

class DeliveryStormTest: public testing::Test
{
protected:
    /// `threads` threads at once, each with its number.
    static void storm(int threads, const std::function<void(int)>& action)
    {
        std::vector<std::thread> running;
        for (int number = 0; number < threads; ++number)
            running.emplace_back(action, number);
        for (std::thread& thread: running)
            thread.join();
    }

    CapturedLog log{Poco::Message::PRIO_CRITICAL};
    RisingSource source;
};

} // namespace

TEST_F(DeliveryStormTest, EachClientSeesOnlyRisingStatesAndTheLastOne)
{
    SubscriptionUpdater updater;
    std::vector<std::unique_ptr<Client>> clients;
    for (const char* limit: {R"("updateLimit":0)", R"("updateLimit":1)", R"("updateLimit":5)", R"("interval":3)"})
        clients.push_back(std::make_unique<Client>(limit, source, updater));
    storm(8,
          [&](int)
          {
              for (int change = 0; change < 60; ++change)
              {
                  source.rise();
                  SubscriptionObject::NotificationPtr carried;
                  for (const auto& client: clients)
                      carried = client->subscription->subscribedDataChanged(carried);
              }
          });
    for (const auto& client: clients)
        EXPECT_TRUE(client->follows(source.state())) << client->subscription->getJson()->size();
    updater.clear();
}

TEST_F(DeliveryStormTest, SubscriptionsComeAndGoWhileDataChanges)
{
    SubscriptionUpdater updater;
    Client survivor(R"("updateLimit":2)", source, updater);
    std::vector<SubscriptionObject::SubscriptionObjectPtr> goers(4);
    storm(8,
          [&](int thread)
          {
              for (int i = 0; i < 60; ++i)
              {
                  if (thread % 2 == 0)
                  {
                      source.rise();
                      survivor.subscription->subscribedDataChanged(nullptr);
                      continue;
                  }
                  const char* const members = i % 2 == 0 ? R"("interval":1)" : R"("updateLimit":1)";
                  SubscriptionObject::SubscriptionObjectPtr goer =
                      SubscriptionObject::Create(noConnection(), subscribeTo("/shop/orders/1", members));
                  updater.add(goer);
                  goer->registerDataSource(source);
                  goer->initialUpdate();
                  goer->subscribedDataChanged(nullptr);
                  updater.remove(goer);
                  goers[static_cast<std::size_t>(thread / 2)] = goer;
              }
          });
    EXPECT_TRUE(survivor.follows(source.state()));
    for (const auto& goer: goers)
    {
        EXPECT_TRUE(eventually([&] { return goer.referenceCount() == 1; })) << "nothing of it is left in the updater";
    }
    updater.clear();
}

TEST_F(DeliveryStormTest, AStopInTheMiddleLeavesNothingBehind)
{
    for (int round = 0; round < 10; ++round)
    {
        auto updater = std::make_unique<SubscriptionUpdater>();
        std::vector<SubscriptionObject::SubscriptionObjectPtr> subscriptions;
        for (const char* members: {R"("updateLimit":0)", R"("updateLimit":1)", R"("interval":1)"})
        {
            subscriptions.push_back(SubscriptionObject::Create(noConnection(), subscribeTo("/shop", members)));
            updater->add(subscriptions.back());
            subscriptions.back()->registerDataSource(source);
            subscriptions.back()->initialUpdate();
        }
        storm(4,
              [&](int thread)
              {
                  if (thread == 0)
                  {
                      updater->clear(); // those that are left ask nobody any more
                      updater.reset();
                      return;
                  }
                  for (int change = 0; change < 20; ++change)
                  {
                      source.rise();
                      for (auto& subscription: subscriptions)
                          subscription->subscribedDataChanged(nullptr);
                  }
              });
        for (const auto& subscription: subscriptions)
            EXPECT_EQ(subscription.referenceCount(), 1);
    }
}
