#include "Entries.h"
#include "RegistryWire.h"

#include <ServiceRegistrationHelper.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

using Kesa::MicroServiceInfo;
using Kesa::Service::ServiceRegistrationHelper;
using Poco::Message;
using testing::ElementsAre;
using testing::StartsWith;
using namespace Kesa::Test;

namespace
{

/// A registry that gives out FIRST_ID, SECOND_ID and THIRD_ID in turn and removes what `refused` does not hold.
class OrderlyRegistry
{
public:
    OrderlyRegistry(): m_fake([this](const std::string& request) { return answer(request); }) {}

    /// The first line of each request, without the version.
    std::vector<std::string> requests() const
    {
        std::vector<std::string> lines;
        for (const std::string& request: m_fake.requests())
            lines.push_back(request.substr(0, request.find(" HTTP/1.1")));
        return lines;
    }
    int connections() const { return m_fake.connections(); }

    std::string refused; ///< set before the exchange that it is for

private:
    FakeRegistry::Answer answer(const std::string& request)
    {
        static const std::string ids[] = {FIRST_ID, SECOND_ID, THIRD_ID};
        if (request[0] == 'P')
            return FakeRegistry::answer("201 Created", "", "Location: /" + ids[m_next++ % 3] + "\r\n");
        const bool isRefused = !refused.empty() && request.find(refused) != std::string::npos;
        return FakeRegistry::answer(isRefused ? "500 No" : "200 OK");
    }

    std::size_t m_next = 0;
    FakeRegistry m_fake;
};

bool registerNamed(ServiceRegistrationHelper& helper, const std::string& name, long port = 8080)
{
    MicroServiceInfo service = entryOf(name, "", port);
    return helper.registerService(service);
}

TEST(ServiceRegistrationHelperTest, GivesTheServiceItsId)
{
    OrderlyRegistry registry;
    ServiceRegistrationHelper helper;
    MicroServiceInfo service = entryOf("shop");
    EXPECT_TRUE(helper.registerService(service));
    EXPECT_EQ(service.getRegistryId().toString(), FIRST_ID);
    EXPECT_THAT(registry.requests(), ElementsAre("PUT /shop"));
}

TEST(ServiceRegistrationHelperTest, IsNotCopied)
{
    EXPECT_FALSE(std::is_copy_constructible_v<ServiceRegistrationHelper>);
    EXPECT_FALSE(std::is_copy_assignable_v<ServiceRegistrationHelper>);
}

TEST(ServiceRegistrationHelperTest, ServiceThatIsRegisteredTwiceHasTwoEntries)
{
    OrderlyRegistry registry;
    ServiceRegistrationHelper helper;
    MicroServiceInfo service = entryOf("shop");
    EXPECT_TRUE(helper.registerService(service));
    EXPECT_TRUE(helper.registerService(service));
    EXPECT_EQ(service.getIdString(), SECOND_ID);
    helper.unregisterServices();
    EXPECT_THAT(registry.requests(),
                ElementsAre("PUT /shop", "PUT /shop", "DELETE /" + FIRST_ID, "DELETE /" + SECOND_ID));
}

TEST(ServiceRegistrationHelperTest, RefusalOfTheRegistryGivesItsLineBesideTheOther)
{
    FakeRegistry registry(always(FakeRegistry::answer("503 Busy")));
    ServiceRegistrationHelper helper;
    MicroServiceInfo service = entryOf("shop");
    CapturedLog log;
    EXPECT_FALSE(helper.registerService(service));
    EXPECT_THAT(errorsOf(log), ElementsAre("Registering service failed. Server responded with status 503",
                                           "Registration of service shop failed."));
}

TEST(ServiceRegistrationHelperTest, RegistryThatIsDownLeavesEverythingAsItWas)
{
    ServiceRegistrationHelper helper;
    MicroServiceInfo service = entryOf("shop");
    {
        const ClosedRegistryPort port;
        CapturedLog log;
        EXPECT_FALSE(helper.registerService(service));
        EXPECT_FALSE(service.hasValue("id"));
        EXPECT_THAT(errorsOf(log), ElementsAre(StartsWith("Exception occured while getting service list: "),
                                               "Registration of service shop failed."));
    }
    OrderlyRegistry registry;
    helper.unregisterServices();
    EXPECT_EQ(registry.connections(), 0) << "nothing was kept";
}

TEST(ServiceRegistrationHelperTest, WrongLocationKeepsNothing)
{
    FakeRegistry registry([](const std::string&)
                          { return FakeRegistry::answer("201 Created", "", "Location: /services/x\r\n"); });
    ServiceRegistrationHelper helper;
    MicroServiceInfo service = entryOf("shop");
    CapturedLog log;
    EXPECT_FALSE(helper.registerService(service));
    EXPECT_FALSE(service.hasValue("id"));
    EXPECT_THAT(errorsOf(log), ElementsAre(testing::HasSubstr("UUID information in the correct format"),
                                           "Registration of service shop failed."));
    helper.unregisterServices();
    EXPECT_EQ(registry.requests().size(), 1U);
}

TEST(ServiceRegistrationHelperTest, ExceptionGivesTwoLines)
{
    ServiceRegistrationHelper helper;
    MicroServiceInfo service = entryOf("shop");
    service.removeValue("host");
    CapturedLog log;
    EXPECT_FALSE(helper.registerService(service));
    EXPECT_THAT(errorsOf(log), ElementsAre("registerService: caught exception: Invalid access failed.",
                                           "Registration of service shop failed."));
}

TEST(ServiceRegistrationHelperTest, ServiceWithoutANameLetsTheExceptionOut)
{
    ServiceRegistrationHelper helper;
    MicroServiceInfo service;
    CapturedLog log;
    EXPECT_THROW(helper.registerService(service), Poco::InvalidAccessException);
    EXPECT_THAT(errorsOf(log), ElementsAre("registerService: caught exception: Invalid access failed."));
}

TEST(ServiceRegistrationHelperTest, ServiceThatRefusesItsIdCountsAsFailed)
{
    OrderlyRegistry registry;
    ServiceRegistrationHelper helper;
    struct Stubborn: public MicroServiceInfo
    {
        explicit Stubborn(const MicroServiceInfo& entry): MicroServiceInfo(entry) {}
        void setRegistryId(const Poco::UUID&) override { throw std::runtime_error("no id wanted"); }
    } service(entryOf("shop"));
    CapturedLog log;
    EXPECT_FALSE(helper.registerService(service));
    EXPECT_THAT(errorsOf(log), ElementsAre("registerService: caught exception: no id wanted failed.",
                                           "Registration of service shop failed."));
    helper.unregisterServices();
    EXPECT_THAT(registry.requests(), ElementsAre("PUT /shop"));
}

TEST(ServiceRegistrationHelperTest, RemovesTheFirstWithNameAndPort)
{
    OrderlyRegistry registry;
    ServiceRegistrationHelper helper;
    EXPECT_TRUE(registerNamed(helper, "shop", 1));
    EXPECT_TRUE(registerNamed(helper, "shop", 2));
    EXPECT_TRUE(registerNamed(helper, "shop", 2));
    CapturedLog log;
    helper.unregisterService("shop", 2);
    helper.unregisterService("shop", 2);
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 0U);
    helper.unregisterServices();
    EXPECT_THAT(registry.requests(), ElementsAre("PUT /shop", "PUT /shop", "PUT /shop", "DELETE /" + SECOND_ID,
                                                 "DELETE /" + THIRD_ID, "DELETE /" + FIRST_ID));
}

TEST(ServiceRegistrationHelperTest, UnknownNameOrPortDoesNothing)
{
    OrderlyRegistry registry;
    ServiceRegistrationHelper helper;
    EXPECT_TRUE(registerNamed(helper, "shop", 1));
    CapturedLog log;
    helper.unregisterService("shop", 2);
    helper.unregisterService("bank", 1);
    EXPECT_TRUE(log.entries().empty());
    EXPECT_THAT(registry.requests(), ElementsAre("PUT /shop"));
}

TEST(ServiceRegistrationHelperTest, EntryThatIsNotRemovedIsKept)
{
    ServiceRegistrationHelper helper;
    {
        OrderlyRegistry registry;
        EXPECT_TRUE(registerNamed(helper, "shop", 1));
    }
    {
        const ClosedRegistryPort port;
        helper.unregisterService("shop", 1);
    }
    OrderlyRegistry registry;
    helper.unregisterServices();
    EXPECT_THAT(registry.requests(), ElementsAre("DELETE /" + FIRST_ID));
}

TEST(ServiceRegistrationHelperTest, RefusedRemovalTouchesNoSecondEntryOfThatName)
{
    OrderlyRegistry registry;
    registry.refused = FIRST_ID;
    ServiceRegistrationHelper helper;
    EXPECT_TRUE(registerNamed(helper, "shop", 1));
    EXPECT_TRUE(registerNamed(helper, "shop", 1));
    helper.unregisterService("shop", 1);
    EXPECT_THAT(registry.requests(), ElementsAre("PUT /shop", "PUT /shop", "DELETE /" + FIRST_ID));
}

TEST(ServiceRegistrationHelperTest, EmptyListSendsNothing)
{
    OrderlyRegistry registry;
    ServiceRegistrationHelper helper;
    helper.unregisterServices();
    EXPECT_EQ(registry.connections(), 0);
}

TEST(ServiceRegistrationHelperTest, OneRefusedRemovalDoesNotKeepTheOthers)
{
    OrderlyRegistry registry;
    ServiceRegistrationHelper helper;
    for (const char* name: {"a", "b", "c"})
        EXPECT_TRUE(registerNamed(helper, name));
    registry.refused = SECOND_ID;
    helper.unregisterServices();
    registry.refused.clear();
    helper.unregisterServices();
    EXPECT_THAT(registry.requests(),
                ElementsAre("PUT /a", "PUT /b", "PUT /c", "DELETE /" + FIRST_ID, "DELETE /" + SECOND_ID,
                            "DELETE /" + THIRD_ID, "DELETE /" + SECOND_ID));
    EXPECT_EQ(registry.connections(), 7) << "each entry has a connection of its own";
}

TEST(ServiceRegistrationHelperTest, DestructorRemovesNothing)
{
    OrderlyRegistry registry;
    {
        ServiceRegistrationHelper helper;
        EXPECT_TRUE(registerNamed(helper, "shop"));
    }
    EXPECT_THAT(registry.requests(), ElementsAre("PUT /shop"));
}

} // namespace
