#include <ClientConnectionManager.h>

#include <gtest/gtest.h>

namespace
{

using Kesa::Net::ClientConnectionManager;
using Poco::Net::IPAddress;

const IPAddress ONE("192.0.2.1");
const IPAddress TWO("2001:db8::2");

ClientConnectionManager::ConnectionLimits limits(std::size_t total, std::size_t perAddress)
{
    ClientConnectionManager::ConnectionLimits made;
    made.total = total;
    made.perAddress = perAddress;
    return made;
}

TEST(PrerequisiteTest, IsTrueOnlyWhenOk)
{
    ClientConnectionManager::Prerequisite prerequisite;
    EXPECT_FALSE(prerequisite);
    prerequisite = ClientConnectionManager::Prerequisite::OK;
    EXPECT_TRUE(prerequisite);
    prerequisite = ClientConnectionManager::Prerequisite::NOT_AVAILABLE;
    EXPECT_FALSE(prerequisite);
    EXPECT_EQ(sizeof prerequisite, 4u);
}

TEST(ClientConnectionManagerTest, IsNotReadyUntilItIsTold)
{
    ClientConnectionManager manager;
    EXPECT_FALSE(manager.isReady());
    manager.setPrerequisite(ClientConnectionManager::Prerequisite::OK);
    EXPECT_TRUE(manager.isReady());
    manager.setPrerequisite(ClientConnectionManager::Prerequisite::MISSING);
    EXPECT_FALSE(manager.isReady());
}

TEST(ClientConnectionManagerTest, AdmitsUpToTheLimitOfAnAddress)
{
    ClientConnectionManager manager;
    manager.setLimits(limits(10, 2));
    EXPECT_TRUE(manager.admit(ONE));
    EXPECT_TRUE(manager.admit(ONE));
    EXPECT_FALSE(manager.admit(ONE));
    EXPECT_TRUE(manager.admit(TWO));
    EXPECT_EQ(manager.count(), 3u);
    manager.release(ONE);
    EXPECT_TRUE(manager.admit(ONE));
}

TEST(ClientConnectionManagerTest, AdmitsUpToTheTotalLimit)
{
    ClientConnectionManager manager;
    manager.setLimits(limits(1, 5));
    EXPECT_TRUE(manager.admit(ONE));
    EXPECT_FALSE(manager.admit(TWO));
    EXPECT_EQ(manager.count(), 1u);
}

TEST(ClientConnectionManagerTest, IgnoresTheReleaseOfAPlaceThatIsNotTaken)
{
    ClientConnectionManager manager;
    manager.release(ONE);
    EXPECT_TRUE(manager.admit(ONE));
    manager.release(ONE);
    manager.release(ONE);
    EXPECT_EQ(manager.count(), 0u);
}

TEST(ClientConnectionManagerTest, ASubclassDecidesOtherwise)
{
    struct Closed: ClientConnectionManager
    {
        bool admit(const IPAddress&) override { return false; }
    };
    ClientConnectionManager::Ptr manager(new Closed);
    EXPECT_FALSE(manager->admit(ONE));
}

} // namespace
