#include "Entries.h"
#include "RegistryWire.h"

#include <ServiceRegistry.h>

#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPResponse.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <future>

using Kesa::MicroServiceInfo;
using Kesa::Service::ServiceRegistryAbstraction;
using Poco::Message;
using testing::ElementsAre;
using namespace Kesa::Test;

namespace
{

typedef FakeRegistry::Answer Answer;

TEST(RegisterServiceTest, SendsOneLineOfJsonInChunks)
{
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_TRUE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_THAT(registry.requests(), ElementsAre(putOf("shop")));
}

TEST(RegisterServiceTest, StoresTheIdAndSaysSo)
{
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    CapturedLog log;
    MicroServiceInfo entry = entryOf("shop", SECOND_ID);
    EXPECT_TRUE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_EQ(entry.getIdString(), FIRST_ID);
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "Registered Service with Name: shop"));
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 0U);
}

TEST(RegisterServiceTest, NameGoesIntoThePathAsItStands)
{
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    MicroServiceInfo entry = entryOf("shop");
    entry.setName("a%b?c");
    EXPECT_TRUE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_EQ(registry.requests().at(0).substr(0, 19), "PUT /a%b?c HTTP/1.1");
}

TEST(RegisterServiceTest, LongEntryArrivesWhole)
{
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    MicroServiceInfo entry = entryOf("shop");
    const std::string text(20000, 'z');
    entry.setAttribute(new Kesa::Data::Attribute<Kesa::Data::AttributeValueStringable<std::string>>(
        0, "text", Kesa::Data::AttributeValueStringable<std::string>(text)));
    EXPECT_TRUE(ServiceRegistryAbstraction::registerService(entry));
    const std::string request = registry.requests().at(0);
    EXPECT_EQ(static_cast<std::size_t>(std::count(request.begin(), request.end(), 'z')), text.size());
}

class GoodLocationTest: public testing::TestWithParam<std::string>
{
};

TEST_P(GoodLocationTest, GivesTheId)
{
    FakeRegistry registry(always(created(GetParam())));
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_TRUE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_EQ(entry.getIdString(), FIRST_ID);
}

INSTANTIATE_TEST_SUITE_P(Locations, GoodLocationTest,
                         testing::Values("/" + FIRST_ID, "http://127.0.0.1:8910/" + FIRST_ID, "/" + FIRST_ID + "/more",
                                         "/" + FIRST_ID + "?a=b"));

class BadLocationTest: public testing::TestWithParam<std::string>
{
};

TEST_P(BadLocationTest, FailsAndTellsTheLocation)
{
    FakeRegistry registry(always(created(GetParam())));
    CapturedLog log;
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_FALSE(entry.hasValue("id"));
    EXPECT_THAT(errorsOf(log),
                ElementsAre("Registering service failed. Server responded with status HTTP_CREATED but did not "
                            "provide UUID information in the correct format. Location info is: '" +
                            GetParam() + "'"));
}

INSTANTIATE_TEST_SUITE_P(Locations, BadLocationTest,
                         testing::Values("/services/" + FIRST_ID, "http://127.0.0.1:8910/services/" + FIRST_ID, "/",
                                         "/shop", "http://127.0.0.1:8910"));

TEST(RegisterServiceTest, AnswerWithoutALocationFails)
{
    FakeRegistry registry(always(FakeRegistry::answer("201 Created")));
    CapturedLog log;
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_THAT(errorsOf(log), ElementsAre("Exception occured while getting service list: Not found: Location"));
}

TEST(RegisterServiceTest, LocationThatIsNoUriFails)
{
    FakeRegistry registry(always(created("http://a:b:c/" + FIRST_ID)));
    CapturedLog log;
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_TRUE(log.containsPart(Message::PRIO_ERROR, "Exception occured while getting service list: "));
}

TEST(RegisterServiceTest, OtherStatusFailsAndIsTold)
{
    for (const std::string status: {"200", "400", "503"})
    {
        FakeRegistry registry(
            always(FakeRegistry::answer(status + " Whatever", "no", "Location: /" + FIRST_ID + "\r\n")));
        CapturedLog log;
        MicroServiceInfo entry = entryOf("shop");
        EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
        EXPECT_FALSE(entry.hasValue("id"));
        EXPECT_THAT(errorsOf(log), ElementsAre("Registering service failed. Server responded with status " + status));
    }
}

TEST(RegisterServiceTest, ServiceWithoutANameSendsNothing)
{
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    CapturedLog log;
    MicroServiceInfo entry;
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_THAT(errorsOf(log), ElementsAre("Exception occured while getting service list: Invalid access: "
                                           "Attribute name is not set"));
    EXPECT_EQ(registry.connections(), 0);
}

TEST(RegisterServiceTest, ServiceWithoutJsonFails)
{
    struct Mute: public MicroServiceInfo
    {
        explicit Mute(const MicroServiceInfo& entry): MicroServiceInfo(entry) {}
        using MicroServiceInfo::toJSON;
        Poco::JSON::Object::Ptr toJSON(int) const override { return nullptr; }
    } entry(entryOf("shop"));
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    CapturedLog log;
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_THAT(errorsOf(log), ElementsAre("Exception occured while getting service list: Null pointer"));
}

TEST(RegisterServiceTest, IdOfAnotherTypeFailsAndStays)
{
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    MicroServiceInfo entry = entryOf("shop");
    entry.setAttribute(new Kesa::Data::Attribute<Kesa::Data::AttributeValueStringable<std::string>>(
        0, "id", Kesa::Data::AttributeValueStringable<std::string>("mine")));
    CapturedLog log;
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_THAT(errorsOf(log), ElementsAre("Exception occured while getting service list: Invalid access: Invalid "
                                           "type for attribute id in AttributeContainer"));
    EXPECT_EQ(entry.getValue("id")->asGeneric().convert<std::string>(), "mine");
}

TEST(RegisterServiceTest, AnswerIsLoggedAtTrace)
{
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    CapturedLog log;
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_TRUE(ServiceRegistryAbstraction::registerService(entry));
    std::vector<std::string> texts;
    for (const CapturedLog::Entry& logged: log.entries())
        texts.push_back(Logging::Log::logLevelToString(logged.priority) + " " + logged.text);
    EXPECT_THAT(texts, ElementsAre("Trace 201 Created", "Trace Location:/" + FIRST_ID, "Trace Content-Length:7",
                                   "Trace welcome", "Debug Registered Service with Name: shop"));
}

TEST(RegisterServiceTest, RegistryThatIsDownFails)
{
    const ClosedRegistryPort port;
    CapturedLog log;
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_THAT(errorsOf(log), ElementsAre(testing::StartsWith("Exception occured while getting service list: "
                                                               "Connection refused")));
}

TEST(RegisterServicesTest, RegistersInOrderOnOneConnection)
{
    const std::vector<std::string> ids = {FIRST_ID, SECOND_ID};
    std::size_t next = 0;
    FakeRegistry registry([&](const std::string&) { return created("/" + ids.at(next++)); });
    std::vector<MicroServiceInfo> entries{entryOf("shop"), entryOf("bank")};
    EXPECT_TRUE(ServiceRegistryAbstraction::registerServices(entries));
    EXPECT_THAT(registry.requests(), ElementsAre(putOf("shop"), putOf("bank")));
    EXPECT_EQ(registry.connections(), 1);
    EXPECT_EQ(entries[0].getIdString(), FIRST_ID);
    EXPECT_EQ(entries[1].getIdString(), SECOND_ID);
}

TEST(RegisterServicesTest, BodyIsDrainedAlsoWhenNothingIsLogged)
{
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    CapturedLog log(Message::PRIO_ERROR);
    std::vector<MicroServiceInfo> entries{entryOf("shop"), entryOf("bank")};
    EXPECT_TRUE(ServiceRegistryAbstraction::registerServices(entries));
    EXPECT_EQ(registry.connections(), 1);
    EXPECT_TRUE(log.entries().empty());
}

TEST(RegisterServicesTest, ChunkedBodyIsDrainedToItsEnd)
{
    for (const std::size_t size: {1, 8191, 8192, 8193, 65536})
    {
        std::ostringstream body;
        body << std::hex << size << "\r\n" << std::string(size, 'x') << "\r\n0\r\n\r\n";
        FakeRegistry registry(always({"HTTP/1.1 201 Created\r\nTransfer-Encoding: chunked\r\nLocation: /" + FIRST_ID +
                                      "\r\n\r\n" + body.str()}));
        std::vector<MicroServiceInfo> entries{entryOf("shop"), entryOf("bank")};
        EXPECT_TRUE(ServiceRegistryAbstraction::registerServices(entries)) << size;
        EXPECT_EQ(registry.connections(), 1) << size;
    }
}

TEST(RegisterServicesTest, FirstFailureEndsTheCall)
{
    int count = 0;
    FakeRegistry registry([&](const std::string&)
                          { return ++count == 2 ? FakeRegistry::answer("500 No") : created("/" + FIRST_ID); });
    std::vector<MicroServiceInfo> entries{entryOf("shop"), entryOf("bank"), entryOf("post")};
    EXPECT_FALSE(ServiceRegistryAbstraction::registerServices(entries));
    EXPECT_EQ(registry.requests().size(), 2U);
    EXPECT_TRUE(entries[0].hasValue("id"));
    EXPECT_FALSE(entries[1].hasValue("id"));
    EXPECT_FALSE(entries[2].hasValue("id"));
}

TEST(RegisterServicesTest, NoServicesIsASuccessThatSendsNothing)
{
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    std::vector<MicroServiceInfo> none;
    EXPECT_TRUE(ServiceRegistryAbstraction::registerServices(none));
    EXPECT_TRUE(ServiceRegistryAbstraction::unregisterServices(none));
    EXPECT_EQ(registry.connections(), 0);
}

TEST(RegisterServicesTest, ConnectionThatIsLostBetweenTwoIsNotRepaired)
{
    FakeRegistry registry(
        [&](const std::string&)
        {
            Answer answer = created("/" + FIRST_ID);
            answer.after = Answer::CLOSE;
            return answer;
        });
    CapturedLog log;
    std::vector<MicroServiceInfo> entries{entryOf("shop"), entryOf("bank")};
    ServiceRegistryAbstraction::registerServices(entries);
    EXPECT_TRUE(entries[0].hasValue("id"));
    EXPECT_FALSE(log.contains(Message::PRIO_INFORMATION, "reconnect to SR"));
}

TEST(UnregisterServiceTest, SendsTheIdAndNoBody)
{
    FakeRegistry registry(always(FakeRegistry::answer("200 OK", "gone")));
    CapturedLog log;
    EXPECT_TRUE(ServiceRegistryAbstraction::unregisterService(entryOf("shop", FIRST_ID)));
    EXPECT_THAT(registry.requests(), ElementsAre(deleteOf(FIRST_ID)));
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "De-register service on ServiceRegistry with name: shop"));
    EXPECT_TRUE(log.contains(Message::PRIO_TRACE, "gone"));
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 0U);
}

TEST(UnregisterServiceTest, OtherStatusFails)
{
    for (const char* status: {"404 Not Found", "204 No Content", "500 No"})
    {
        FakeRegistry registry(always(FakeRegistry::answer(status)));
        CapturedLog log;
        EXPECT_FALSE(ServiceRegistryAbstraction::unregisterService(entryOf("shop", FIRST_ID)));
        EXPECT_THAT(errorsOf(log), ElementsAre("Failed to remove service registration for service shop"));
    }
}

TEST(UnregisterServiceTest, ServiceWithoutAnIdSendsNothing)
{
    FakeRegistry registry(always(FakeRegistry::answer("200 OK")));
    CapturedLog log;
    EXPECT_FALSE(ServiceRegistryAbstraction::unregisterService(entryOf("shop")));
    EXPECT_THAT(errorsOf(log), ElementsAre("Missing attribute 'id' in service object"));
    EXPECT_EQ(registry.connections(), 0);
}

TEST(UnregisterServiceTest, IdOfAnotherTypeGivesBothLines)
{
    FakeRegistry registry(always(FakeRegistry::answer("200 OK")));
    MicroServiceInfo entry = entryOf("shop");
    entry.setAttribute(new Kesa::Data::Attribute<Kesa::Data::AttributeValueStringable<std::string>>(
        0, "id", Kesa::Data::AttributeValueStringable<std::string>(FIRST_ID)));
    CapturedLog log;
    EXPECT_FALSE(ServiceRegistryAbstraction::unregisterService(entry));
    EXPECT_THAT(errorsOf(log), ElementsAre("Exception occured while removal of service registration: Invalid access: "
                                           "Invalid type for attribute id in AttributeContainer",
                                           "Failed to remove service registration for service shop"));
    EXPECT_EQ(registry.connections(), 0);
}

TEST(UnregisterServiceTest, RegistryThatIsDownGivesBothLines)
{
    const ClosedRegistryPort port;
    CapturedLog log;
    EXPECT_FALSE(ServiceRegistryAbstraction::unregisterService(entryOf("shop", FIRST_ID)));
    EXPECT_THAT(errorsOf(log),
                ElementsAre(testing::StartsWith("Exception occured while removal of service registration: "),
                            "Failed to remove service registration for service shop"));
}

TEST(UnregisterServiceTest, ServiceWithoutANameLetsTheExceptionOut)
{
    CapturedLog log;
    MicroServiceInfo entry;
    entry.setId(FIRST_ID);
    EXPECT_THROW(ServiceRegistryAbstraction::unregisterService(entry), Poco::InvalidAccessException);
    EXPECT_THAT(errorsOf(log), ElementsAre("Exception occured while removal of service registration: Invalid access: "
                                           "Attribute name is not set"));
}

TEST(UnregisterServicesTest, RemovesInOrderOnOneConnection)
{
    FakeRegistry registry(always(FakeRegistry::answer("200 OK", "gone")));
    CapturedLog log;
    EXPECT_TRUE(
        ServiceRegistryAbstraction::unregisterServices({entryOf("shop", FIRST_ID), entryOf("bank", SECOND_ID)}));
    EXPECT_THAT(registry.requests(), ElementsAre(deleteOf(FIRST_ID), deleteOf(SECOND_ID)));
    EXPECT_EQ(registry.connections(), 1);
    EXPECT_FALSE(log.contains(Message::PRIO_INFORMATION, "reconnect to SR"));
}

TEST(UnregisterServicesTest, FirstFailureEndsTheCall)
{
    FakeRegistry registry(always(FakeRegistry::answer("404 Not Found")));
    EXPECT_FALSE(
        ServiceRegistryAbstraction::unregisterServices({entryOf("shop", FIRST_ID), entryOf("bank", SECOND_ID)}));
    EXPECT_EQ(registry.requests().size(), 1U);
}

TEST(UnregisterServicesTest, ConnectionThatTheRegistryAnnouncesToCloseIsOpenedAnew)
{
    FakeRegistry registry(
        [](const std::string&)
        {
            Answer answer = FakeRegistry::answer("200 OK", "gone", "Connection: close\r\n");
            answer.after = Answer::CLOSE;
            return answer;
        });
    EXPECT_TRUE(
        ServiceRegistryAbstraction::unregisterServices({entryOf("shop", FIRST_ID), entryOf("bank", SECOND_ID)}));
    EXPECT_EQ(registry.connections(), 2);
}

TEST(UnregisterServicesTest, ConnectionThatIsLostBetweenTwoIsRepaired)
{
    // The body ends with the connection, so the end has arrived when the answer is whole.
    FakeRegistry registry(always({"HTTP/1.1 200 OK\r\n\r\ngone", Answer::CLOSE}));
    CapturedLog log;
    EXPECT_TRUE(
        ServiceRegistryAbstraction::unregisterServices({entryOf("shop", FIRST_ID), entryOf("bank", SECOND_ID)}));
    EXPECT_THAT(registry.requests(), ElementsAre(deleteOf(FIRST_ID), deleteOf(SECOND_ID)));
    EXPECT_EQ(registry.connections(), 2);
    EXPECT_EQ(log.count(Message::PRIO_INFORMATION, "reconnect to SR"), 2U);
}

TEST(LogResponseTest, LogsStatusAndHeadersAtTrace)
{
    Poco::Net::HTTPResponse response(Poco::Net::HTTPResponse::HTTP_NOT_FOUND);
    response.set("First", "1");
    response.set("Second", "2");
    CapturedLog log;
    Kesa::logResponse(response);
    std::vector<std::string> texts;
    for (const CapturedLog::Entry& entry: log.entries())
    {
        EXPECT_EQ(entry.priority, Message::PRIO_TRACE);
        texts.push_back(entry.text);
    }
    EXPECT_THAT(texts, ElementsAre("404 Not Found", "First:1", "Second:2"));
}

TEST(LogResponseTest, LogsNothingWithoutTrace)
{
    CapturedLog log(Message::PRIO_DEBUG);
    Kesa::logResponse(Poco::Net::HTTPResponse());
    EXPECT_TRUE(log.entries().empty());
}

TEST(ServiceRegistryAbstractionTest, SessionOfTheCallersIsUsedAsItIs)
{
    FakeRegistry registry([](const std::string& request)
                          { return request[0] == 'P' ? created("/" + FIRST_ID) : FakeRegistry::answer("200 OK"); });
    Poco::Net::HTTPClientSession session("127.0.0.1", 8910);
    session.setKeepAlive(true);
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_TRUE(Kesa::registerServicePriv(session, entry));
    EXPECT_TRUE(Kesa::unregisterServicePriv(session, entry));
    EXPECT_EQ(registry.connections(), 1);
}

TEST(ServiceRegistryConnectionTest, ConnectsToTheRegistry)
{
    {
        const ClosedRegistryPort port;
        EXPECT_THROW(Kesa::ServiceRegistryConnection::connect(), Poco::Net::ConnectionRefusedException);
    }
    FakeRegistry registry(always(FakeRegistry::answer("200 OK")));
    const auto socket = Kesa::ServiceRegistryConnection::connect();
    EXPECT_EQ(socket->peerAddress().toString(), "127.0.0.1:8910");
}

TEST(ServiceRegistryAbstractionTest, ThreadsDoNotDisturbEachOther)
{
    FakeRegistry registry(always(created("/" + FIRST_ID)));
    std::vector<std::future<bool>> results;
    for (int i = 0; i < 8; ++i)
        results.push_back(std::async(std::launch::async,
                                     [i]
                                     {
                                         MicroServiceInfo entry = entryOf("shop" + std::to_string(i));
                                         return ServiceRegistryAbstraction::registerService(entry) &&
                                                entry.getIdString() == FIRST_ID;
                                     }));
    for (std::future<bool>& result: results)
        EXPECT_TRUE(result.get());
    EXPECT_EQ(registry.connections(), 8);
}

// The whole connection, to its end: nothing is sent behind the request.

TEST(WholeConnectionTest, RegistrationIsOneRequest)
{
    OneConnection registry("\r\n0\r\n\r\n", created("/" + FIRST_ID));
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_TRUE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_EQ(registry.bytes(), putOf("shop"));
}

TEST(WholeConnectionTest, RemovalIsOneRequest)
{
    OneConnection registry("\r\n\r\n", FakeRegistry::answer("200 OK"));
    EXPECT_TRUE(ServiceRegistryAbstraction::unregisterService(entryOf("shop", FIRST_ID)));
    EXPECT_EQ(registry.bytes(), deleteOf(FIRST_ID));
}

TEST(WholeConnectionTest, ListIsOneRequest)
{
    OneConnection registry("\r\n\r\n", FakeRegistry::answer("200 OK", R"({"data":[]})"));
    std::vector<MicroServiceInfo> entries;
    EXPECT_TRUE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_EQ(registry.bytes(), getOf("/"));
}

} // namespace
