#include <Command/ResponseText.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using Kesa::Command::ResponseText;

namespace
{

Poco::JSON::Object document()
{
    Poco::JSON::Object data;
    data.set("x", 1);
    Poco::JSON::Object result;
    result.set("data", data);
    result.set("event", "/e");
    return result;
}

TEST(ResponseTextTest, NothingIsKeptBeforeTheDocumentIsSettled)
{
    ResponseText text;
    Poco::JSON::Object changing = document();
    EXPECT_EQ(*text.get(changing), R"({"data":{"x":1},"event":"/e"})");
    changing.set("data", 2);
    EXPECT_EQ(*text.get(changing), R"({"data":2,"event":"/e"})");
}

TEST(ResponseTextTest, SettledTextIsTheSameObjectForAll)
{
    ResponseText text;
    text.settle();
    const Poco::JSON::Object settled = document();
    const ResponseText::Text first = text.get(settled);
    EXPECT_EQ(text.get(settled), first);
    const ResponseText copy(text);
    EXPECT_EQ(copy.get(settled), first);
}

TEST(ResponseTextTest, ChangedMemberLeavesTheTextOfTheDataAsItIs)
{
    ResponseText text;
    text.settle();
    Poco::JSON::Object settled = document();
    text.get(settled);
    settled.set("event", "/f");
    settled.set("data", "not written again");
    text.memberChanged();
    EXPECT_EQ(*text.get(settled), R"({"data":{"x":1},"event":"/f"})");
}

TEST(ResponseTextTest, ChangedDataIsWrittenAgainAndNoLongerKept)
{
    ResponseText text;
    text.settle();
    Poco::JSON::Object settled = document();
    text.get(settled);
    settled.set("data", 3);
    text.dataChanged();
    EXPECT_EQ(*text.get(settled), R"({"data":3,"event":"/e"})");
    settled.set("data", 4);
    EXPECT_EQ(*text.get(settled), R"({"data":4,"event":"/e"})");
}

TEST(ResponseTextTest, AssignmentTakesOverTextsAndSettlement)
{
    ResponseText text;
    text.settle();
    const Poco::JSON::Object settled = document();
    const ResponseText::Text first = text.get(settled);
    ResponseText other;
    other = text;
    EXPECT_EQ(other.get(settled), first);
    const ResponseText& self = other;
    other = self;
    EXPECT_EQ(other.get(settled), first);
}

TEST(ResponseTextTest, EmptyDocumentIsAnEmptyObject)
{
    EXPECT_EQ(*ResponseText().get(Poco::JSON::Object()), "{}");
}

TEST(ResponseTextTest, ManyThreadsGetOneText)
{
    ResponseText text;
    text.settle();
    const Poco::JSON::Object settled = document();
    std::vector<ResponseText::Text> texts(8);
    std::vector<std::thread> threads;
    std::atomic<bool> go{false};
    for (auto& result: texts)
        threads.emplace_back(
            [&]
            {
                while (!go)
                    std::this_thread::yield();
                result = text.get(settled);
            });
    go = true;
    for (auto& thread: threads)
        thread.join();
    for (const auto& result: texts)
        EXPECT_EQ(result, texts.front());
}

} // namespace
