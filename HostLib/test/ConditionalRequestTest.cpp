#include "ConditionalRequest.h"

#include <Poco/Net/HTTPRequest.h>

#include <gtest/gtest.h>

#include <set>

using Kesa::Host::ConditionalRequest;
typedef ConditionalRequest::Verdict Verdict;

namespace
{

ConditionalRequest conditions(const std::string& match, const std::string& noneMatch)
{
    Poco::Net::HTTPRequest request;
    if (!match.empty())
        request.add("If-Match", match);
    if (!noneMatch.empty())
        request.add("if-none-match", noneMatch);
    return ConditionalRequest(request);
}

constexpr bool THERE = true;
constexpr bool ABSENT = false;

} // namespace

TEST(ConditionalRequestTest, JudgesEveryConditionOnAStateThatIsThereAndOnNone)
{
    const struct
    {
        const char* match;
        const char* noneMatch;
        bool exists;
        Verdict read;
        Verdict write;
    } rows[] = {{"", "", THERE, Verdict::PROCEED, Verdict::PROCEED},
                {"", "", ABSENT, Verdict::PROCEED, Verdict::PROCEED},
                {"\"now\"", "", THERE, Verdict::PROCEED, Verdict::PROCEED},
                {"\"now\"", "", ABSENT, Verdict::FAILED, Verdict::FAILED},
                {"\"old\"", "", THERE, Verdict::FAILED, Verdict::FAILED},
                {"\"old\", \"now\"", "", THERE, Verdict::PROCEED, Verdict::PROCEED},
                {"\"o,ld\",\"now\"", "", THERE, Verdict::PROCEED, Verdict::PROCEED},
                {"W/\"now\"", "", THERE, Verdict::FAILED, Verdict::FAILED},
                {"now", "", THERE, Verdict::FAILED, Verdict::FAILED},
                {"\"now", "", THERE, Verdict::FAILED, Verdict::FAILED},
                {"*", "", THERE, Verdict::PROCEED, Verdict::PROCEED},
                {"*", "", ABSENT, Verdict::FAILED, Verdict::FAILED},
                {"", "\"now\"", THERE, Verdict::NOT_MODIFIED, Verdict::FAILED},
                {"", "W/\"now\"", THERE, Verdict::NOT_MODIFIED, Verdict::FAILED},
                {"", "\"old\", W/\"older\"", THERE, Verdict::PROCEED, Verdict::PROCEED},
                {"", "\"now\"", ABSENT, Verdict::PROCEED, Verdict::PROCEED},
                {"", "*", THERE, Verdict::NOT_MODIFIED, Verdict::FAILED},
                {"", "*", ABSENT, Verdict::PROCEED, Verdict::PROCEED},
                {"\"old\"", "\"now\"", THERE, Verdict::FAILED, Verdict::FAILED},
                {"\"now\"", "\"now\"", THERE, Verdict::NOT_MODIFIED, Verdict::FAILED}};
    for (const auto& row: rows)
    {
        const ConditionalRequest judged = conditions(row.match, row.noneMatch);
        const std::string etag = row.exists ? "\"now\"" : "";
        const std::string shown =
            std::string(row.match) + " / " + row.noneMatch + (row.exists ? " on a state" : " on none");
        EXPECT_EQ(judged.judgeRead(row.exists, etag), row.read) << shown;
        EXPECT_EQ(judged.judgeWrite(row.exists, etag), row.write) << shown;
        EXPECT_EQ(judged.isConditional(), *row.match != '\0' || *row.noneMatch != '\0') << shown;
    }
}

TEST(ConditionalRequestTest, ReadsAFieldThatStandsMoreThanOnce)
{
    Poco::Net::HTTPRequest request;
    request.add("If-Match", "\"old\"");
    request.add("If-Match", "\"now\"");
    EXPECT_EQ(ConditionalRequest(request).judgeWrite(THERE, "\"now\""), Verdict::PROCEED);
}

TEST(ConditionalRequestTest, AStateWithoutATagMatchesNoTag)
{
    EXPECT_EQ(conditions("\"\"", "").judgeWrite(THERE, ""), Verdict::FAILED);
    EXPECT_EQ(conditions("\"any\"", "").judgeWrite(THERE, ""), Verdict::FAILED);
    EXPECT_EQ(conditions("", "*").judgeWrite(THERE, ""), Verdict::FAILED);
}

TEST(ConditionalRequestTest, MakesOneTagOfOneTextAndAnotherOfAnother)
{
    std::set<std::string> tags;
    for (int i = 0; i < 1000; ++i)
        tags.insert(ConditionalRequest::tagOf("text " + std::to_string(i)));
    EXPECT_EQ(tags.size(), 1000u);
    EXPECT_EQ(ConditionalRequest::tagOf("text 1"), ConditionalRequest::tagOf("text 1"));
    EXPECT_EQ(tags.begin()->front(), '"');
    EXPECT_EQ(tags.begin()->back(), '"');
}
