#include <ApplicationServices.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace
{

struct Printer
{
    explicit Printer(int number): m_number(number) {}
    int m_number;
};

struct Scanner
{
};

/// Gives each test a locator of its own and puts the process's back.
class ApplicationServicesTest: public ::testing::Test
{
protected:
    ApplicationServicesTest(): m_previous(ApplicationServices::getLocator())
    {
        ApplicationServices::setLocator(&m_locator);
    }
    ~ApplicationServicesTest() override { ApplicationServices::setLocator(m_previous); }

    template <class T>
    int entries()
    {
        int count = 0;
        while (m_locator.erase(&typeid(T)))
            ++count;
        return count;
    }

    ServiceLocator m_locator;
    ServiceLocator* m_previous;
};

TEST_F(ApplicationServicesTest, ARegisteredServiceIsFound)
{
    Poco::SharedPtr<Printer> printer(new Printer(1));
    EXPECT_TRUE(ApplicationServices::registerService(printer));
    EXPECT_EQ(ApplicationServices::getService<Printer>(), printer);
    EXPECT_EQ(printer.referenceCount(), 2);
    EXPECT_TRUE(ApplicationServices::getService<Scanner>().isNull());
}

TEST_F(ApplicationServicesTest, WithoutALocatorNothingIsFoundOrRegistered)
{
    ApplicationServices::setLocator(nullptr);
    EXPECT_EQ(ApplicationServices::getLocator(), nullptr);
    EXPECT_TRUE(ApplicationServices::getService<Printer>().isNull());
    EXPECT_FALSE(ApplicationServices::registerService(Poco::SharedPtr<Printer>(new Printer(1))));
    EXPECT_FALSE(ApplicationServices::unregisterService<Printer>());
}

TEST_F(ApplicationServicesTest, RegisteringNothingIsNoErrorAndAddsNoEntry)
{
    EXPECT_TRUE(ApplicationServices::registerService(Poco::SharedPtr<Printer>()));
    EXPECT_EQ(entries<Printer>(), 0);
}

TEST_F(ApplicationServicesTest, TheObjectThatIsRegisteredAlreadyAddsNoEntry)
{
    Poco::SharedPtr<Printer> printer(new Printer(1));
    EXPECT_TRUE(ApplicationServices::registerService(printer));
    EXPECT_TRUE(ApplicationServices::registerService(printer));
    EXPECT_EQ(entries<Printer>(), 1);
}

TEST_F(ApplicationServicesTest, AnotherObjectOfTheTypeIsAddedBesideTheFirst)
{
    Poco::SharedPtr<Printer> first(new Printer(1));
    ApplicationServices::registerService(first);
    EXPECT_TRUE(ApplicationServices::registerService(Poco::SharedPtr<Printer>(new Printer(2))));
    EXPECT_EQ(ApplicationServices::getService<Printer>(), first);
    EXPECT_EQ(entries<Printer>(), 2);
}

TEST_F(ApplicationServicesTest, UnregisteringRemovesEveryEntryOfTheTypeAndNoOther)
{
    Poco::SharedPtr<Printer> first(new Printer(1));
    ApplicationServices::registerService(first);
    ApplicationServices::registerService(Poco::SharedPtr<Printer>(new Printer(2)));
    ApplicationServices::registerService(Poco::SharedPtr<Scanner>(new Scanner));
    EXPECT_TRUE(ApplicationServices::unregisterService<Printer>());
    EXPECT_TRUE(ApplicationServices::getService<Printer>().isNull());
    EXPECT_EQ(first.referenceCount(), 1);
    EXPECT_FALSE(ApplicationServices::unregisterService<Printer>());
    EXPECT_FALSE(ApplicationServices::getService<Scanner>().isNull());
}

TEST_F(ApplicationServicesTest, AnEntryThatHoldsANullPointerOrAnotherTypeCountsAsNotFound)
{
    m_locator.insert(&typeid(Printer), Poco::Any(Poco::SharedPtr<Printer>()));
    m_locator.insert(&typeid(Scanner), Poco::Any(std::string("no scanner")));
    EXPECT_TRUE(ApplicationServices::getService<Printer>().isNull());
    EXPECT_TRUE(ApplicationServices::getService<Scanner>().isNull());
}

TEST_F(ApplicationServicesTest, FindGivesTheEntryAndEraseRemovesOneAtATime)
{
    Poco::Any entry;
    EXPECT_FALSE(m_locator.find(&typeid(int), entry));
    EXPECT_TRUE(entry.empty());
    m_locator.insert(&typeid(int), Poco::Any(Poco::SharedPtr<int>(new int(1))));
    m_locator.insert(&typeid(int), Poco::Any(Poco::SharedPtr<int>(new int(2))));
    EXPECT_TRUE(m_locator.find(&typeid(int), entry));
    EXPECT_EQ(*Poco::AnyCast<Poco::SharedPtr<int>>(entry), 1);
    EXPECT_TRUE(m_locator.erase(&typeid(int)));
    EXPECT_TRUE(m_locator.erase(&typeid(int)));
    EXPECT_FALSE(m_locator.erase(&typeid(int)));
}

TEST_F(ApplicationServicesTest, AServiceMayUseTheLocatorWhileItIsDestroyed)
{
    struct Farewell
    {
        ~Farewell() { ApplicationServices::unregisterService<Farewell>(); }
    };
    ApplicationServices::registerService(Poco::SharedPtr<Farewell>(new Farewell));
    EXPECT_TRUE(ApplicationServices::unregisterService<Farewell>());
    EXPECT_EQ(entries<Farewell>(), 0);
}

/// Tells whether another thread could use the locator while the last share of this object went.
struct LastShare
{
    LastShare(ServiceLocator& locator, bool& wasFree): m_locator(locator), m_wasFree(wasFree) {}
    ~LastShare()
    {
        const auto answered = std::make_shared<std::promise<void>>();
        auto answer = answered->get_future();
        ServiceLocator& locator = m_locator;
        std::thread(
            [answered, &locator]
            {
                locator.getService<Scanner>();
                answered->set_value();
            })
            .detach();
        m_wasFree = answer.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    }
    ServiceLocator& m_locator;
    bool& m_wasFree;
};

TEST_F(ApplicationServicesTest, WhatAFoundEntryReplacesIsDestroyedOutsideTheLock)
{
    bool wasFree = false;
    m_locator.insert(&typeid(int), Poco::Any(Poco::SharedPtr<int>(new int(1))));
    Poco::Any entry = Poco::Any(Poco::SharedPtr<LastShare>(new LastShare(m_locator, wasFree)));
    EXPECT_TRUE(m_locator.find(&typeid(int), entry));
    EXPECT_TRUE(wasFree);
    EXPECT_EQ(*Poco::AnyCast<Poco::SharedPtr<int>>(entry), 1);
}

TEST_F(ApplicationServicesTest, ThreadsRegisterFindAndUnregisterAtOnce)
{
    const auto work = []
    {
        for (int i = 0; i < 500; ++i)
        {
            ApplicationServices::registerService(Poco::SharedPtr<Printer>(new Printer(i)));
            const auto found = ApplicationServices::getService<Printer>();
            if (!found.isNull())
            {
                EXPECT_LT(found->m_number, 500);
            }
            ApplicationServices::unregisterService<Printer>();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(work);
    for (auto& thread: threads)
        thread.join();
    EXPECT_EQ(entries<Printer>(), 0);
}

} // namespace
