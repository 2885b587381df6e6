#include "RegistryExchangeLimit.h"

#include "Entries.h"
#include "FakeRegistry.h"

#include <CapturedLog.h>
#include <ServiceRegistry.h>
#include <Time/Now.h>

#include <gtest/gtest.h>

#include <thread>

using Kesa::Service::RegistryExchangeLimit;
using Kesa::Service::ServiceRegistryAbstraction;
using Poco::Message;
using namespace Kesa::Test;

namespace
{

FakeRegistry::Answer hang(const std::string&)
{
    return {"", FakeRegistry::Answer::HANG};
}

bool registerShop()
{
    Kesa::MicroServiceInfo service = entryOf("shop");
    return ServiceRegistryAbstraction::registerService(service);
}

TEST(RegistryExchangeLimitTest, EndsARunningExchangeFromAnotherThread)
{
    CapturedLog log;
    FakeRegistry registry(hang);
    RegistryExchangeLimit limit;
    bool isRegistered = true;
    std::thread exchanging(
        [&]
        {
            const RegistryExchangeLimit::Scope scope(&limit);
            isRegistered = registerShop();
        });
    while (registry.requests().empty())
        std::this_thread::yield();
    const Poco::Clock start = Kesa::Util::now();
    limit.endIn(0);
    exchanging.join();
    EXPECT_LT(Kesa::Util::now() - start, 1000000);
    EXPECT_FALSE(isRegistered);
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR,
                             "Exception occured while getting service list: Timeout: the exchange with the service "
                             "registry was ended from outside"));
}

TEST(RegistryExchangeLimitTest, EndsAConnectionThatIsNotAccepted)
{
    CapturedLog log;
    Poco::Net::ServerSocket full; // nobody accepts, and no further connection has room
    ClosedRegistryPort::bindRegistryPort(full);
    full.listen(0);
    const Poco::Net::StreamSocket inRoom(full.address());
    RegistryExchangeLimit limit;
    limit.endIn(200);
    const RegistryExchangeLimit::Scope scope(&limit);
    const Poco::Clock start = Kesa::Util::now();
    EXPECT_FALSE(registerShop());
    EXPECT_LT(Kesa::Util::now() - start, 2000000);
}

TEST(RegistryExchangeLimitTest, LaterExchangesFailAtOnceAndThoseOutsideDoNot)
{
    CapturedLog log;
    FakeRegistry registry([](const std::string&)
                          { return FakeRegistry::answer("201 Created", "", "Location: /" + FIRST_ID + "\r\n"); });
    RegistryExchangeLimit limit;
    {
        const RegistryExchangeLimit::Scope scope(&limit);
        EXPECT_TRUE(registerShop()) << "no end is set";
        limit.endIn(0);
        EXPECT_FALSE(registerShop());
        {
            const RegistryExchangeLimit::Scope none(nullptr);
            EXPECT_TRUE(registerShop());
        }
        EXPECT_FALSE(registerShop());
    }
    EXPECT_EQ(RegistryExchangeLimit::current(), nullptr);
    EXPECT_TRUE(registerShop());
}

} // namespace
