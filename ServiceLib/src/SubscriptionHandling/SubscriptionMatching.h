#pragma once

#include "Command/HttpRequest.h"
#include "Export.h"

#include <Poco/JSON/Object.h>

namespace Kesa::Service
{

class SubscriptionRequest;

/// What the two URLs alone tell about a change and a subscription.
enum class SubscriptionMatchResult
{
    YES = 0,             ///< the subscription is concerned, its criteria need no look
    NO = 1,              ///< the subscription cannot be concerned
    CHECK_PARAMETERS = 2 ///< the URLs fit; the subscription's criteria decide
};

/// Decides by method and URLs alone. `reqHasFieldsCriteria`: the change names fields, as in a DELETE of some members.
KESA_API SubscriptionMatchResult canSubscriptionMatch(Command::HttpRequest::RequestType requestType,
                                                      const Command::UrlPath& requestUrlPath,
                                                      const Command::UrlPath& subscriptionUrlPath,
                                                      bool reqHasFieldsCriteria);

/// True when the two share at least one field name. False, with an Error in the log, when one of them names no fields.
KESA_API bool compareFields(const Command::RequestBase& requestCommand, const SubscriptionRequest& subscription);

/// Whether a change concerns a subscription, and with it all subscriptions of the same path and query. Works on the
/// request and the payload and never loads data; what cannot be decided without data counts as concerned. `sourceObj`
/// may be null. Any thread; raises nothing once the URLs fit.
KESA_API bool subscriptionApplies(Command::HttpRequest::RequestType requestType,
                                  const Command::RequestBase& requestCommand, const Poco::JSON::Object* sourceObj,
                                  const SubscriptionRequest* subscription);

} // namespace Kesa::Service
