#include "FrameReader.h"

#include "LimitsAndTimes.h"

#include <WebsocketPeer.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace
{

using Kesa::Net::FrameReader;

enum Opcode
{
    CONTINUATION = 0x0,
    TEXT = 0x1,
    BINARY = 0x2,
    CLOSE = 0x8,
    PING = 0x9,
    PONG = 0xA
};

std::string frame(int opcode, const std::string& payload, bool isFinal = true)
{
    return Kesa::Test::WebsocketPeer::frame(opcode, payload, isFinal);
}

/// The frame with these bits set in its first byte.
std::string reserved(int bits, std::string bytes)
{
    bytes[0] = static_cast<char>(bytes[0] | bits << 4);
    return bytes;
}

/// The start of a text frame with its length written in 2 or 8 bytes, whatever it is.
std::string longHeader(int lengthBytes, unsigned long long length, int opcode = TEXT)
{
    std::string bytes = {static_cast<char>(0x80 | opcode), static_cast<char>(lengthBytes == 2 ? 0xFE : 0xFF)};
    for (int shift = 8 * (lengthBytes - 1); shift >= 0; shift -= 8)
        bytes += static_cast<char>(length >> shift);
    return bytes + std::string(4, '\0');
}

std::string closeFrame(int code, const std::string& reason = "")
{
    return frame(CLOSE, std::string{static_cast<char>(code >> 8), static_cast<char>(code)} + reason);
}

/// Writes down what is reported, long texts by their size.
class Transcript: public FrameReader::Sink
{
public:
    void onMessage(std::string&& text) override { add("text ", text); }
    void onPing(std::string&& payload) override { add("ping ", payload); }
    void onClose(unsigned short code) override { add("close ", std::to_string(code)); }
    void onFailure(unsigned short code, const char* why) override
    {
        add("failure ", std::to_string(code));
        EXPECT_STRNE(why, "");
    }

    std::vector<std::string> lines;

private:
    void add(const std::string& kind, const std::string& what)
    {
        lines.push_back(kind + (what.size() <= 32 ? what : std::to_string(what.size()) + " bytes"));
    }
};

typedef std::vector<std::string> Lines;

struct Case
{
    std::string name;
    std::string input;
    Lines expected;
};

std::ostream& operator<<(std::ostream& out, const Case& tested)
{
    return out << tested.name;
}

std::string times(std::size_t count, const std::string& what)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
        all += what;
    return all;
}

const std::string FINE = frame(TEXT, "fine");
const std::size_t MAX = Kesa::Net::MAX_MESSAGE;

const Case CASES[] = {
    {"Nothing", "", {}},
    {"Text", frame(TEXT, "Hello"), {"text Hello"}},
    {"EmptyText", frame(TEXT, ""), {"text "}},
    {"Text125", frame(TEXT, std::string(125, 'x')), {"text 125 bytes"}},
    {"Text126", frame(TEXT, std::string(126, 'x')), {"text 126 bytes"}},
    {"Text65535", frame(TEXT, std::string(65535, 'x')), {"text 65535 bytes"}},
    {"Text65536", frame(TEXT, std::string(65536, 'x')), {"text 65536 bytes"}},
    {"Several", FINE + frame(TEXT, "2") + frame(TEXT, ""), {"text fine", "text 2", "text "}},
    {"Incomplete", FINE.substr(0, FINE.size() - 1), {}},

    {"Fragments", frame(TEXT, "a", false) + frame(CONTINUATION, "b", false) + frame(CONTINUATION, "c"), {"text abc"}},
    {"EmptyFragments", frame(TEXT, "", false) + frame(CONTINUATION, "", false) + frame(CONTINUATION, ""), {"text "}},
    {"ManyFragments",
     frame(TEXT, "", false) + times(500, frame(CONTINUATION, "x", false)) + frame(CONTINUATION, ""),
     {"text 500 bytes"}},
    {"ControlBetweenFragments",
     frame(TEXT, "a", false) + frame(PING, "1") + frame(PONG, "2") + frame(CONTINUATION, "b") + FINE,
     {"ping 1", "text ab", "text fine"}},
    {"CloseBetweenFragments", frame(TEXT, "a", false) + closeFrame(1000) + frame(CONTINUATION, "b"), {"close 1000"}},
    {"ContinuationOfNothing", frame(CONTINUATION, "a"), {"failure 1002"}},
    {"UnfinishedContinuationOfNothing", frame(CONTINUATION, "a", false) + FINE, {"failure 1002"}},
    {"ContinuationAfterTheEnd",
     frame(TEXT, "a", false) + frame(CONTINUATION, "b") + frame(CONTINUATION, "c") + FINE,
     {"text ab", "failure 1002"}},
    {"TextInsideAMessage", frame(TEXT, "a", false) + frame(TEXT, "b"), {"failure 1002"}},
    {"BinaryInsideAMessage", frame(TEXT, "a", false) + frame(BINARY, "b"), {"failure 1002"}},

    {"Ping", frame(PING, "are you there"), {"ping are you there"}},
    {"EmptyPing", frame(PING, ""), {"ping "}},
    {"Ping125", frame(PING, std::string(125, 'x')), {"ping 125 bytes"}},
    {"PingWithAnyBytes", frame(PING, std::string("\0\xff\xfe", 3)), {std::string("ping \0\xff\xfe", 8)}},
    {"Ping126", frame(PING, std::string(126, 'x')), {"failure 1002"}},
    {"PingFragment", frame(PING, "a", false) + frame(CONTINUATION, "b"), {"failure 1002"}},
    {"Pongs", frame(PONG, "") + frame(PONG, "unasked") + FINE, {"text fine"}},
    {"PongFragment", frame(PONG, "a", false), {"failure 1002"}},
    {"Pong126", frame(PONG, std::string(126, 'x')), {"failure 1002"}},

    {"ReservedBit1", FINE + reserved(1, FINE) + FINE, {"text fine", "failure 1002"}},
    {"ReservedBit2", FINE + reserved(2, FINE), {"text fine", "failure 1002"}},
    {"ReservedBit3", reserved(4, FINE), {"failure 1002"}},
    {"ReservedBitsOfPing", reserved(7, frame(PING, "")), {"failure 1002"}},
    {"ReservedBitOfContinuation", frame(TEXT, "a", false) + reserved(4, frame(CONTINUATION, "b")), {"failure 1002"}},
    {"ReservedBitOfClose", reserved(6, closeFrame(1000)), {"failure 1002"}},
    {"Unmasked", Kesa::Test::WebsocketPeer::frame(TEXT, "naked", true, false), {"failure 1002"}},
    {"UnmaskedEmpty", Kesa::Test::WebsocketPeer::frame(TEXT, "", true, false), {"failure 1002"}},
    {"UnmaskedPing", Kesa::Test::WebsocketPeer::frame(PING, "", true, false), {"failure 1002"}},
    {"LengthOf125InTwoBytes", longHeader(2, 125) + std::string(125, 'x'), {"failure 1002"}},
    {"LengthOf0InTwoBytes", longHeader(2, 0), {"failure 1002"}},
    {"LengthOf65535InEightBytes", longHeader(8, 65535) + std::string(65535, 'x'), {"failure 1002"}},
    {"LengthOf1InEightBytes", longHeader(8, 1) + "x", {"failure 1002"}},
    {"LengthWithTheTopBit", longHeader(8, 0x8000000000000001ULL) + "x", {"failure 1002"}},

    {"Close", closeFrame(1000), {"close 1000"}},
    {"CloseWithReason", closeFrame(1001, "off I go"), {"close 1001"}},
    {"CloseWithLongestReason", closeFrame(1000, std::string(123, 'x')), {"close 1000"}},
    {"CloseWithoutCode", frame(CLOSE, ""), {"close 1005"}},
    {"CloseWithOneByte", frame(CLOSE, "x"), {"failure 1002"}},
    {"CloseWithTooLongReason", closeFrame(1000, std::string(124, 'x')), {"failure 1002"}},
    {"CloseWithBadText",
     closeFrame(1000, "\xCE\xBA\xE1\xBD\xB9\xCF\x83\xCE\xBC\xCE\xB5\xED\xA0\x80"),
     {"failure 1007"}},
    {"CloseWithCutText", closeFrame(1000, "\xCE"), {"failure 1007"}},
    {"CloseWithOverlongText", closeFrame(1000, "a\xC0\x80"), {"failure 1007"}},
    {"CloseWithGoodText", closeFrame(1000, "\xE2\x82\xAC \xF0\x9F\x98\x80"), {"close 1000"}},
    {"CloseFragment", frame(CLOSE, "", false), {"failure 1002"}},
    {"NothingAfterClose",
     FINE + closeFrame(3000) + FINE + frame(PING, "") + closeFrame(1000),
     {"text fine", "close 3000"}},

    {"Binary", frame(BINARY, "a"), {"failure 1003"}},
    {"EmptyBinary", frame(BINARY, ""), {"failure 1003"}},
    {"BinaryFragment", FINE + frame(BINARY, "a", false) + frame(CONTINUATION, "b"), {"text fine", "failure 1003"}},
    {"BinaryAtItsFirstByte", longHeader(2, 60000, BINARY) + "x", {"failure 1003"}},

    {"Utf8",
     frame(TEXT, "Hell\xC3\xB6 \xE2\x82\xAC \xF0\x9F\x98\x80"),
     {"text Hell\xC3\xB6 \xE2\x82\xAC \xF0\x9F\x98\x80"}},
    {"Utf8OverFragments",
     frame(TEXT, "\xF0\x9F", false) + frame(PING, "\xFF") + frame(CONTINUATION, "\x98", false) +
         frame(CONTINUATION, "\x80"),
     {"ping \xFF", "text \xF0\x9F\x98\x80"}},
    {"Utf8BadByte", frame(TEXT, "a\xFF"), {"failure 1007"}},
    {"Utf8Cut", frame(TEXT, "\xF0\x9F\x98"), {"failure 1007"}},
    {"Utf8CutOverFragments", frame(TEXT, "\xF0\x9F", false) + frame(CONTINUATION, "\x98"), {"failure 1007"}},
    {"Utf8Overlong", frame(TEXT, "\xC0\x80"), {"failure 1007"}},
    {"Utf8Surrogate", frame(TEXT, "\xED\xA0\x80"), {"failure 1007"}},
    {"Utf8TooHigh", frame(TEXT, "\xF4\x90\x80\x80"), {"failure 1007"}},
    {"Utf8BadInUnfinishedFrame", longHeader(2, 1000) + "abc\xFF", {"failure 1007"}},
    {"Utf8BadInUnfinishedMessage", frame(TEXT, "\xCE\xBA\xED\xA0\x80", false), {"failure 1007"}},
    {"Utf8MessageBeforeBadOne", FINE + frame(TEXT, "\xFF"), {"text fine", "failure 1007"}},

    {"LargestMessage", frame(TEXT, std::string(MAX, 'x')), {"text 1048576 bytes"}},
    {"TooLargeAtItsFirstByte", longHeader(8, MAX + 1) + "x", {"failure 1009"}},
    {"LargestMessageInFragments",
     frame(TEXT, std::string(MAX - 1, 'x'), false) + frame(PING, std::string(125, 'x')) + frame(CONTINUATION, "x") +
         FINE,
     {"ping 125 bytes", "text 1048576 bytes", "text fine"}},
    {"TooLargeInFragments", frame(TEXT, std::string(MAX, 'x'), false) + frame(CONTINUATION, "x"), {"failure 1009"}},
    {"HugeFrame", longHeader(8, 0x7FFFFFFFFFFFFFFFULL) + "x", {"failure 1009"}},
    {"HugeFragment",
     frame(TEXT, "a", false) + longHeader(8, 0x7FFFFFFFFFFFFFFFULL, CONTINUATION) + "x",
     {"failure 1009"}},
    {"EndlessEmptyFragments", frame(TEXT, "", false) + times(5000, frame(CONTINUATION, "", false)), {}},
};

class FrameReaderTest: public testing::TestWithParam<Case>
{
};

TEST_P(FrameReaderTest, ReadsAllAtOnce)
{
    Transcript transcript;
    FrameReader reader;
    reader.feed(GetParam().input.data(), GetParam().input.size(), transcript);
    EXPECT_EQ(transcript.lines, GetParam().expected);
}

TEST_P(FrameReaderTest, ReadsByteByByte)
{
    Transcript transcript;
    FrameReader reader;
    for (const char byte: GetParam().input)
        reader.feed(&byte, 1, transcript);
    EXPECT_EQ(transcript.lines, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Framing, FrameReaderTest, testing::ValuesIn(CASES),
                         [](const auto& parameter) { return parameter.param.name; });

class ReservedOpcodes: public testing::TestWithParam<int>
{
};

TEST_P(ReservedOpcodes, AreRefusedAfterWhatCameBefore)
{
    for (const char* payload: {"", "x"})
    {
        Transcript transcript;
        FrameReader reader;
        const std::string input = FINE + frame(GetParam(), payload) + frame(PING, "");
        reader.feed(input.data(), input.size(), transcript);
        EXPECT_EQ(transcript.lines, (Lines{"text fine", "failure 1002"}));
    }
}

INSTANTIATE_TEST_SUITE_P(All, ReservedOpcodes, testing::Values(3, 4, 5, 6, 7, 11, 12, 13, 14, 15));

Lines closedWith(int code)
{
    Transcript transcript;
    FrameReader reader;
    const std::string input = closeFrame(code);
    reader.feed(input.data(), input.size(), transcript);
    return transcript.lines;
}

TEST(CloseCodes, ThatMayBeSentAreEchoed)
{
    for (const int code:
         {1000, 1001, 1002, 1003, 1007, 1008, 1009, 1010, 1011, 1012, 1013, 1014, 3000, 3999, 4000, 4999})
        EXPECT_EQ(closedWith(code), Lines{"close " + std::to_string(code)});
}

TEST(CloseCodes, ThatMayNotBeSentAreAViolation)
{
    for (const int code: {0, 999, 1004, 1005, 1006, 1015, 1016, 1100, 2000, 2999, 5000, 65535})
        EXPECT_EQ(closedWith(code), Lines{"failure 1002"}) << code;
}

TEST(FrameReaderPosition, IsInsideFromTheFirstByteToTheLast)
{
    const std::string input = frame(TEXT, "a", false) + frame(PING, "") + frame(CONTINUATION, std::string(300, 'x'));
    Transcript transcript;
    FrameReader reader;
    EXPECT_FALSE(reader.isInside());
    for (std::size_t i = 0; i < input.size(); ++i)
    {
        reader.feed(&input[i], 1, transcript);
        EXPECT_EQ(reader.isInside(), i + 1 < input.size()) << i;
    }
    EXPECT_EQ(transcript.lines.size(), 2u);
}

TEST(FrameReaderPosition, IsInsideWhenAHeaderFollowsAFrame)
{
    Transcript transcript;
    FrameReader reader;
    const std::string input = FINE + frame(PING, "") + FINE + "\x81";
    reader.feed(input.data(), input.size() - 1, transcript);
    EXPECT_FALSE(reader.isInside());
    reader.feed(&input.back(), 1, transcript);
    EXPECT_TRUE(reader.isInside());
}

} // namespace
