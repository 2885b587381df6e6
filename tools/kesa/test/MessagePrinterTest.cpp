#include "MessagePrinter.h"

#include <Poco/JSON/Parser.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using Kesa::Client::MessagePrinter;

Poco::Dynamic::Var parse(const std::string& json)
{
    return Poco::JSON::Parser().parse(json);
}

/// The line for the last of several states of one event.
std::string lastLine(const std::vector<std::string>& states)
{
    MessagePrinter printer;
    std::string line;
    for (const std::string& state: states)
        line = printer.notification("/s/r", parse(state));
    return line;
}

struct Case
{
    const char* name;
    std::vector<std::string> states;
    const char* line;
};

class MessagePrinterLines: public testing::TestWithParam<Case>
{
};

TEST_P(MessagePrinterLines, TellWhatIsNew)
{
    EXPECT_EQ(lastLine(GetParam().states), GetParam().line);
}

INSTANTIATE_TEST_SUITE_P(
    All, MessagePrinterLines,
    testing::Values(
        Case{"FirstObjectInFull", {R"({"id":"a","x":1.5,"t":"two words"})"}, R"(/s/r  id=a  t="two words"  x=1.5)"},
        Case{"LaterObjectItsChanges",
             {R"({"id":"a","x":1,"y":2})", R"({"id":"a","x":1,"y":3,"z":true})"},
             "/s/r  y=3  z=true"},
        Case{"MemberThatWent", {R"({"id":"a","x":1})", R"({"id":"a"})"}, "/s/r  -x"},
        Case{"SameObject", {R"({"id":"a"})", R"({"id":"a"})"}, "/s/r  unchanged"},
        Case{"EmptyObject", {"{}"}, "/s/r  {}"},
        Case{"NestedValues", {R"({"a":[1,{"b":null}]})"}, R"(/s/r  a=[1,{"b":null}])"},
        Case{"TypeOfMemberChanged", {R"({"a":{"b":1}})", R"({"a":"1"})"}, "/s/r  a=1"},
        Case{"FirstListItsIds", {R"([{"id":"1","name":"init"},{"id":"7"}])"}, "/s/r  2 elements: 1(init) 7"},
        Case{"LaterListWhatCameAndWent",
             {R"([{"id":"1"},{"id":"2"}])", R"([{"id":"2"},{"id":"3"}])"},
             "/s/r  2 elements: +3 -1"},
        Case{"ReorderedList",
             {R"([{"id":"1"},{"id":"2"}])", R"([{"id":"2"},{"id":"1"}])"},
             "/s/r  2 elements: reordered"},
        Case{"RenamedElement",
             {R"([{"id":"1","name":"a"}])", R"([{"id":"1","name":"b"}])"},
             "/s/r  1 element: unchanged"},
        Case{"SameList", {R"([{"id":"1"}])", R"([{"id":"1"}])"}, "/s/r  1 element: unchanged"},
        Case{"ListOfScalars", {R"([1,"b",null])"}, "/s/r  3 elements: 1 b null"},
        Case{"LongListIsCut", {"[1,2,3,4,5,6,7,8,9,10,11,12,13]"}, "/s/r  13 elements: 1 2 3 4 5 6 7 8 9 10 11 12 ..."},
        Case{"ListAfterObject", {R"({"id":"a"})", "[1]"}, "/s/r  1 element: 1"}),
    [](const auto& testInfo) { return testInfo.param.name; });

TEST(MessagePrinter, PrintsMissingDataAsNull)
{
    EXPECT_EQ(MessagePrinter().notification("/s", Poco::Dynamic::Var()), "/s  null");
}

TEST(MessagePrinter, KeepsEventsApart)
{
    MessagePrinter printer;
    printer.notification("/a", parse(R"({"x":1})"));
    EXPECT_EQ(printer.notification("/b", parse(R"({"x":1})")), "/b  x=1");
}

TEST(MessagePrinter, StartsAnewWhenItHasSeenTooManyEvents)
{
    MessagePrinter printer;
    for (std::size_t i = 0; i <= MessagePrinter::MAX_EVENTS; ++i)
        printer.notification("/" + std::to_string(i), parse(R"({"x":1})"));
    EXPECT_EQ(printer.notification("/0", parse(R"({"x":1})")), "/0  x=1");
}

TEST(MessagePrinter, LetsNoControlCharacterThrough)
{
    const std::string line = MessagePrinter().notification("/\x1b[2J", parse(R"({"a":"\u001b[2J\n"})"));
    for (const char c: line)
        EXPECT_GE(static_cast<unsigned char>(c), 0x20) << line;
}

TEST(MessagePrinter, TimeOfDayHasMilliseconds)
{
    EXPECT_EQ(MessagePrinter::timeOfDay().size(), std::string("16:07:49.123").size());
}

} // namespace
