#include "RequestTarget.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

struct Case
{
    const char* requested;
    const char* url; ///< null: refused
    int status = 0;
};

const Case CASES[] = {
    {"/", "/"},
    {"/shop/orders/1", "/shop/orders/1"},
    {"/shop/orders/?$limit=2&a=b", "/shop/orders/?$limit=2&a=b"},
    {"http://example.org/shop", "/shop"},
    {"http://example.org", "/"},
    {"http://example.org?a=b", "/?a=b"},
    {"https://example.org:1/shop?u=http://x/y", "/shop?u=http://x/y"},
    {"//shop/orders", "/shop/orders"},
    {"/////", "/"},
    {"/shop/orders/a%20b", "/shop/orders/a%20b"},
    {"/shop/orders/..", "/shop/orders/.."},
    {"/shop?a=%2F%00", "/shop?a=%2F%00"},
    {"*", nullptr, 400},
    {"", nullptr, 400},
    {"/shop/orders/a%2Fb", nullptr, 400},
    {"/shop/orders/a%2fb", nullptr, 400},
    {"/shop/orders/a%00", nullptr, 400},
    {"/shop/orders/%zz", nullptr, 400},
    {"/shop/orders/%4", nullptr, 400},
    {"/shop/orders/1/2", nullptr, 404},
    {"/a/b/c/d/e/f", nullptr, 404},
};

} // namespace

TEST(RequestTargetTest, JudgesUrls)
{
    for (const Case& c: CASES)
    {
        const auto target = Kesa::Host::judgeTarget(c.requested);
        EXPECT_EQ(target.status, c.status) << c.requested;
        if (c.url)
            EXPECT_EQ(target.url, c.url) << c.requested;
        else
            EXPECT_FALSE(target.message.empty()) << c.requested;
    }
}
