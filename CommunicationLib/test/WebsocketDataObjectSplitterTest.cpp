#include <Websocket/WebsocketDataObjectSplitter.h>

#include <Websocket/WebSocketProxy.h>

#include <Poco/Delegate.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using Kesa::Net::WebsocketDataEventPayload;
using Kesa::Net::WebsocketDataObjectSplitter;
using Kesa::Net::WebSocketProxy;

typedef std::vector<std::string> Objects;

class SplitterTest: public testing::Test
{
protected:
    SplitterTest() { splitter.DataObjectAvailable += delegate(); }
    ~SplitterTest() override { splitter.DataObjectAvailable -= delegate(); }

    Objects split(const std::string& block)
    {
        objects.clear();
        WebsocketDataEventPayload payload(proxy);
        payload.data = block;
        payload.flags = 0x81;
        splitter.onDataBlockAvailable(payload);
        return objects;
    }

    void onObject(const WebsocketDataEventPayload& payload)
    {
        EXPECT_EQ(&payload.webSocketProxy, &proxy);
        EXPECT_EQ(payload.flags, 0x81);
        objects.push_back(payload.data);
        if (payload.data == "{\"raise\":1}")
            throw std::runtime_error("asked to");
    }

    Poco::Delegate<SplitterTest, const WebsocketDataEventPayload, false> delegate()
    {
        return {this, &SplitterTest::onObject};
    }

    WebsocketDataObjectSplitter splitter;
    WebSocketProxy proxy{nullptr, nullptr};
    Objects objects;
};

TEST_F(SplitterTest, HandsOnOneObject)
{
    EXPECT_EQ(split(R"({"a":1})"), Objects{R"({"a":1})"});
    EXPECT_EQ(split("{}"), Objects{"{}"});
}

TEST_F(SplitterTest, SkipsWhiteSpaceAroundObjects)
{
    EXPECT_EQ(split(" \t\r\n{} \n {\"b\":{}}\n"), (Objects{"{}", "{\"b\":{}}"}));
}

TEST_F(SplitterTest, CutsObjectsThatTouch)
{
    EXPECT_EQ(split("{}{\"a\":[{},{}]}{}"), (Objects{"{}", "{\"a\":[{},{}]}", "{}"}));
}

TEST_F(SplitterTest, BracesAndQuotesInStringsDoNotCount)
{
    const std::string braces = R"({"a}{":"}}{{","b":"\"}","c":"\\"})";
    EXPECT_EQ(split(braces + braces), (Objects{braces, braces}));
    const std::string backslashes = R"({"a":"\\\"}\\"})";
    EXPECT_EQ(split(backslashes + "{}"), (Objects{backslashes, "{}"}));
}

TEST_F(SplitterTest, HandsOnOnceWhateverElseThereIs)
{
    for (const char* other:
         {"hello", "[1,2]", "42", "\"text\"", "}", "{", "{\"a\":", "{\"a\":\"", "{\"a\":\"\\", "{\"}", "null", "{{}"})
        EXPECT_EQ(split(other), Objects{other}) << other;
}

TEST_F(SplitterTest, HandsOnTheRestAfterObjectsAsItStands)
{
    EXPECT_EQ(split("{} [1] {}"), (Objects{"{}", "[1] {}"}));
    EXPECT_EQ(split("{}, {}"), (Objects{"{}", ", {}"}));
    EXPECT_EQ(split("{}{\"a\":1"), (Objects{"{}", "{\"a\":1"}));
    EXPECT_EQ(split("{}} "), (Objects{"{}", "} "}));
}

TEST_F(SplitterTest, HandsOnEmptyAndBlankBlocks)
{
    EXPECT_EQ(split(""), Objects{""});
    EXPECT_EQ(split("  \n"), Objects{"  \n"});
}

TEST_F(SplitterTest, KeepsNothingForTheNextBlock)
{
    EXPECT_EQ(split("{\"a\":"), Objects{"{\"a\":"});
    EXPECT_EQ(split("1}"), Objects{"1}"});
    EXPECT_EQ(split("{}"), Objects{"{}"});
}

TEST_F(SplitterTest, TakesAnyBytes)
{
    const std::string zeros("{\"a\":\"\0\"}", 9);
    EXPECT_EQ(split(zeros + zeros), (Objects{zeros, zeros}));
    EXPECT_EQ(split("{\"\xC3\xA4\":1}"), Objects{"{\"\xC3\xA4\":1}"});
}

TEST_F(SplitterTest, DeepNestsNeitherRecurseNorTakeLong)
{
    std::string nest;
    for (int i = 0; i < 100000; ++i)
        nest += "{\"a\":";
    nest += "1" + std::string(100000, '}');
    EXPECT_EQ(split(nest + nest), (Objects{nest, nest}));
    const std::string open(1024 * 1024, '{');
    EXPECT_EQ(split(open), Objects{open});
    const std::string quotes(1024 * 1024, '"');
    EXPECT_EQ(split("{" + quotes), Objects{"{" + quotes});
}

TEST_F(SplitterTest, WhatAHandlerRaisesEndsTheBlock)
{
    EXPECT_THROW(split("{}{\"raise\":1}{}"), std::runtime_error);
    EXPECT_EQ(objects, (Objects{"{}", "{\"raise\":1}"}));
    EXPECT_EQ(split("{}"), Objects{"{}"});
}

} // namespace
