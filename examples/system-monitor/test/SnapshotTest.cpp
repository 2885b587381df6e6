#include "Snapshot.h"

#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace
{

using namespace SystemMonitor;
using testing::ElementsAre;
using testing::IsEmpty;

Poco::JSON::Object::Ptr object(const std::string& json)
{
    return Poco::JSON::Parser().parse(json).extract<Poco::JSON::Object::Ptr>();
}

/// "kind resource/id data" for each change.
std::vector<std::string> changes(const Snapshot& before, const Snapshot& after)
{
    static const char* const KINDS[] = {"appeared", "changed", "gone"};
    std::vector<std::string> result;
    for (const Change& change: difference(before, after))
    {
        std::ostringstream text;
        text << KINDS[change.kind] << " " << change.resource << "/" << change.id << " ";
        change.data->stringify(text);
        result.push_back(text.str());
    }
    return result;
}

TEST(Difference, IsEmptyBetweenEqualSnapshots)
{
    const Snapshot one{{"cpus", {{"cpu0", object(R"({"id":"cpu0","x":1.5})")}}}};
    const Snapshot other{{"cpus", {{"cpu0", object(R"({"id":"cpu0","x":1.5})")}}}};
    EXPECT_THAT(changes(one, other), IsEmpty());
}

TEST(Difference, TellsWholeElementsThatAppearedOrWent)
{
    const Snapshot one{{"cpus", {{"cpu0", object(R"({"id":"cpu0"})")}}}};
    const Snapshot other{{"cpus", {{"cpu1", object(R"({"id":"cpu1"})")}}}};
    EXPECT_THAT(changes(one, other),
                ElementsAre(R"(gone cpus/cpu0 {"id":"cpu0"})", R"(appeared cpus/cpu1 {"id":"cpu1"})"));
}

TEST(Difference, TellsOnlyTheMembersThatChanged)
{
    const Snapshot one{{"cpus", {{"cpu0", object(R"({"id":"cpu0","x":1,"y":2})")}}}};
    const Snapshot other{{"cpus", {{"cpu0", object(R"({"id":"cpu0","x":1,"y":3,"z":true})")}}}};
    EXPECT_THAT(changes(one, other), ElementsAre(R"(changed cpus/cpu0 {"y":3,"z":true})"));
}

TEST(Difference, TellsTheWholeElementWhereAMemberWent)
{
    const Snapshot one{{"disks", {{"vda", object(R"({"id":"vda","x":1})")}}}};
    const Snapshot other{{"disks", {{"vda", object(R"({"id":"vda"})")}}}};
    EXPECT_THAT(changes(one, other), ElementsAre(R"(changed disks/vda {"id":"vda"})"));
}

TEST(Difference, TellsAnotherElementUnderAnOldIdAsGoneAndAppeared)
{
    const Snapshot one{{"processes", {{"17", object(R"({"startedAfterBootSeconds":1.5})")}}}};
    const Snapshot other{{"processes", {{"17", object(R"({"startedAfterBootSeconds":2.5})")}}}};
    EXPECT_THAT(changes(one, other), ElementsAre(R"(gone processes/17 {"startedAfterBootSeconds":1.5})",
                                                 R"(appeared processes/17 {"startedAfterBootSeconds":2.5})"));
}

TEST(Difference, TellsEverythingOfANewResource)
{
    EXPECT_THAT(changes({}, {{"cpus", {{"cpu0", object("{}")}}}}), ElementsAre("appeared cpus/cpu0 {}"));
}

TEST(Elements, StandInTheOrderOfTheirNumbers)
{
    Elements elements;
    for (const char* id: {"cpu10", "cpu2", "all", "cpu1"})
        elements[id] = nullptr;
    std::vector<std::string> ids;
    for (const auto& [id, element]: elements)
        ids.push_back(id);
    EXPECT_THAT(ids, ElementsAre("all", "cpu1", "cpu2", "cpu10"));
}

} // namespace
