#include "ErrorDocument.h"

#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::StartsWith;

TEST(ErrorDocumentTest, HoldsTypeStatusCodeAndMessage)
{
    EXPECT_EQ(Kesa::Host::errorDocument(404, "nothing \"here\""),
              R"({"code":404,"message":"nothing \"here\"","status":"error","type":"error"})");
}

TEST(ErrorDocumentTest, IsNeverWithoutAMessage)
{
    for (const int status: {400, 404, 426, 500, 599})
    {
        const auto document =
            Poco::JSON::Parser().parse(Kesa::Host::errorDocument(status, "")).extract<Poco::JSON::Object::Ptr>();
        EXPECT_FALSE(document->getValue<std::string>("message").empty()) << status;
    }
}

TEST(ErrorDocumentTest, MakesAWholeAnswer)
{
    const std::string answer = Kesa::Host::rawErrorAnswer(431, "too large");
    const std::string body = Kesa::Host::errorDocument(431, "too large");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 431 "));
    EXPECT_THAT(answer, HasSubstr("\r\nContent-Type: application/json\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nConnection: Close\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nContent-Length: " + std::to_string(body.size()) + "\r\n"));
    EXPECT_EQ(answer.substr(answer.find("\r\n\r\n") + 4), body);
}
