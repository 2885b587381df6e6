#include "Entries.h"
#include "RegistryWire.h"

#include <ServiceRegistry.h>
#include <Time/Now.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Kesa::MicroServiceInfo;
using Kesa::Service::ServiceRegistryAbstraction;
using Poco::Message;
using testing::ElementsAre;
using namespace Kesa::Test;

namespace
{

typedef FakeRegistry::Answer Answer;

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

TEST(HostileRegistryTest, EndlessLinesOfItsHeadAreRefused)
{
    for (const char* head: {"", "HTTP/1.1 ", "HTTP/1.1 200 ", "HTTP/1.1 200 OK\r\nA", "HTTP/1.1 200 OK\r\nA: "})
    {
        FakeRegistry registry(always({head, Answer::FLOOD, "1"}));
        CapturedLog log;
        MicroServiceInfo entry = entryOf("shop");
        EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry)) << head;
        EXPECT_FALSE(ServiceRegistryAbstraction::unregisterService(entryOf("shop", FIRST_ID))) << head;
        std::vector<MicroServiceInfo> entries;
        EXPECT_FALSE(ServiceRegistryAbstraction::getServiceList(entries)) << head;
        EXPECT_EQ(errorsOf(log).size(), 4U) << head;
    }
}

TEST(HostileRegistryTest, EndlessHeadOfAChunkIsGivenUp)
{
    expectAllTimeOut({"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1", Answer::DRIP, ";x"});
}

class MalformedAnswerTest: public testing::TestWithParam<const char*>
{
};

TEST_P(MalformedAnswerTest, FailsEveryExchange)
{
    FakeRegistry registry(always({GetParam(), Answer::CLOSE}));
    CapturedLog log;
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_FALSE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_FALSE(entry.hasValue("id"));
    EXPECT_FALSE(ServiceRegistryAbstraction::unregisterService(entryOf("shop", FIRST_ID)));
    std::vector<MicroServiceInfo> entries;
    EXPECT_FALSE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_THAT(errorsOf(log),
                ElementsAre(testing::StartsWith("Exception occured while getting service list: "),
                            testing::StartsWith("Exception occured while removal of service registration: "),
                            "Failed to remove service registration for service shop",
                            testing::StartsWith("Exception occured while reading service list: ")));
}

INSTANTIATE_TEST_SUITE_P(Answers, MalformedAnswerTest,
                         testing::Values("", "\r\n\r\n", "hello\r\n\r\n", "HTTP/1.1\r\n\r\n",
                                         "HTTP/1.1 2000 OK\r\n\r\n", "HTTP/1.1 abc OK\r\n\r\n",
                                         "HTTP/1.1 200 OK\r\nContent-Length: many\r\n\r\n",
                                         "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999999\r\n\r\n",
                                         "HTTP/1.1 100 Continue\r\n\r\n"));

TEST(HostileRegistryTest, ListOfTooManyPartsIsNotParsed)
{
    for (const char* part: {"{},", "[],", "1,", "{\"a\":1,\"b\":2},"})
    {
        std::string list = R"({"data":[)";
        while (list.size() < 8 * 1024 * 1024)
            list += part;
        std::istringstream stream(list + "1]}");
        std::vector<MicroServiceInfo> entries;
        try
        {
            Kesa::extractMicroServiceInfosFromResponse(entries, stream);
            ADD_FAILURE() << part << " was parsed";
        }
        catch (const Poco::DataException& exception)
        {
            EXPECT_EQ(exception.message(), "the service registry's list holds more than 500000 members and elements");
        }
    }
}

TEST(HostileRegistryTest, TextsOfAListAreNotTakenForItsParts)
{
    std::istringstream stream(R"({"data":[],"text":"\")" + std::string(600000, ',') + "\"}");
    std::vector<MicroServiceInfo> entries;
    EXPECT_TRUE(Kesa::extractMicroServiceInfosFromResponse(entries, stream));
}

TEST(HostileRegistryTest, ListOfAFullRegistryIsTaken)
{
    std::string list = R"({"data":[)";
    for (int i = 0; i < 20000; ++i)
        list += (i == 0 ? "" : ",") + jsonOf("shop", FIRST_ID);
    std::istringstream stream(list + "]}");
    std::vector<MicroServiceInfo> entries;
    EXPECT_TRUE(Kesa::extractMicroServiceInfosFromResponse(entries, stream));
    EXPECT_EQ(entries.size(), 20000U);
}

TEST(HostileRegistryTest, BodyThatEndsHalfWayDoesNotUndoTheAnswer)
{
    FakeRegistry registry(always(
        {"HTTP/1.1 201 Created\r\nContent-Length: 1000\r\nLocation: /" + FIRST_ID + "\r\n\r\nwelc", Answer::CLOSE}));
    MicroServiceInfo entry = entryOf("shop");
    EXPECT_TRUE(ServiceRegistryAbstraction::registerService(entry));
    EXPECT_EQ(entry.getIdString(), FIRST_ID);
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
    EXPECT_THAT(errorsOf(log), ElementsAre("Failed to parse response from ServiceRegistry."));
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
