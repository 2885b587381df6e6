#include "ChunkedBody.h"

#include <gtest/gtest.h>

using Kesa::Registry::ChunkedBody;
using State = ChunkedBody::State;

namespace
{

constexpr std::size_t LIMIT = 20;

struct Case
{
    const char* what;
    std::string bytes;
    State state;
    std::string body; ///< if it is whole
};

const Case CASES[] = {
    {"no chunk", "0\r\n\r\n", State::Whole, ""},
    {"one chunk", "5\r\nhello\r\n0\r\n\r\n", State::Whole, "hello"},
    {"two chunks", "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n", State::Whole, "hello world"},
    {"lines in a chunk", "4\r\n\r\n\r\n\r\n0\r\n\r\n", State::Whole, "\r\n\r\n"},
    {"hexadecimal sizes", "A\r\n0123456789\r\na\r\n0123456789\r\n0\r\n\r\n", State::Whole, "01234567890123456789"},
    {"zeros before the size", "0005\r\nhello\r\n000\r\n\r\n", State::Whole, "hello"},
    {"an extension", "5;a=b\r\nhello\r\n0;x\r\n\r\n", State::Whole, "hello"},
    {"trailers", "5\r\nhello\r\n0\r\nA: b\r\nC: d\r\n\r\n", State::Whole, "hello"},
    {"something behind it", "0\r\n\r\nGET / HTTP/1.1", State::Whole, ""},
    {"nothing", "", State::Incomplete, ""},
    {"no last chunk", "5\r\nhello\r\n", State::Incomplete, ""},
    {"half a chunk", "5\r\nhel", State::Incomplete, ""},
    {"no end of the trailers", "5\r\nhello\r\n0\r\n", State::Incomplete, ""},
    {"no size", "\r\nhello", State::Malformed, ""},
    {"no number", "x\r\n", State::Malformed, ""},
    {"a negative size", "-1\r\n", State::Malformed, ""},
    {"a prefixed size", "0x5\r\nhello\r\n0\r\n\r\n", State::Malformed, ""},
    {"a blank before the size", " 5\r\nhello\r\n0\r\n\r\n", State::Malformed, ""},
    {"a bare line feed", "5\nhello\r\n0\r\n\r\n", State::Malformed, ""},
    {"a chunk longer than its size", "4\r\nhello\r\n0\r\n\r\n", State::Malformed, ""},
    {"a chunk shorter than its size", "6\r\nhello\r\n0\r\n\r\n", State::Malformed, ""},
    {"a long size line", std::string(ChunkedBody::MAX_LINE + 2, '0'), State::Malformed, ""},
    {"one byte too many", "15\r\n", State::TooLarge, ""},
    {"too many in two chunks", "14\r\n01234567890123456789\r\n1\r\n", State::TooLarge, ""},
    {"a size beyond 64 bits", "10000000000000000\r\n", State::TooLarge, ""},
    {"the largest size", "ffffffffffffffff\r\n", State::TooLarge, ""},
};

class ChunkedBodyTest: public testing::TestWithParam<Case>
{
};

} // namespace

TEST_P(ChunkedBodyTest, IsReadWhole)
{
    ChunkedBody body(LIMIT);
    EXPECT_EQ(body.read(GetParam().bytes), GetParam().state) << GetParam().what;
    if (GetParam().state == State::Whole)
    {
        EXPECT_EQ(body.body(), GetParam().body);
    }
}

TEST_P(ChunkedBodyTest, IsReadByteByByte)
{
    ChunkedBody body(LIMIT);
    State state = State::Incomplete;
    for (const char byte: GetParam().bytes)
        state = body.read(std::string_view(&byte, 1));
    EXPECT_EQ(state, GetParam().state) << GetParam().what;
    if (GetParam().state == State::Whole)
    {
        EXPECT_EQ(body.body(), GetParam().body);
    }
}

INSTANTIATE_TEST_SUITE_P(Bodies, ChunkedBodyTest, testing::ValuesIn(CASES));

TEST(ChunkedBodyBoundsTest, EndlessTrailersAreMalformed)
{
    ChunkedBody body(LIMIT);
    State state = body.read("0\r\n");
    for (std::size_t i = 0; i <= ChunkedBody::MAX_TRAILERS; ++i)
        state = body.read("A: b\r\n");
    EXPECT_EQ(state, State::Malformed);
}
