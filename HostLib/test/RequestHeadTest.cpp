#include "RequestHead.h"

#include <gtest/gtest.h>

#include <string>

using Kesa::Host::RequestHeadParser;
using State = RequestHeadParser::State;

namespace
{

struct Case
{
    const char* name;
    std::string text;
    int status; ///< 0: accepted
    std::uint64_t bodyLength = 0;
    bool chunked = false;
};

void PrintTo(const Case& c, std::ostream* out)
{
    *out << c.name;
}

const std::string HOST = "Host: a\r\n";

std::string get(const std::string& fields)
{
    return "GET / HTTP/1.1\r\n" + fields + "\r\n";
}

std::string repeated(const std::string& text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

const Case CASES[] = {
    {"Plain", get(HOST), 0},
    {"NoFieldsInHttp10", "GET / HTTP/1.0\r\n\r\n", 0},
    {"AbsoluteUrl", "GET http://a/b HTTP/1.1\r\nHost: a\r\n\r\n", 0},
    {"Asterisk", "OPTIONS * HTTP/1.1\r\nHost: a\r\n\r\n", 0},
    {"UnknownMethod", "BREW / HTTP/1.1\r\nHost: a\r\n\r\n", 0},
    {"EmptyValue", get(HOST + "X:\r\n"), 0},
    {"BlanksAroundValue", get("Host: \t a \t\r\n"), 0},
    {"HostWithPort", get("Host: [::1]:8920\r\n"), 0},
    {"EmptyHost", get("Host:\r\n"), 0},
    {"TextBeyondAscii", get(HOST + "X: \xc3\xa9\r\n"), 0},
    {"Length", get(HOST + "Content-Length: 17\r\n"), 0, 17},
    {"LengthInAnyCase", get(HOST + "cOnTeNt-LeNgTh: 17\r\n"), 0, 17},
    {"Chunked", get(HOST + "Transfer-Encoding: Chunked\r\n"), 0, 0, true},
    {"ExpectContinue", get(HOST + "Expect: 100-continue\r\n"), 0},
    {"LongestField", get(HOST + "X: " + std::string(8000, 'x') + "\r\n"), 0},

    {"NoHost", get(""), 400},
    {"TwoHosts", get(HOST + HOST), 400},
    {"HostWithBlank", get("Host: a b\r\n"), 400},
    {"HostWithPath", get("Host: a/b\r\n"), 400},
    {"HostWithUser", get("Host: u@b\r\n"), 400},
    {"TwoLengths", get(HOST + "Content-Length: 1\r\nContent-Length: 1\r\n"), 400},
    {"TwoLengthsInOne", get(HOST + "Content-Length: 1, 1\r\n"), 400},
    {"NegativeLength", get(HOST + "Content-Length: -1\r\n"), 400},
    {"SignedLength", get(HOST + "Content-Length: +1\r\n"), 400},
    {"HexLength", get(HOST + "Content-Length: 0x1\r\n"), 400},
    {"EmptyLength", get(HOST + "Content-Length:\r\n"), 400},
    {"HugeLength", get(HOST + "Content-Length: 99999999999999999999\r\n"), 413},
    {"LengthThenChunked", get(HOST + "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n"), 400},
    {"ChunkedThenLength", get(HOST + "Transfer-Encoding: chunked\r\nContent-Length: 1\r\n"), 400},
    {"ChunkedTwice", get(HOST + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n"), 400},
    {"UnknownCoding", get(HOST + "Transfer-Encoding: gzip, chunked\r\n"), 400},
    {"Identity", get(HOST + "Transfer-Encoding: identity\r\n"), 400},
    {"ChunkedInHttp10", "GET / HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n", 400},
    {"FoldedLine", get(HOST + "X: a\r\n b\r\n"), 400},
    {"FoldedFirstField", get(" X: a\r\n" + HOST), 400},
    {"BlankBeforeColon", get(HOST + "X : a\r\n"), 400},
    {"NoColon", get(HOST + "nothing\r\n"), 400},
    {"EmptyName", get(HOST + ": a\r\n"), 400},
    {"NameWithControl", get(HOST + "X\x01: a\r\n"), 400},
    {"NulInValue", get(HOST + std::string("X: a\0b\r\n", 8)), 400},
    {"EndOfStreamInValue", get(HOST + "X: a\xff\r\nContent-Length: 1\r\n"), 400},
    {"BareCrInValue", get(HOST + "X: a\rb\r\n"), 400},
    {"BareLfAfterField", "GET / HTTP/1.1\r\nHost: a\n\r\n", 400},
    {"BareLfAfterRequest", "GET / HTTP/1.1\nHost: a\r\n\r\n", 400},
    {"BareLfOnly", "GET / HTTP/1.1\r\nHost: a\r\n\n", 400},
    {"NulInUrl", std::string("GET /\0 HTTP/1.1\r\n", 17) + HOST + "\r\n", 400},
    {"BlankInUrl", "GET /a b HTTP/1.1\r\nHost: a\r\n\r\n", 400},
    {"TwoBlanks", "GET  / HTTP/1.1\r\nHost: a\r\n\r\n", 400},
    {"UrlBeyondAscii", "GET /\xc3\xa9 HTTP/1.1\r\nHost: a\r\n\r\n", 400},
    {"UrlWithoutSlash", "GET a HTTP/1.1\r\nHost: a\r\n\r\n", 400},
    {"Authority", "CONNECT a:80 HTTP/1.1\r\nHost: a\r\n\r\n", 400},
    {"NoUrl", "GET HTTP/1.1\r\nHost: a\r\n\r\n", 400},
    {"NoVersion", "GET /\r\n\r\n", 400},
    {"OneWord", "GET\r\n\r\n", 400},
    {"MethodWithControl", "GE\x01T / HTTP/1.1\r\nHost: a\r\n\r\n", 400},
    {"LongMethod", std::string(33, 'G') + " / HTTP/1.1\r\nHost: a\r\n\r\n", 501},
    {"NextVersion", "GET / HTTP/2.0\r\nHost: a\r\n\r\n", 505},
    {"VersionInLowerCase", "GET / http/1.1\r\nHost: a\r\n\r\n", 400},
    {"NoHttp", std::string("\x16\x03\x01\x02\x00\x01", 6), 400},
    {"ExpectSomething", get(HOST + "Expect: cake\r\n"), 417},
    {"ManyFields", get(HOST + repeated("X: a\r\n", 100)), 431},
    {"LongName", get(HOST + std::string(257, 'x') + ": a\r\n"), 431},
    {"LongValue", get(HOST + "X: " + std::string(8200, 'x') + "\r\n"), 431},
    {"LongHead", get(HOST + repeated("X: " + std::string(1000, 'x') + "\r\n", 20)), 431},
    {"LongUrl", "GET /" + std::string(17000, 'x') + " HTTP/1.1\r\nHost: a\r\n\r\n", 431},
};

class RequestHeadTest: public testing::TestWithParam<Case>
{
protected:
    static void expectAsInTable(const RequestHeadParser& parser, State state)
    {
        const Case& c = GetParam();
        if (c.status != 0)
        {
            EXPECT_EQ(state, State::Refused);
            EXPECT_EQ(parser.status(), c.status) << parser.message();
            EXPECT_FALSE(parser.message().empty());
            return;
        }
        ASSERT_EQ(state, State::Complete) << parser.message();
        EXPECT_EQ(parser.head().length, c.text.size());
        EXPECT_EQ(parser.head().bodyLength, c.bodyLength);
        EXPECT_EQ(parser.head().chunked, c.chunked);
    }
};

} // namespace

TEST_P(RequestHeadTest, IsJudgedWhole)
{
    RequestHeadParser parser;
    expectAsInTable(parser, parser.parse(std::string_view(GetParam().text).substr(0, RequestHeadParser::MAX_HEAD)));
}

TEST_P(RequestHeadTest, IsJudgedTheSameByteByByte)
{
    RequestHeadParser parser;
    const std::string_view text(GetParam().text);
    State state = State::Incomplete;
    std::size_t count = 0;
    while (state == State::Incomplete && count < std::min(text.size(), RequestHeadParser::MAX_HEAD))
        state = parser.parse(text.substr(0, ++count));
    expectAsInTable(parser, state);
    if (state == State::Complete)
    {
        EXPECT_EQ(count, text.size()) << "it was complete before its last byte";
    }
}

INSTANTIATE_TEST_SUITE_P(Table, RequestHeadTest, testing::ValuesIn(CASES),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(RequestHeadParserTest, StopsAtTheEndOfTheHeadAndLeavesTheRest)
{
    RequestHeadParser parser;
    const std::string head = get(HOST + "Content-Length: 3\r\n");
    ASSERT_EQ(parser.parse(head + "abcGET / HTTP/1.1\r\n"), State::Complete);
    EXPECT_EQ(parser.head().length, head.size());
}

TEST(RequestHeadParserTest, RemembersThatTheClientWaitsForA100)
{
    RequestHeadParser parser;
    ASSERT_EQ(parser.parse(get(HOST + "Expect: 100-Continue\r\nContent-Length: 3\r\n")), State::Complete);
    EXPECT_TRUE(parser.head().expectsContinue);
}

TEST(RequestHeadParserTest, TakesAHeadOfExactlyTheLargestSize)
{
    std::string head = "GET / HTTP/1.1\r\nHost: a\r\n";
    while (head.size() + 1000 < RequestHeadParser::MAX_HEAD)
        head += "X: " + std::string(500, 'x') + "\r\n";
    head += "X: " + std::string(RequestHeadParser::MAX_HEAD - head.size() - 7, 'x') + "\r\n\r\n";
    ASSERT_EQ(head.size(), RequestHeadParser::MAX_HEAD);
    RequestHeadParser parser;
    EXPECT_EQ(parser.parse(head), State::Complete) << parser.message();
}
