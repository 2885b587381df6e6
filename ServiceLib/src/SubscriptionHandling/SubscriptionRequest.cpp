#include <SubscriptionHandling/SubscriptionRequest.h>

#include <Poco/Net/WebSocket.h>

namespace Kesa::Service
{

SubscriptionResult::SubscriptionResult(): errorCode(SubscriptionError::none) {}

SubscriptionResult::SubscriptionResult(SubscriptionError error, const std::string& message)
    : errorCode(error), errorMsg(message)
{
}

bool SubscriptionResult::isCanceled() const
{
    return errorCode != SubscriptionError::none;
}

bool SubscriptionResult::hasErrorMsg() const
{
    return !errorMsg.empty();
}

SubscriptionError SubscriptionResult::getSubscriptionError() const
{
    return errorCode;
}

const std::string& SubscriptionResult::getErrorMsg() const
{
    return errorMsg;
}

SubscriptionRequest::SubscriptionRequest(const Command::WebSocketRequestObject& request)
    : Command::WebSocketRequestObject(request)
{
}

SubscriptionRequest::SubscriptionRequest(const Command::WebSocketRequestObject& request,
                                         const Poco::Net::WebSocket& socket)
    : SubscriptionRequest(request, socket.address(), socket.peerAddress())
{
}

SubscriptionRequest::SubscriptionRequest(const Command::WebSocketRequestObject& request,
                                         const Poco::Net::SocketAddress& address,
                                         const Poco::Net::SocketAddress& peerAddress)
    : Command::WebSocketRequestObject(request), m_address(address), m_peeraddress(peerAddress)
{
}

SubscriptionRequest::~SubscriptionRequest() = default;

void SubscriptionRequest::cancel(SubscriptionError error, const std::string& message)
{
    m_result = SubscriptionResult(error, message);
}

const Poco::Net::SocketAddress& SubscriptionRequest::address() const
{
    return m_address;
}

const Poco::Net::SocketAddress& SubscriptionRequest::peerAddress() const
{
    return m_peeraddress;
}

const SubscriptionResult& SubscriptionRequest::result() const
{
    return m_result;
}

bool SubscriptionRequest::isCanceled() const
{
    return result().isCanceled();
}

} // namespace Kesa::Service
