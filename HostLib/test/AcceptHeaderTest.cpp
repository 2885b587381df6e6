#include "AcceptHeader.h"

#include <Poco/Net/HTTPRequest.h>

#include <gtest/gtest.h>

using Kesa::Host::acceptsJson;

namespace
{

bool accepts(const std::string& value)
{
    Poco::Net::HTTPRequest request;
    request.set("Accept", value);
    return acceptsJson(request);
}

} // namespace

TEST(AcceptHeaderTest, TakesEveryRangeThatHoldsJson)
{
    for (const char* value:
         {"*/*", "application/json", "application/*", "Application/JSON", "text/html, application/json",
          "text/html,*/*;q=0.1", "application/json;q=0.5", "application/json; charset=utf-8", "text/html;q=0, */*",
          "application/vnd.kesa.v1.2.3+json", "APPLICATION/VND.KESA.V1.2.3+JSON",
          "text/html, application/vnd.kesa.v1.2.3+json;q=0.3", "application/*;q=0, application/json",
          "*/*;q=0, application/vnd.kesa.v10.20.30+json"})
        EXPECT_TRUE(accepts(value)) << value;
    EXPECT_TRUE(acceptsJson(Poco::Net::HTTPRequest()));
}

TEST(AcceptHeaderTest, RefusesWhatHoldsNoJson)
{
    for (const char* value: {"text/html", "text/*", "application/xml", "application/json;q=0", "*/*;q=0", "*/*;q=0.000",
                             "application/json;q=0, */*", "application/json; q=0.0, application/*", "", "json", "*",
                             "application/vnd.kesa.v1.2.3+xml", "application/vnd.kesa.v1.2.3+json;q=0",
                             "application/vnd.other.v1.2.3+json", "application/jsonx", "application/vnd.kesa.v+json"})
        EXPECT_FALSE(accepts(value)) << value;
}

TEST(AcceptHeaderTest, ReadsAFieldThatStandsMoreThanOnce)
{
    Poco::Net::HTTPRequest request;
    request.add("Accept", "text/html");
    request.add("accept", "application/json");
    EXPECT_TRUE(acceptsJson(request));
}
