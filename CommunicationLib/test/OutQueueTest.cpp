#include "OutQueue.h"

#include "LimitsAndTimes.h"

#include <gtest/gtest.h>

#include <sys/uio.h>

namespace
{

using Kesa::Net::FrameHeader;
using Kesa::Net::OutQueue;

OutQueue::Text text(const std::string& content)
{
    return std::make_shared<const std::string>(content);
}

/// All that waits, as it would leave.
std::string waiting(const OutQueue& queue)
{
    iovec buffers[1000];
    std::string bytes;
    const int count = queue.gather(buffers, 1000, SIZE_MAX);
    for (int i = 0; i < count; ++i)
        bytes.append(static_cast<const char*>(buffers[i].iov_base), buffers[i].iov_len);
    EXPECT_EQ(bytes.size(), queue.bytes());
    return bytes;
}

std::string textFrame(const std::string& content)
{
    return "\x81" + std::string(1, char(content.size())) + content;
}

std::string header(std::size_t size)
{
    const FrameHeader made(FrameHeader::TEXT, size);
    return {made.bytes, made.size};
}

TEST(FrameHeaderTest, UsesTheShortestLength)
{
    EXPECT_EQ(header(0), std::string("\x81\x00", 2));
    EXPECT_EQ(header(125), std::string("\x81\x7D", 2));
    EXPECT_EQ(header(126), std::string("\x81\x7E\x00\x7E", 4));
    EXPECT_EQ(header(65535), std::string("\x81\x7E\xFF\xFF", 4));
    EXPECT_EQ(header(65536), std::string("\x81\x7F\x00\x00\x00\x00\x00\x01\x00\x00", 10));
}

TEST(OutQueueTest, SendsInOrder)
{
    OutQueue queue;
    EXPECT_TRUE(queue.empty());
    EXPECT_TRUE(queue.pushText(text("one"), 0));
    queue.pushPong("p");
    queue.pushPing();
    EXPECT_TRUE(queue.pushText(text("two"), 0));
    queue.pushClose(1001, "bye");
    EXPECT_EQ(waiting(queue), textFrame("one") + "\x8A\x01p" + std::string("\x89\x00", 2) + textFrame("two") +
                                  "\x88\x05\x03\xE9" + "bye");
}

TEST(OutQueueTest, SharesTheTexts)
{
    OutQueue first, second;
    const OutQueue::Text shared = text("shared by many");
    first.pushText(shared, 1);
    second.pushText(shared, 2);
    EXPECT_EQ(shared.use_count(), 3);
    first.pop(first.bytes());
    second.clear();
    EXPECT_EQ(shared.use_count(), 1);
}

TEST(OutQueueTest, ForgetsWhatHasLeftByteByByte)
{
    OutQueue queue;
    queue.pushText(text("one"), 0);
    queue.pushText(text(""), 0);
    queue.pushText(text("two"), 0);
    std::string left = waiting(queue);
    while (!left.empty())
    {
        queue.pop(1);
        left.erase(0, 1);
        EXPECT_EQ(waiting(queue), left);
    }
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.bytes(), 0u);
}

TEST(OutQueueTest, ForgetsSeveralFramesAtOnce)
{
    OutQueue queue;
    queue.pushText(text("one"), 1);
    queue.pushPong("");
    queue.pushText(text("two"), 2);
    queue.pop(5 + 2 + 1);
    EXPECT_EQ(waiting(queue), textFrame("two").substr(1));
}

TEST(OutQueueTest, ReplacesTheWaitingTextOfANumberInItsPlace)
{
    OutQueue queue;
    queue.pushText(text("ack"), 0);
    queue.pushText(text("old state"), 7);
    queue.pushText(text("other"), 8);
    queue.pushText(text("new"), 7);
    EXPECT_EQ(waiting(queue), textFrame("ack") + textFrame("new") + textFrame("other"));
    queue.pushText(text("a much longer newest state"), 7);
    EXPECT_EQ(waiting(queue), textFrame("ack") + textFrame("a much longer newest state") + textFrame("other"));
}

TEST(OutQueueTest, NeverReplacesNumberZero)
{
    OutQueue queue;
    queue.pushText(text("a"), 0);
    queue.pushText(text("b"), 0);
    EXPECT_EQ(waiting(queue), textFrame("a") + textFrame("b"));
}

TEST(OutQueueTest, NeverReplacesAFrameOfWhichAByteHasLeft)
{
    OutQueue queue;
    queue.pushText(text("first"), 7);
    queue.pop(1);
    queue.pushText(text("second"), 7);
    queue.pushText(text("third"), 7);
    EXPECT_EQ(waiting(queue), textFrame("first").substr(1) + textFrame("third"));
    queue.pop(6);
    queue.pushText(text("fourth"), 7);
    EXPECT_EQ(waiting(queue), textFrame("fourth"));
}

TEST(OutQueueTest, TakesTheRestOfAFrameThatHasLeftInPart)
{
    OutQueue queue;
    queue.pushText(text("first"), 7, 3);
    EXPECT_EQ(waiting(queue), "irst");
    queue.pushText(text("second"), 7);
    EXPECT_EQ(waiting(queue), "irst" + textFrame("second"));
}

TEST(OutQueueTest, ANumberIsNewAgainAfterItsTextHasLeft)
{
    OutQueue queue;
    queue.pushText(text("first"), 7);
    queue.pop(queue.bytes());
    queue.pushText(text("other"), 8);
    queue.pushText(text("second"), 7);
    EXPECT_EQ(waiting(queue), textFrame("other") + textFrame("second"));
}

TEST(OutQueueTest, OnlyTheNewestPongWaits)
{
    OutQueue queue;
    queue.pushText(text("x"), 0);
    for (int i = 0; i < 1000; ++i)
        queue.pushPong(std::to_string(i));
    EXPECT_EQ(waiting(queue), textFrame("x") + "\x8A\x03" + "999");
}

TEST(OutQueueTest, APongOfWhichAByteHasLeftIsFollowedByTheNewest)
{
    OutQueue queue;
    queue.pushPong("1");
    queue.pop(1);
    queue.pushPong("2");
    queue.pushPong("3");
    EXPECT_EQ(waiting(queue), "\x01"
                              "1\x8A\x01"
                              "3");
    queue.pop(queue.bytes());
    queue.pushPong("4");
    EXPECT_EQ(waiting(queue), "\x8A\x01"
                              "4");
}

TEST(OutQueueTest, RefusesWhatWouldBreakTheBound)
{
    OutQueue queue;
    const OutQueue::Text big = text(std::string(1024 * 1024, 'x'));
    int taken = 0;
    while (queue.pushText(big, 0))
        ++taken;
    EXPECT_EQ(taken, 3);
    const std::size_t before = queue.bytes();
    EXPECT_FALSE(queue.pushText(big, 1));
    EXPECT_EQ(queue.bytes(), before);
    EXPECT_TRUE(queue.pushText(text("small"), 0));
}

TEST(OutQueueTest, TakesAnythingWhenEmpty)
{
    OutQueue queue;
    const OutQueue::Text huge = text(std::string(2 * Kesa::Net::MAX_WAITING, 'x'));
    EXPECT_TRUE(queue.pushText(huge, 5));
    EXPECT_TRUE(queue.pushText(huge, 5)) << "it takes the place of the only one";
    EXPECT_FALSE(queue.pushText(text("x"), 0));
}

TEST(OutQueueTest, ManyTinyTextsStayWithinTheBoundToo)
{
    OutQueue queue;
    std::size_t taken = 0;
    while (queue.pushText(text(""), 0))
        ++taken;
    EXPECT_LT(taken, Kesa::Net::MAX_WAITING / Kesa::Net::FRAME_COST);
}

TEST(OutQueueTest, EndlessReplacementsDoNotGrow)
{
    OutQueue queue;
    queue.pushText(text("ack"), 0);
    for (Poco::UInt64 i = 0; i < 100000; ++i)
        ASSERT_TRUE(queue.pushText(text(std::string(1000, 'x')), 1 + i % 10));
    EXPECT_EQ(queue.bytes(), 5u + 10 * 1004);
}

TEST(OutQueueTest, GathersNoMoreThanAsked)
{
    OutQueue queue;
    for (int i = 0; i < 10; ++i)
        queue.pushText(text(std::string(100, 'x')), 0);
    iovec buffers[8];
    EXPECT_EQ(queue.gather(buffers, 8, SIZE_MAX), 8);
    EXPECT_EQ(queue.gather(buffers, 8, 150), 4);
    EXPECT_EQ(queue.gather(buffers, 8, 1), 2);
}

TEST(OutQueueTest, ACloseFrameKeepsToItsLimits)
{
    OutQueue queue;
    queue.pushClose(Kesa::Net::CLOSE_NO_CODE, "never sent");
    EXPECT_EQ(waiting(queue), std::string("\x88\x00", 2));
    queue.clear();
    queue.pushClose(1002, std::string(200, 'x'));
    EXPECT_EQ(waiting(queue), "\x88\x7D\x03\xEA" + std::string(123, 'x'));
}

} // namespace
