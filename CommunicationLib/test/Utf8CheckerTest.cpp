#include "Utf8Checker.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using Kesa::Net::Utf8Checker;

/// The position of the byte at which the checker says no; npos when it takes all of them.
std::size_t refusedAt(const std::string& bytes)
{
    Utf8Checker checker;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        if (!checker.take(&bytes[i], 1))
            return i;
    return std::string::npos;
}

bool isValid(const std::string& bytes)
{
    Utf8Checker checker;
    const bool isTaken = checker.take(bytes.data(), bytes.size());
    EXPECT_EQ(isTaken, refusedAt(bytes) == std::string::npos) << "whole and byte by byte differ";
    return isTaken && checker.isWhole();
}

std::string encoded(unsigned int code)
{
    const auto byte = [](unsigned int value) { return static_cast<char>(value); };
    const auto next = [&](int shift) { return byte(0x80 | ((code >> shift) & 0x3F)); };
    if (code < 0x80)
        return {byte(code)};
    if (code < 0x800)
        return {byte(0xC0 | code >> 6), next(0)};
    if (code < 0x10000)
        return {byte(0xE0 | code >> 12), next(6), next(0)};
    return {byte(0xF0 | code >> 18), next(12), next(6), next(0)};
}

TEST(Utf8CheckerTest, TakesExactlyTheCodePointsOfUnicode)
{
    for (unsigned int code = 0; code < 0x200000; ++code)
    {
        const bool exists = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
        ASSERT_EQ(isValid(encoded(code)), exists) << code;
    }
}

TEST(Utf8CheckerTest, RefusesLongerFormsThanNeeded)
{
    for (const char* bytes:
         {"\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xF0\x80\x80\x80", "\xF0\x8F\xBF\xBF"})
        EXPECT_FALSE(isValid(bytes));
}

TEST(Utf8CheckerTest, RefusesBytesThatNeverStand)
{
    for (const char* bytes: {"\x80", "\xBF", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80", "\xFE", "\xFF"})
        EXPECT_EQ(refusedAt(bytes), 0u);
}

TEST(Utf8CheckerTest, RefusesAtTheFirstByteThatCannotBe)
{
    EXPECT_EQ(refusedAt("\xCE\xBA\xED\xA0\x80"), 3u);
    EXPECT_EQ(refusedAt("\xF4\x90\x80\x80"), 1u);
    EXPECT_EQ(refusedAt("\xE2\x28"), 1u);
    EXPECT_EQ(refusedAt("\xF0\x9F\x98x"), 3u);
}

TEST(Utf8CheckerTest, IsNotWholeInsideACharacter)
{
    const std::string smile = "\xF0\x9F\x98\x80";
    for (std::size_t size = 1; size < smile.size(); ++size)
        EXPECT_FALSE(isValid(smile.substr(0, size)));
    EXPECT_TRUE(isValid(smile));
    EXPECT_TRUE(isValid(""));
}

TEST(Utf8CheckerTest, FindsABadByteAnywhereInALongText)
{
    const std::string fine(100, 'x');
    EXPECT_TRUE(isValid(fine));
    for (std::size_t at = 0; at < fine.size(); ++at)
    {
        std::string bad = fine;
        bad[at] = '\xFF';
        EXPECT_FALSE(isValid(bad)) << at;
    }
}

} // namespace
