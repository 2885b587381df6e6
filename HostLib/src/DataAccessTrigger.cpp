#include "DataAccessTrigger.h"

#include "DataReader.h"
#include "FollowedUrls.h"

#include "Command/HttpRequest.h"
#include "Command/WebSocketResponseObject.h"
#include "DataAccess/ServiceDataAccessPoint.h"
#include "SubscriptionHandling/SubscriptionEvents.h"
#include "SubscriptionHandling/SubscriptionRequest.h"

#include <Poco/Exception.h>

namespace Kesa::Host
{

using Command::HttpRequest;
using Command::UrlPath;
using Command::WebSocketResponseObject;
using Poco::JSON::Object;
using Service::ServiceDataAccessPoint;
using Service::SubscriptionError;

struct DataAccessTrigger::Parts
{
    explicit Parts(const ServiceDataAccessPoint::Ptr& data): reader(data) {}

    DataReader reader;
    FollowedUrls followed;
};

namespace
{

const ServiceDataAccessPoint::Ptr& notNull(const ServiceDataAccessPoint::Ptr& data)
{
    if (data.isNull())
        throw Poco::NullPointerException("A DataAccessTrigger needs a data access point");
    return data;
}

/// The URL of the element alone, without a query.
Poco::URI withoutQuery(Poco::URI url)
{
    url.setRawQuery("");
    url.setFragment("");
    return url;
}

/// The URL of the list that the element stands in.
Poco::URI listOf(const UrlPath& element)
{
    std::string path = "/";
    Poco::URI::encode(element.getService(), "/?#", path);
    path += '/';
    Poco::URI::encode(element.getResource(), "/?#", path);
    return Poco::URI(path);
}

SubscriptionError errorOf(int code)
{
    if (code == 404)
        return SubscriptionError::event_name_unknown;
    return code == 403 ? SubscriptionError::access_denied_or_token_invalid_or_expired : SubscriptionError::syntax_error;
}

/// True for a subscription to one element, whose data somebody has seen.
bool isFollowedElement(const Service::SubscriptionRequest& request)
{
    return request.getType() == WebSocketResponseObject::TYPE_SUBSCRIBE &&
           request.getUrlPath().getCharacteristic() == UrlPath::SERVICE_RESOURCE_ELEMENT;
}

/// True while this thread tells of a change for the second time.
thread_local bool isToldAgain = false;

class ToldAgain
{
public:
    ToldAgain() { isToldAgain = true; }
    ~ToldAgain() { isToldAgain = false; }
    ToldAgain(const ToldAgain&) = delete;
    ToldAgain& operator=(const ToldAgain&) = delete;
};

/// Tells of a change by `report`. Where an element's new state cannot be compared with the one that a follower was
/// sent, because a member became another kind of value, that raises, and who comes behind has heard nothing. So it is
/// told once more, and now whoever follows the element loads it on the thread that delivers, where only that one fails.
template <class Report>
bool tellAll(Report report)
{
    try
    {
        return report();
    }
    catch (const Poco::Exception&)
    {
        const ToldAgain again;
        report();
        throw;
    }
}

} // namespace

DataAccessTrigger::DataAccessTrigger(const ServiceDataAccessPoint::Ptr& data)
    : m_data(notNull(data)), m_parts(std::make_unique<Parts>(data))
{
}

DataAccessTrigger::~DataAccessTrigger() = default;

DataAnswer DataAccessTrigger::read(const Command::RequestBase& request)
{
    return m_parts->reader.read(request);
}

bool DataAccessTrigger::fetchData(const Service::SubscriptionRequest& request, WebSocketResponseObject& response)
{
    if (isToldAgain && isFollowedElement(request))
        return false;
    DataAnswer answer = read(request);
    if (answer.code() == 404 && isFollowedElement(request))
    {
        // Whoever creates it from now on sees that it is awaited; who created it before is seen by the second look.
        m_parts->followed.missing(request.getUrlPath());
        answer = read(request);
    }
    if (!answer.isRefused() || answer.code() != 404 || !isFollowedElement(request))
    {
        answer.fill(response);
        return !answer.isRefused();
    }
    // The error document says that it went; the empty data make it different from the state before, and a state after
    // it different again.
    const std::string path = request.getUrlPath().getUri().getPath();
    response.setErrorStatus(Command::StatusObject::gone, "\"" + path + "\" no longer exists.");
    response.setData(Object::Ptr(new Object));
    return true;
}

void DataAccessTrigger::checkNewSubscription(Service::SubscriptionSubscribingEventPayload& payload)
{
    QueryVerdict verdict = m_parts->reader.check(payload.request);
    if (verdict.code == 404) // unless it is one of the URLs that an overriding read() adds
    {
        const DataAnswer answer = read(payload.request);
        verdict = answer.isRefused() ? QueryVerdict{answer.code(), answer.message()} : QueryVerdict();
    }
    if (verdict.code != 0)
        return payload.cancelSubscribing(errorOf(verdict.code), verdict.message);
    m_parts->followed.subscribing(payload.request);
}

bool DataAccessTrigger::created(const Poco::URI& url, const Object::Ptr& element)
{
    const HttpRequest creation(HttpRequest::PUT, withoutQuery(url), element);
    const bool isAwaited = m_parts->followed.isAwaited(creation.getUrlPath());
    const bool isReported = tellAll([&] { return byRequest(creation); }); // for those who follow the list
    // For those who followed the element before it went, whatever members they follow: told without any.
    if (isAwaited)
        tellAll([&] { return byRequest(HttpRequest(HttpRequest::POST, withoutQuery(url), new Object)); });
    return isReported;
}

bool DataAccessTrigger::updated(const Poco::URI& url, const Object::Ptr& members)
{
    const HttpRequest update(HttpRequest::POST, withoutQuery(url), members);
    const bool hasDependentList = m_parts->followed.hasDependentList(update.getUrlPath());
    return tellAll(
        [&]
        {
            const bool isReported = byRequest(update);
            if (hasDependentList)
                byRequest(HttpRequest(HttpRequest::POST, listOf(update.getUrlPath()), members));
            return isReported;
        });
}

bool DataAccessTrigger::deleted(const Poco::URI& url, const Object::Ptr& element)
{
    return tellAll([&] { return byDeleteRequest(HttpRequest(HttpRequest::DELETE, url), element.get()); });
}

} // namespace Kesa::Host
