#include <DataAccess/QueryResponse.h>

#include <gtest/gtest.h>

#include <type_traits>

using Kesa::Command::QueryResponse;
using Kesa::Command::QueryResult;
using Kesa::Command::ResponseObject;
using Poco::Net::HTTPResponse;

namespace
{

const auto UNKNOWN_RESULT = static_cast<QueryResult>(99);

template <class Exception, class Action>
std::string messageOf(Action action)
{
    try
    {
        action();
    }
    catch (const Exception& exception)
    {
        return exception.message();
    }
    return "no exception";
}

std::string messageIn(const QueryResponse& response)
{
    return response.getResponseObject()->getObject()->getValue<std::string>("message");
}

Poco::Dynamic::Var text(const char* content)
{
    return std::string(content);
}

struct Outcome
{
    QueryResult result;
    int status;
    std::string text;
};

class QueryResponseOutcomeTest: public testing::TestWithParam<Outcome>
{
};

TEST_P(QueryResponseOutcomeTest, StandsForAnHttpStatus)
{
    EXPECT_EQ(QueryResponse::convertResultToHttpStatus(GetParam().result), GetParam().status);
    EXPECT_EQ(QueryResponse(QueryResponse::TEXT, text("x"), GetParam().result).getHttpStatus(), GetParam().status);
}

TEST_P(QueryResponseOutcomeTest, GivesAnErrorDocumentWithTheTextOfTheOutcome)
{
    const QueryResponse response(GetParam().result, "");
    EXPECT_EQ(response.getType(), QueryResponse::RESPONSE_OBJ);
    EXPECT_EQ(response.getOperationResult(), GetParam().result);
    EXPECT_EQ(response.getHttpStatus(), GetParam().status);
    const Poco::JSON::Object::Ptr document = response.getResponseObject()->getObject();
    EXPECT_EQ(document->getValue<std::string>("status"), "error");
    EXPECT_EQ(document->getValue<int>("code"), GetParam().status);
    EXPECT_EQ(document->getValue<std::string>("message"), GetParam().text);
}

TEST_P(QueryResponseOutcomeTest, KeepsAMessageOfTheCaller)
{
    const QueryResponse response(GetParam().result, "the cellar is locked");
    EXPECT_EQ(messageIn(response), "the cellar is locked");
    EXPECT_EQ(response.getResponseObject()->getObject()->getValue<int>("code"), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(Failures, QueryResponseOutcomeTest,
                         testing::Values(Outcome{QueryResult::NOT_FOUND, 404, "not_found"},
                                         Outcome{QueryResult::INVALID_REQUEST, 400, "invalid_request"},
                                         Outcome{QueryResult::PROCESSING_ERROR, 500, "processing_error"},
                                         Outcome{QueryResult::FORBIDDEN, 403, "forbidden"}),
                         [](const auto& row) { return row.param.text; });

TEST(QueryResponseTest, OutcomesAndKindsHaveFixedNumbers)
{
    EXPECT_EQ(static_cast<int>(QueryResult::OK), 0);
    EXPECT_EQ(static_cast<int>(QueryResult::NOT_FOUND), 1);
    EXPECT_EQ(static_cast<int>(QueryResult::INVALID_REQUEST), 2);
    EXPECT_EQ(static_cast<int>(QueryResult::PROCESSING_ERROR), 3);
    EXPECT_EQ(static_cast<int>(QueryResult::FORBIDDEN), 4);
    EXPECT_EQ(QueryResponse::TEXT, 0);
    EXPECT_EQ(QueryResponse::JSON_OBJ, 1);
    EXPECT_EQ(QueryResponse::JSON_ARRAY, 2);
    EXPECT_EQ(QueryResponse::RESPONSE_OBJ, 3);
}

TEST(QueryResponseTest, HasNoVirtualOperationsAndIsCopied)
{
    static_assert(!std::is_polymorphic_v<QueryResponse>);
    static_assert(std::is_copy_constructible_v<QueryResponse> && std::is_copy_assignable_v<QueryResponse>);
    const Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
    const QueryResponse response(QueryResponse::JSON_OBJ, object, QueryResult::FORBIDDEN);
    const QueryResponse copy = response;
    EXPECT_EQ(copy.getJsonObj(), object);
    EXPECT_EQ(copy.getOperationResult(), QueryResult::FORBIDDEN);
}

TEST(QueryResponseTest, ByDefaultIsAnEmptyTextThatCannotBeRead)
{
    const QueryResponse response;
    EXPECT_EQ(response.getType(), QueryResponse::TEXT);
    EXPECT_EQ(response.getOperationResult(), QueryResult::OK);
    EXPECT_EQ(response.getHttpStatus(), HTTPResponse::HTTP_OK);
    EXPECT_TRUE(response.getValue().isEmpty());
    EXPECT_EQ(messageOf<Poco::InvalidAccessException>([&] { response.getText(); }), "Can not convert empty value.");
}

TEST(QueryResponseTest, OkIsAResponseObjectWithoutAnErrorWhateverTheMessage)
{
    for (const char* message: {"", "the cellar is locked"})
    {
        const QueryResponse response(QueryResult::OK, message);
        EXPECT_EQ(response.getHttpStatus(), HTTPResponse::HTTP_OK);
        EXPECT_EQ(response.getType(), QueryResponse::RESPONSE_OBJ);
        EXPECT_EQ(response.getResponseObject()->getObject()->size(), 0U);
    }
}

TEST(QueryResponseTest, WhatIsNoOutcomeIsAnErrorOfTheServer)
{
    EXPECT_EQ(QueryResponse::convertResultToHttpStatus(UNKNOWN_RESULT), HTTPResponse::HTTP_INTERNAL_SERVER_ERROR);
    const QueryResponse response(UNKNOWN_RESULT, "");
    EXPECT_EQ(response.getHttpStatus(), HTTPResponse::HTTP_INTERNAL_SERVER_ERROR);
    EXPECT_EQ(response.getResponseObject()->getObject()->getValue<int>("code"), 500);
}

TEST(QueryResponseTest, GivesThePayloadOfItsKindAndNothingOfAnother)
{
    const Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
    const Poco::JSON::Array::Ptr array = new Poco::JSON::Array;
    const ResponseObject::Ptr document = new ResponseObject;
    const QueryResponse texts(QueryResponse::TEXT, text("seven"), QueryResult::OK);
    const QueryResponse objects(QueryResponse::JSON_OBJ, object, QueryResult::OK);
    const QueryResponse arrays(QueryResponse::JSON_ARRAY, array, QueryResult::OK);
    const QueryResponse documents(QueryResponse::RESPONSE_OBJ, document, QueryResult::OK);
    for (const QueryResponse* response: {&texts, &objects, &arrays, &documents})
    {
        EXPECT_EQ(response->getText(), response == &texts ? "seven" : "");
        EXPECT_EQ(response->getJsonObj(), response == &objects ? object : Poco::JSON::Object::Ptr());
        EXPECT_EQ(response->getJsonArray(), response == &arrays ? array : Poco::JSON::Array::Ptr());
        EXPECT_EQ(response->getResponseObject(), response == &documents ? document : ResponseObject::Ptr());
    }
}

TEST(QueryResponseTest, NumberUnderTextComesBackAsItsText)
{
    EXPECT_EQ(QueryResponse(QueryResponse::TEXT, 42, QueryResult::OK).getText(), "42");
    EXPECT_EQ(QueryResponse(QueryResponse::TEXT, true, QueryResult::OK).getText(), "true");
}

TEST(QueryResponseTest, EmptyPayloadOfTheRightKindRaises)
{
    const std::string message = "Can not extract empty value.";
    QueryResponse response(QueryResponse::JSON_OBJ, Poco::Dynamic::Var(), QueryResult::OK);
    EXPECT_EQ(messageOf<Poco::InvalidAccessException>([&] { response.getJsonObj(); }), message);
    response.setValue(QueryResponse::JSON_ARRAY, Poco::Dynamic::Var());
    EXPECT_EQ(messageOf<Poco::InvalidAccessException>([&] { response.getJsonArray(); }), message);
    response.setValue(QueryResponse::RESPONSE_OBJ, Poco::Dynamic::Var());
    EXPECT_EQ(messageOf<Poco::InvalidAccessException>([&] { response.getResponseObject(); }), message);
}

TEST(QueryResponseTest, PayloadOfAnotherTypeThanItsKindRaisesAndStays)
{
    const QueryResponse byValue(QueryResponse::JSON_OBJ, Poco::JSON::Object(), QueryResult::OK);
    EXPECT_EQ(messageOf<Poco::BadCastException>([&] { byValue.getJsonObj(); }).find("Can not convert "), 0U);
    const QueryResponse response(QueryResponse::JSON_ARRAY, text("no array"), QueryResult::FORBIDDEN);
    EXPECT_THROW(response.getJsonArray(), Poco::BadCastException);
    EXPECT_EQ(response.getType(), QueryResponse::JSON_ARRAY);
    EXPECT_EQ(response.getValue().convert<std::string>(), "no array");
    EXPECT_EQ(response.getOperationResult(), QueryResult::FORBIDDEN);
    EXPECT_THROW(QueryResponse(QueryResponse::RESPONSE_OBJ, 1, QueryResult::OK).getResponseObject(),
                 Poco::BadCastException);
}

TEST(QueryResponseTest, NewPayloadLeavesTheOutcome)
{
    QueryResponse response(QueryResult::NOT_FOUND, "");
    response.setValue(QueryResponse::TEXT, text("nowhere"));
    EXPECT_EQ(response.getText(), "nowhere");
    EXPECT_EQ(response.getHttpStatus(), HTTPResponse::HTTP_NOT_FOUND);
    EXPECT_TRUE(response.getResponseObject().isNull());
}

TEST(QueryResponseTest, NewOutcomeLeavesTheStatusInThePayload)
{
    QueryResponse response(QueryResult::NOT_FOUND, "");
    response.setOperationResult(QueryResult::FORBIDDEN);
    EXPECT_EQ(response.getHttpStatus(), HTTPResponse::HTTP_FORBIDDEN);
    EXPECT_EQ(response.getResponseObject()->getObject()->getValue<int>("code"), 404);
    EXPECT_EQ(messageIn(response), "not_found");
}

TEST(QueryResponseTest, IsChangedOnlyWhereTheCallerSays)
{
    Poco::Dynamic::Var payload = text("kept");
    const QueryResponse response(QueryResponse::TEXT, payload, QueryResult::OK);
    payload = text("changed");
    EXPECT_EQ(response.getText(), "kept");
}

} // namespace
