#include "SubscriptionMatching.h"

#include "CriteriaLookup.h"

#include <Command/Query/AnyValueSearch.h>
#include <Command/Query/AttributeValueSearch.h>
#include <Command/Query/FilterField.h>
#include <Command/Query/FilterParameter.h>
#include <Command/Query/QueryFilterJSON.h>
#include <Command/UrlPath.h>
#include <LogStream.h>
#include <SubscriptionHandling/SubscriptionRequest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace Kesa::Service
{

using Command::HttpRequest;
using Command::RequestBase;
using Command::UrlPath;

namespace
{

constexpr const char* FUNCTION = "subscriptionApplies";

SubscriptionMatchResult matchPost(int distance, UrlPath::Characteristic changed)
{
    if (distance == 0 && (changed == UrlPath::SERVICE || changed == UrlPath::SERVICE_RESOURCE))
        return SubscriptionMatchResult::YES;
    if ((distance == 0 || distance == 1) && changed == UrlPath::SERVICE_RESOURCE_ELEMENT)
        return SubscriptionMatchResult::CHECK_PARAMETERS;
    return SubscriptionMatchResult::NO;
}

/// A new element concerns the list above it; nobody can have followed the element itself.
SubscriptionMatchResult matchPut(int distance, UrlPath::Characteristic changed)
{
    const bool concerned =
        distance == 1 && (changed == UrlPath::SERVICE || changed == UrlPath::SERVICE_RESOURCE_ELEMENT);
    return concerned ? SubscriptionMatchResult::YES : SubscriptionMatchResult::NO;
}

/// A whole element that goes concerns itself and the list; some of its fields concern only those who follow them.
SubscriptionMatchResult matchDelete(int distance, UrlPath::Characteristic changed, bool onlyFields)
{
    if (distance == 1 && changed == UrlPath::SERVICE)
        return SubscriptionMatchResult::YES;
    if (changed != UrlPath::SERVICE_RESOURCE_ELEMENT)
        return SubscriptionMatchResult::NO;
    if (distance == 1)
        return onlyFields ? SubscriptionMatchResult::NO : SubscriptionMatchResult::YES;
    if (distance == 0)
        return onlyFields ? SubscriptionMatchResult::CHECK_PARAMETERS : SubscriptionMatchResult::YES;
    return SubscriptionMatchResult::NO;
}

typedef std::vector<Poco::SharedPtr<Command::RenderCriterion>> RenderCriteria;

/// Whether the predicate holds for one of the field filters among `criteria`.
template <class Predicate>
bool anyFilter(const RenderCriteria& criteria, Predicate holds)
{
    return std::any_of(criteria.begin(), criteria.end(),
                       [&holds](const Poco::SharedPtr<Command::RenderCriterion>& criterion)
                       {
                           const auto* filter = dynamic_cast<const Command::FilterParameter*>(criterion.get());
                           return filter && holds(*filter);
                       });
}

/// Whether one of the field filters among `criteria` names this field.
bool namesField(const RenderCriteria& criteria, const std::string& name)
{
    return anyFilter(criteria, [&name](const Command::FilterParameter& filter) { return filter.contains(name); });
}

enum class CheckResult
{
    CONTINUE,
    ACCEPT,
    REJECT
};

bool isMissing(const Poco::JSON::Object* payload)
{
    return payload == nullptr || payload->size() == 0;
}

CheckResult checkFields(HttpRequest::RequestType requestType, const RequestBase& requestCommand,
                        const Poco::JSON::Object* sourceObj, const SubscriptionRequest& subscription)
{
    if (!subscription.hasFieldsCriteria())
        return CheckResult::CONTINUE;
    if (requestType == HttpRequest::DELETE)
    {
        if (!requestCommand.hasFieldsCriteria() || compareFields(requestCommand, subscription))
            return CheckResult::CONTINUE;
        KESA_LOG_TRACE(FUNCTION << ":false (DELETEd no relevant fields)");
        return CheckResult::REJECT;
    }
    if (isMissing(sourceObj))
    {
        KESA_LOG_DEBUG("Missing Request-Payload for $fields check, accept event now and do data compare");
        return CheckResult::ACCEPT;
    }
    const auto* filters = findRenderCriteria<Command::FilterParameter>(subscription);
    if (filters && !Command::QueryFilterJSON::findContainedFields(*sourceObj, filters))
    {
        KESA_LOG_TRACE(FUNCTION << ":false (not all relevant fields changed)");
        return CheckResult::REJECT;
    }
    return CheckResult::CONTINUE;
}

CheckResult checkSearch(const Poco::JSON::Object* sourceObj, const SubscriptionRequest& subscription)
{
    if (!subscription.hasSearchCriteria())
        return CheckResult::CONTINUE;
    if (isMissing(sourceObj))
    {
        KESA_LOG_DEBUG("Missing Request-Payload for search criteria check, accept event now and do data compare");
        return CheckResult::ACCEPT;
    }
    std::vector<Poco::SharedPtr<Command::AnyValueSearch>> freetexts;
    std::vector<Poco::SharedPtr<Command::AttributeValueSearch>> attributes;
    subscription.extractSearchCriteria(freetexts);
    subscription.extractSearchCriteria(attributes);
    if (!freetexts.empty() && !Command::QueryFilterJSON::findContainedFreetexts(*sourceObj, freetexts))
    {
        KESA_LOG_TRACE(FUNCTION << ":false (not all relevant freetexts matched)");
        return CheckResult::REJECT;
    }
    if (!attributes.empty() && !Command::QueryFilterJSON::findContainedAttributePairs(*sourceObj, attributes))
    {
        // An element that stops matching a filter still changes what the list must show.
        if (subscription.getUrlPath().getCharacteristic() == UrlPath::SERVICE_RESOURCE)
            return CheckResult::ACCEPT;
        KESA_LOG_TRACE(FUNCTION << ":false (not all relevant attribute pairs matched)");
        return CheckResult::REJECT;
    }
    return CheckResult::CONTINUE;
}

bool criteriaApply(HttpRequest::RequestType requestType, const RequestBase& requestCommand,
                   const Poco::JSON::Object* sourceObj, const SubscriptionRequest& subscription)
{
    CheckResult result = checkFields(requestType, requestCommand, sourceObj, subscription);
    if (result == CheckResult::CONTINUE)
        result = checkSearch(sourceObj, subscription);
    if (result != CheckResult::CONTINUE)
        return result == CheckResult::ACCEPT;
    KESA_LOG_TRACE(FUNCTION << ":true");
    return true;
}

} // namespace

SubscriptionMatchResult canSubscriptionMatch(HttpRequest::RequestType requestType, const UrlPath& requestUrlPath,
                                             const UrlPath& subscriptionUrlPath, bool reqHasFieldsCriteria)
{
    const UrlPath::Characteristic changed = requestUrlPath.getCharacteristic();
    const int levelCharacteristicDistance =
        UrlPath::compareCharacteristic(subscriptionUrlPath.getCharacteristic(), changed);
    switch (requestType)
    {
    case HttpRequest::POST:
        return matchPost(levelCharacteristicDistance, changed);
    case HttpRequest::PUT:
        return matchPut(levelCharacteristicDistance, changed);
    case HttpRequest::DELETE:
        return matchDelete(levelCharacteristicDistance, changed, reqHasFieldsCriteria);
    default:
        return SubscriptionMatchResult::NO;
    }
}

bool compareFields(const RequestBase& requestCommand, const SubscriptionRequest& subscription)
{
    const auto* subscribed = findRenderCriteria<Command::FilterParameter>(subscription);
    if (!subscribed)
    {
        KESA_LOG_ERROR("Failed to get criteria from Subscription to compare fields.");
        return false;
    }
    const auto* requested = findRenderCriteria<Command::FilterParameter>(requestCommand);
    if (!requested)
    {
        KESA_LOG_ERROR("Failed to get criteria from Request to compare fields.");
        return false;
    }
    return anyFilter(*subscribed,
                     [requested](const Command::FilterParameter& filter)
                     {
                         const auto& fields = filter.getFields();
                         return std::any_of(fields.begin(), fields.end(),
                                            [requested](const Command::FilterField& field)
                                            { return namesField(*requested, field.getName()); });
                     });
}

bool subscriptionApplies(HttpRequest::RequestType requestType, const RequestBase& requestCommand,
                         const Poco::JSON::Object* sourceObj, const SubscriptionRequest* subscription)
{
    if (!subscription)
    {
        KESA_LOG_ERROR("SubscriptionManager::subscriptionApplies - failed because subscription is invalid");
        return false;
    }
    KESA_LOG_TRACE(FUNCTION << " testing " << subscription->getUri().toString());
    switch (canSubscriptionMatch(requestType, requestCommand.getUrlPath(), subscription->getUrlPath(),
                                 requestCommand.hasFieldsCriteria()))
    {
    case SubscriptionMatchResult::NO:
        KESA_LOG_TRACE(FUNCTION << ":false (subscription can't match)");
        return false;
    case SubscriptionMatchResult::YES:
        KESA_LOG_TRACE(FUNCTION << ":true (subscription matches)");
        return true;
    case SubscriptionMatchResult::CHECK_PARAMETERS:
        break;
    }
    if (!subscription->hasAnyCriteria())
    {
        KESA_LOG_TRACE(FUNCTION << ":true (no criteria)");
        return true;
    }
    try
    {
        return criteriaApply(requestType, requestCommand, sourceObj, *subscription);
    }
    catch (...)
    {
        KESA_LOG_ERROR("Subscription--Update failed due to unexpected error.");
        return false;
    }
}

} // namespace Kesa::Service
