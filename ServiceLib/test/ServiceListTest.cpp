#include "Entries.h"
#include "RegistryWire.h"

#include <ServiceRegistry.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

using Kesa::MicroServiceInfo;
using Kesa::Service::ServiceRegistryAbstraction;
using Poco::Message;
using testing::ElementsAre;
using namespace Kesa::Test;

namespace
{

typedef FakeRegistry::Answer Answer;

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

TEST(GetServiceListTest, ListThatIsNoJsonLeavesTheEntriesAsTheyWere)
{
    FakeRegistry registry(always(FakeRegistry::answer("200 OK", "hello")));
    std::vector<MicroServiceInfo> entries{entryOf("old")};
    EXPECT_TRUE(ServiceRegistryAbstraction::getServiceList(entries));
    EXPECT_THAT(namesOf(entries), ElementsAre("old"));
}

TEST(GetServiceListTest, EmptyListIsReadInSilence)
{
    for (const char* body: {"{}", R"({"data":5})"})
    {
        FakeRegistry registry(always(FakeRegistry::answer("200 OK", body)));
        CapturedLog log(Message::PRIO_DEBUG);
        std::vector<MicroServiceInfo> entries;
        EXPECT_TRUE(ServiceRegistryAbstraction::getServiceList(entries));
        ASSERT_EQ(log.entries().size(), 1U);
        EXPECT_EQ(log.entries().front().text, "Lookup full service list on ServiceRegistry");
    }
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

} // namespace
