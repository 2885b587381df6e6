#include "Entries.h"
#include "FakeRegistry.h"

#include <CapturedLog.h>
#include <ServiceRegistry.h>
#include <Time/Now.h>

#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPResponse.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <sstream>

using Kesa::MicroServiceInfo;
using Kesa::Service::ServiceRegistryAbstraction;
using Poco::Message;
using testing::ElementsAre;
using namespace Kesa::Test;

namespace
{

typedef FakeRegistry::Answer Answer;

FakeRegistry::Script always(const Answer& answer)
{
    return [answer](const std::string&) { return answer; };
}

Answer created(const std::string& location)
{
    return FakeRegistry::answer("201 Created", "welcome", "Location: " + location + "\r\n");
}

std::string putOf(const std::string& name)
{
    const std::string json = R"({"host":"127.0.0.1","name":")" + name + R"(","port":8080,"uri":"/)" + name + "\"}\n";
    std::ostringstream size;
    size << std::uppercase << std::hex << json.size();
    return "PUT /" + name + " HTTP/1.1\r\nTransfer-Encoding: chunked\r\nHost: 127.0.0.1:8910\r\n\r\n" + size.str() +
           "\r\n" + json + "\r\n0\r\n\r\n";
}

std::string deleteOf(const std::string& id)
{
    return "DELETE /" + id + " HTTP/1.1\r\nContent-Length: 0\r\nHost: 127.0.0.1:8910\r\n\r\n";
}

std::string getOf(const std::string& path)
{
    return "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:8910\r\n\r\n";
}

std::vector<std::string> namesOf(const std::vector<MicroServiceInfo>& entries)
{
    std::vector<std::string> names;
    for (const MicroServiceInfo& entry: entries)
        names.push_back(entry.getName());
    return names;
}

std::vector<std::string> errorsOf(const CapturedLog& log)
{
    std::vector<std::string> errors;
    for (const CapturedLog::Entry& entry: log.entries())
        if (entry.priority == Message::PRIO_ERROR)
            errors.push_back(entry.text);
    return errors;
}

// Registering

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

// Removing

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

// Reading

TEST(GetServiceListTest, AppendsTheEntriesInOrder)
{
    FakeRegistry registry(always(FakeRegistry::answer(
        "200 OK", R"({"status":"ok","data":[)" + jsonOf("shop", FIRST_ID) + "," + jsonOf("bank", SECOND_ID) + "]}")));
    CapturedLog log;
    std::vector<MicroServiceInfo> entries{entryOf("old")};
    EXPECT_TRUE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_THAT(namesOf(entries), ElementsAre("old", "shop", "bank"));
    EXPECT_EQ(entries[2].getIdString(), SECOND_ID);
    EXPECT_THAT(registry.requests(), ElementsAre(getOf("/")));
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "Lookup full service list on ServiceRegistry"));
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 0U);
}

TEST(GetServiceListTest, ReadsAChunkedList)
{
    const std::string json = R"({"data":[)" + jsonOf("shop", FIRST_ID) + "]}";
    std::ostringstream chunks;
    for (const char c: json)
        chunks << "1\r\n" << c << "\r\n";
    FakeRegistry registry(
        always({"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks.str() + "0\r\n\r\n"}));
    std::vector<MicroServiceInfo> entries;
    EXPECT_TRUE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_THAT(namesOf(entries), ElementsAre("shop"));
}

TEST(FindRegisteredServiceTest, AsksForTheNameAsItStands)
{
    FakeRegistry registry(always(FakeRegistry::answer("200 OK", R"({"data":[]})")));
    CapturedLog log;
    std::vector<MicroServiceInfo> entries;
    EXPECT_TRUE(ServiceRegistryAbstraction::findRegisteredService("a&b", entries));
    EXPECT_THAT(registry.requests(), ElementsAre(getOf("/?name=a&b")));
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "Lookup services on ServiceRegistry with name: a&b"));
}

TEST(FindRegisteredServiceTest, EmptyNameAsksForAll)
{
    FakeRegistry registry(always(FakeRegistry::answer("200 OK", R"({"data":[]})")));
    std::vector<MicroServiceInfo> entries;
    EXPECT_TRUE(ServiceRegistryAbstraction::findRegisteredService("", entries));
    EXPECT_THAT(registry.requests(), ElementsAre(getOf("/")));
}

struct ListCase
{
    std::string body;
    std::vector<std::string> names;
    std::string error; ///< how the one Error line begins; empty for none
};

class ListBodyTest: public testing::TestWithParam<ListCase>
{
};

TEST_P(ListBodyTest, CountsAsReadWhateverItHolds)
{
    const ListCase& expected = GetParam();
    FakeRegistry registry(always(FakeRegistry::answer("200 OK", expected.body)));
    CapturedLog log;
    std::vector<MicroServiceInfo> entries;
    EXPECT_TRUE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_EQ(namesOf(entries), expected.names);
    const std::vector<std::string> errors = errorsOf(log);
    ASSERT_EQ(errors.size(), expected.error.empty() ? 0U : 1U);
    EXPECT_THAT(errors.empty() ? "" : errors.front(), testing::StartsWith(expected.error));
}

const std::string PARSE_ERROR = "Failed to parse response from ServiceRegistry.";
const std::string LIST_ERROR = "Invalid service list returned from ServiceRegistry: ";

INSTANTIATE_TEST_SUITE_P(
    Bodies, ListBodyTest,
    testing::Values(ListCase{"", {}, PARSE_ERROR}, ListCase{"hello", {}, PARSE_ERROR}, ListCase{"[]", {}, PARSE_ERROR},
                    ListCase{"5", {}, PARSE_ERROR}, ListCase{R"({"data":[)", {}, PARSE_ERROR},
                    ListCase{std::string(100000, '['), {}, PARSE_ERROR},
                    ListCase{R"({"data":[{"port":1e999}]})", {}, PARSE_ERROR}, ListCase{"{}", {}, ""},
                    ListCase{R"({"data":5})", {}, ""}, ListCase{R"({"data":{"a":1}})", {}, ""},
                    ListCase{R"({"data":null})", {}, ""}, ListCase{R"({"data":[]})", {}, ""},
                    ListCase{R"({"data":[)" + jsonOf("shop", FIRST_ID) + ",5]}", {"shop"}, LIST_ERROR},
                    ListCase{R"({"data":[)" + jsonOf("shop", FIRST_ID) + ",null," + jsonOf("bank", SECOND_ID) + "]}",
                             {"shop"},
                             LIST_ERROR},
                    ListCase{R"({"data":["a"]})", {}, LIST_ERROR}, ListCase{R"({"data":[[]]})", {}, LIST_ERROR},
                    ListCase{R"({"data":[{},{"name":7},)" + jsonOf("shop", FIRST_ID) + "]}", {"shop"}, ""}));

TEST(GetServiceListTest, OtherStatusFailsWithItsBodyInTheLog)
{
    FakeRegistry registry(always(FakeRegistry::answer("503 Busy", "come back later")));
    CapturedLog log;
    std::vector<MicroServiceInfo> entries;
    EXPECT_FALSE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "come back later"));
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 0U);
}

TEST(GetServiceListTest, RegistryThatIsDownFails)
{
    const ClosedRegistryPort port;
    CapturedLog log;
    std::vector<MicroServiceInfo> entries{entryOf("old")};
    EXPECT_FALSE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_EQ(entries.size(), 1U);
    EXPECT_THAT(errorsOf(log), ElementsAre(testing::StartsWith("Exception occured while reading service list: ")));
}

TEST(ExtractMicroServiceInfosFromResponseTest, TellsWhetherTheListCouldBeRead)
{
    CapturedLog log;
    std::vector<MicroServiceInfo> entries;
    for (const auto& [text, expected]:
         std::vector<std::pair<std::string, bool>>{{"nothing", false},
                                                   {"{}", true},
                                                   {R"({"data":[5]})", false},
                                                   {R"({"data":[)" + jsonOf("a", FIRST_ID) + "]}", true}})
    {
        std::istringstream stream(text);
        EXPECT_EQ(Kesa::extractMicroServiceInfosFromResponse(entries, stream), expected) << text;
    }
    EXPECT_THAT(namesOf(entries), ElementsAre("a"));
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

// A registry that is broken or hostile

/// Runs the three exchanges one after the other and gives the Error lines of each.
void expectAllFail(const std::string& reason)
{
    CapturedLog log;
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_FALSE(ServiceRegistryAbstraction::unregisterService(entryOf("shop", FIRST_ID)));
    std::vector<MicroServiceInfo> entries;
    EXPECT_FALSE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_THAT(errorsOf(log), ElementsAre("Exception occured while getting service list: " + reason,
                                           "Exception occured while removal of service registration: " + reason,
                                           "Failed to remove service registration for service shop",
                                           "Exception occured while reading service list: " + reason));
}

/// A clock that runs a hundred times as fast.
class FastClock
{
public:
    FastClock(): m_ticker([this] { tick(); }) {}
    ~FastClock()
    {
        m_isEnding = true;
        m_ticker.join();
    }

private:
    void tick()
    {
        while (!m_isEnding)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            m_clock.advance(1000);
        }
    }

    Kesa::Util::TestClock m_clock;
    std::atomic<bool> m_isEnding = false;
    std::thread m_ticker;
};

const std::string TOO_LATE = "Timeout: the service registry did not complete an exchange within 30 seconds";

void expectAllTimeOut(const Answer& answer)
{
    FakeRegistry registry(always(answer));
    const FastClock clock;
    expectAllFail(TOO_LATE);
}

TEST(HostileRegistryTest, OneThatDoesNotReadIsGivenUp)
{
    Poco::Net::ServerSocket nobodyAccepts;
    ClosedRegistryPort::bindRegistryPort(nobodyAccepts);
    nobodyAccepts.listen(8);
    MicroServiceInfo entry = entryOf("shop");
    const std::string text(32 * 1024 * 1024, 'x'); // more than the buffers of the system take
    entry.setAttribute(new Kesa::Data::Attribute<Kesa::Data::AttributeValueStringable<std::string>>(
        0, "text", Kesa::Data::AttributeValueStringable<std::string>(text)));
    const FastClock clock;
    CapturedLog log;
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_THAT(errorsOf(log), ElementsAre("Exception occured while getting service list: " + TOO_LATE));
}

TEST(HostileRegistryTest, OneThatNeverAnswersIsGivenUp)
{
    expectAllTimeOut({"", Answer::HANG});
}

TEST(HostileRegistryTest, OneThatStopsInItsHeadIsGivenUp)
{
    expectAllTimeOut({"HTTP/1.1 200 OK\r\nServer: sl", Answer::HANG});
}

TEST(HostileRegistryTest, OneThatSendsItsHeadByteByByteIsGivenUp)
{
    expectAllTimeOut({"HTTP/1.1 200 OK\r\nServer: ", Answer::DRIP, "slow"});
}

TEST(HostileRegistryTest, OneThatSendsItsBodyByteByByteIsGivenUp)
{
    expectAllTimeOut({"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", Answer::DRIP, "slow"});
}

TEST(HostileRegistryTest, EndlessInterimAnswersAreGivenUp)
{
    expectAllTimeOut({"", Answer::DRIP, "HTTP/1.1 100 Continue\r\n\r\n"});
}

TEST(HostileRegistryTest, EndlessHeadIsRefused)
{
    FakeRegistry registry(always({"HTTP/1.1 200 OK\r\n", Answer::FLOOD, "More: headers\r\n"}));
    expectAllFail("Malformed message: Too many header fields");
}

TEST(HostileRegistryTest, EndlessBodyIsCutOff)
{
    FakeRegistry registry(always(
        {"HTTP/1.1 201 Created\r\nLocation: /" + FIRST_ID + "\r\n\r\n", Answer::FLOOD, std::string(65536, 'x')}));
    expectAllFail("Data error: the service registry's answer is longer than 65536 bytes");
}

TEST(HostileRegistryTest, BodyAtTheBoundIsTaken)
{
    FakeRegistry registry(
        always(FakeRegistry::answer("201 Created", std::string(65536, 'x'), "Location: /" + FIRST_ID + "\r\n")));
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_TRUE(ServiceRegistryAbstraction::registerService(entry));
}

TEST(HostileRegistryTest, EndlessListIsCutOff)
{
    FakeRegistry registry(always(
        {"HTTP/1.1 200 OK\r\nContent-Length: 1073741824\r\n\r\n{\"data\":[", Answer::FLOOD, std::string(65536, ' ')}));
    CapturedLog log;
    std::vector<MicroServiceInfo> entries;
    EXPECT_FALSE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_THAT(errorsOf(log), ElementsAre("Exception occured while reading service list: Data error: the service "
                                           "registry's answer is longer than 16777216 bytes"));
}

TEST(HostileRegistryTest, ListThatEndsHalfWayIsNoList)
{
    FakeRegistry registry(always({"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{\"data\":[", Answer::CLOSE}));
    CapturedLog log;
    std::vector<MicroServiceInfo> entries;
    EXPECT_TRUE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_TRUE(entries.empty());
    EXPECT_THAT(errorsOf(log), ElementsAre(PARSE_ERROR));
}

TEST(HostileRegistryTest, ConnectionThatClosesWithoutAnAnswerFails)
{
    FakeRegistry registry(always({"", Answer::CLOSE}));
    CapturedLog log;
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_THAT(errorsOf(log), ElementsAre(testing::StartsWith("Exception occured while getting service list: ")));
}

} // namespace
