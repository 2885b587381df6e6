#include <Command/HttpRequest.h>

#include <gtest/gtest.h>

#include <sstream>

using Kesa::Command::HttpRequest;

namespace
{

TEST(HttpRequestTest, MethodsHaveTheirValuesAndNames)
{
    const char* const names[] = {"UNSUPPORTED", "GET", "HEAD", "POST", "PUT", "DELETE", "UNKNOWN type"};
    for (int value = 0; value < 7; ++value)
    {
        std::ostringstream out;
        out << static_cast<HttpRequest::RequestType>(value);
        EXPECT_EQ(out.str(), names[value]);
    }
    std::ostringstream out;
    out << static_cast<HttpRequest::RequestType>(-1);
    EXPECT_EQ(out.str(), "UNKNOWN type");
    EXPECT_EQ(static_cast<int>(HttpRequest::DELETE), 5);
}

TEST(HttpRequestTest, HoldsMethodUrlCriteriaAndBody)
{
    const Poco::JSON::Object::Ptr body = new Poco::JSON::Object;
    const HttpRequest request(HttpRequest::DELETE, Poco::URI("/s/r/e?$fields=a"), body);
    EXPECT_EQ(request.getType(), HttpRequest::DELETE);
    EXPECT_EQ(request.asJson(), body);
    EXPECT_TRUE(request.hasFieldsCriteria());
    EXPECT_EQ(request.getUrlPath().getElement(), "e");
}

TEST(HttpRequestTest, BodyMayBeAbsent)
{
    const HttpRequest request(HttpRequest::GET, Poco::URI("/s"));
    EXPECT_TRUE(request.asJson().isNull());
    const HttpRequest copy(request);
    EXPECT_EQ(copy.getType(), HttpRequest::GET);
    EXPECT_TRUE(copy.asJson().isNull());
}

} // namespace
