#include "SortValue.h"

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

using Kesa::Host::SortValue;
using Poco::Dynamic::Var;

namespace
{

/// Values of a rising order; those in one row are equal.
const std::vector<std::vector<Var>> RISING = {
    {std::numeric_limits<Poco::Int64>::min()},
    {-1.5},
    {Var(0), Var(-0.0), Var(Poco::UInt64(0))},
    {9},
    {10, 10.0},
    {10.5},
    {std::numeric_limits<Poco::Int64>::max()},
    {static_cast<Poco::UInt64>(std::numeric_limits<Poco::Int64>::max()) + 1},
    {std::numeric_limits<Poco::UInt64>::max()},
    {1e300},
    {std::string()},
    {std::string("10")},
    {std::string("9")},
    {std::string("Z")},
    {std::string("a")},
    {std::string("false"), false},
    {std::string("\xc3\xa4")},
    {Poco::JSON::Object::Ptr(new Poco::JSON::Object), Poco::JSON::Array::Ptr(new Poco::JSON::Array)},
};
const std::vector<Var> MISSING = {Var(), std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity()};

bool isBefore(const Var& a, const Var& b, bool descending)
{
    return SortValue(a, descending) < SortValue(b, descending);
}

} // namespace

TEST(SortValueTest, OrdersNumbersByTheirSizeBeforeTextsAndTurnsThatRoundInAFallingOrder)
{
    for (std::size_t i = 0; i < RISING.size(); ++i)
        for (std::size_t j = 0; j < RISING.size(); ++j)
            for (const Var& a: RISING[i])
                for (const Var& b: RISING[j])
                {
                    EXPECT_EQ(isBefore(a, b, false), i < j) << i << " and " << j;
                    EXPECT_EQ(isBefore(a, b, true), j < i) << i << " and " << j;
                }
}

TEST(SortValueTest, PutsWhatIsMissingLastInBothOrders)
{
    for (const Var& missing: MISSING)
    {
        for (const auto& row: RISING)
            for (const bool descending: {false, true})
            {
                EXPECT_TRUE(isBefore(row.front(), missing, descending));
                EXPECT_FALSE(isBefore(missing, row.front(), descending));
            }
        for (const Var& other: MISSING)
            EXPECT_FALSE(isBefore(missing, other, true)) << "two that are missing keep their places";
    }
}
