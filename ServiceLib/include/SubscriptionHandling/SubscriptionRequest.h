#pragma once

#include "Command/WebSocketRequestObject.h"
#include "Export.h"

#include <Poco/Net/SocketAddress.h>
#include <Poco/Types.h>

#include <string>

namespace Poco::Net
{
class WebSocket;
}

namespace Kesa::Service
{

/// Why a subscription was refused. The values are the status codes that the client gets.
enum class SubscriptionError : Poco::UInt16
{
    none = 0,
    syntax_error = 400,
    access_denied_or_token_invalid_or_expired = 403,
    event_name_unknown = 404,
    maximum_number_of_event_subscriptions_reached = 503
};

/// The outcome of an attempt to subscribe. A value.
class KESA_API SubscriptionResult
{
public:
    /// Not refused.
    SubscriptionResult();
    /// Refused with this code; `none` is no refusal, whatever the text. The text may be empty.
    SubscriptionResult(SubscriptionError error, const std::string& message);

    /// True when there is an error code, with or without a text.
    bool isCanceled() const;
    bool hasErrorMsg() const;
    SubscriptionError getSubscriptionError() const;
    const std::string& getErrorMsg() const;

private:
    SubscriptionError errorCode;
    std::string errorMsg;
};

/// A client's request with the addresses of its connection and the result of the attempt to subscribe, which is not
/// refused until cancel() is called.
///
/// Ownership: shares the JSON of the request.
/// Threads:   the operations that are const from many threads at once; cancel() while nobody else uses the object.
class KESA_API SubscriptionRequest: public Command::WebSocketRequestObject
{
public:
    /// Without addresses: both are 0.0.0.0:0.
    explicit SubscriptionRequest(const Command::WebSocketRequestObject& request);
    /// Takes both addresses from the socket; raises what POCO raises for a socket that is not connected.
    SubscriptionRequest(const Command::WebSocketRequestObject& request, const Poco::Net::WebSocket& socket);
    SubscriptionRequest(const Command::WebSocketRequestObject& request, const Poco::Net::SocketAddress& address,
                        const Poco::Net::SocketAddress& peerAddress);
    ~SubscriptionRequest() override;

    /// Refuses the subscription; a later call overwrites an earlier one. The caller decides what follows.
    virtual void cancel(SubscriptionError error, const std::string& message);

    const Poco::Net::SocketAddress& address() const;     ///< local address of the connection
    const Poco::Net::SocketAddress& peerAddress() const; ///< address of the client
    const SubscriptionResult& result() const;            ///< the outcome so far
    bool isCanceled() const;

private:
    Poco::Net::SocketAddress m_address;
    Poco::Net::SocketAddress m_peeraddress;
    SubscriptionResult m_result;
};

} // namespace Kesa::Service
