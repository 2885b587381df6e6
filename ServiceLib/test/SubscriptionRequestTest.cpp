#include "LoopbackConnection.h"

#include <SubscriptionHandling/SubscriptionRequest.h>

#include <gtest/gtest.h>

#include <type_traits>

namespace Kesa::Service
{
namespace
{

using Command::WebSocketRequestObject;
using Poco::Net::SocketAddress;
using Test::LoopbackConnection;

WebSocketRequestObject subscribe(const std::string& event)
{
    return WebSocketRequestObject(WebSocketRequestObject::TYPE_SUBSCRIBE, event, Poco::Optional<long>(250),
                                  Poco::Optional<long>(), nullptr, true);
}

static_assert(std::is_same_v<std::underlying_type_t<SubscriptionError>, Poco::UInt16>);
static_assert(std::is_base_of_v<WebSocketRequestObject, SubscriptionRequest>);
static_assert(std::has_virtual_destructor_v<SubscriptionRequest>);

TEST(SubscriptionErrorTest, ValuesAreTheStatusCodesThatTheClientGets)
{
    EXPECT_EQ(static_cast<int>(SubscriptionError::none), 0);
    EXPECT_EQ(static_cast<int>(SubscriptionError::syntax_error), 400);
    EXPECT_EQ(static_cast<int>(SubscriptionError::access_denied_or_token_invalid_or_expired), 403);
    EXPECT_EQ(static_cast<int>(SubscriptionError::event_name_unknown), 404);
    EXPECT_EQ(static_cast<int>(SubscriptionError::maximum_number_of_event_subscriptions_reached), 503);
}

TEST(SubscriptionResultTest, IsNotCanceledByDefault)
{
    const SubscriptionResult result;
    EXPECT_FALSE(result.isCanceled());
    EXPECT_FALSE(result.hasErrorMsg());
    EXPECT_EQ(result.getSubscriptionError(), SubscriptionError::none);
    EXPECT_EQ(result.getErrorMsg(), "");
}

TEST(SubscriptionResultTest, CarriesCodeAndText)
{
    const SubscriptionResult result(SubscriptionError::event_name_unknown, "no such order");
    EXPECT_TRUE(result.isCanceled());
    EXPECT_TRUE(result.hasErrorMsg());
    EXPECT_EQ(result.getSubscriptionError(), SubscriptionError::event_name_unknown);
    EXPECT_EQ(result.getErrorMsg(), "no such order");
}

TEST(SubscriptionResultTest, ARefusalNeedsNoText)
{
    const SubscriptionResult result(SubscriptionError::syntax_error, "");
    EXPECT_TRUE(result.isCanceled());
    EXPECT_FALSE(result.hasErrorMsg());
}

TEST(SubscriptionResultTest, ATextWithoutACodeIsNoRefusal)
{
    const SubscriptionResult result(SubscriptionError::none, "just saying");
    EXPECT_FALSE(result.isCanceled());
    EXPECT_TRUE(result.hasErrorMsg());
}

TEST(SubscriptionRequestTest, IsTheRequestWithoutAddressesAndNotCanceled)
{
    const SubscriptionRequest request(subscribe("/shop/orders?$fields=name#top"));
    EXPECT_EQ(request.getUri().toString(), "/shop/orders?$fields=name#top");
    EXPECT_TRUE(request.hasFieldsCriteria());
    EXPECT_EQ(request.getInterval(), 250);
    EXPECT_TRUE(request.isAutosubscribe());
    EXPECT_EQ(request.address(), SocketAddress());
    EXPECT_EQ(request.peerAddress(), SocketAddress());
    EXPECT_FALSE(request.isCanceled());
    EXPECT_FALSE(request.result().hasErrorMsg());
}

TEST(SubscriptionRequestTest, KeepsTheAddressesThatItIsGiven)
{
    const SocketAddress local("127.0.0.1", 8080);
    const SocketAddress peer("127.0.0.2", 51000);
    const SubscriptionRequest request(subscribe("/shop"), local, peer);
    EXPECT_EQ(request.address(), local);
    EXPECT_EQ(request.peerAddress(), peer);
    EXPECT_FALSE(request.isCanceled());
}

TEST(SubscriptionRequestTest, TakesBothAddressesFromTheSocket)
{
    const LoopbackConnection connection;
    const Net::WebSocketProxy proxy = connection.proxy();
    const SubscriptionRequest request(subscribe("/shop"), *proxy.webSocket);
    EXPECT_EQ(request.address(), proxy.webSocket->address());
    EXPECT_EQ(request.peerAddress(), proxy.webSocket->peerAddress());
    EXPECT_NE(request.address(), request.peerAddress());
}

TEST(SubscriptionRequestTest, CancelSetsCodeAndText)
{
    SubscriptionRequest request(subscribe("/shop"));
    request.cancel(SubscriptionError::event_name_unknown, "no such shop");
    EXPECT_TRUE(request.isCanceled());
    EXPECT_EQ(request.result().getSubscriptionError(), SubscriptionError::event_name_unknown);
    EXPECT_EQ(request.result().getErrorMsg(), "no such shop");
}

TEST(SubscriptionRequestTest, ALaterCancelOverwritesAnEarlierOne)
{
    SubscriptionRequest request(subscribe("/shop"));
    request.cancel(SubscriptionError::event_name_unknown, "no such shop");
    request.cancel(SubscriptionError::maximum_number_of_event_subscriptions_reached, "");
    EXPECT_EQ(request.result().getSubscriptionError(),
              SubscriptionError::maximum_number_of_event_subscriptions_reached);
    EXPECT_TRUE(request.isCanceled());
    EXPECT_FALSE(request.result().hasErrorMsg());
}

TEST(SubscriptionRequestTest, OnlyTheCodeDecidesWhetherItIsCanceled)
{
    SubscriptionRequest request(subscribe("/shop"));
    request.cancel(SubscriptionError::none, "");
    EXPECT_FALSE(request.isCanceled());
    request.cancel(SubscriptionError::syntax_error, "bad");
    request.cancel(SubscriptionError::none, "good after all");
    EXPECT_FALSE(request.isCanceled());
    EXPECT_EQ(request.result().getErrorMsg(), "good after all");
}

TEST(SubscriptionRequestTest, CancelLeavesTheRequestAsItWas)
{
    SubscriptionRequest request(subscribe("/shop/orders"), SocketAddress("127.0.0.1", 1),
                                SocketAddress("127.0.0.1", 2));
    request.cancel(SubscriptionError::syntax_error, "bad");
    EXPECT_TRUE(request.isValid());
    EXPECT_EQ(request.getUri().toString(), "/shop/orders");
    EXPECT_EQ(request.getInterval(), 250);
    EXPECT_EQ(request.address(), SocketAddress("127.0.0.1", 1));
    EXPECT_EQ(request.peerAddress(), SocketAddress("127.0.0.1", 2));
}

TEST(SubscriptionRequestTest, ADerivedClassIsAskedToCancel)
{
    struct Stubborn: SubscriptionRequest
    {
        using SubscriptionRequest::SubscriptionRequest;
        void cancel(SubscriptionError, const std::string&) override { ++asked; }
        int asked = 0;
    };
    Stubborn stubborn(subscribe("/shop"));
    SubscriptionRequest& request = stubborn;
    request.cancel(SubscriptionError::syntax_error, "bad");
    EXPECT_EQ(stubborn.asked, 1);
    EXPECT_FALSE(request.isCanceled());
}

} // namespace
} // namespace Kesa::Service
