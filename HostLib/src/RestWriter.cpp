#include "RestWriter.h"

#include "ConditionalRequest.h"
#include "DataAccessTrigger.h"
#include "JsonBody.h"
#include "LogStream.h"
#include "QueryCheck.h"
#include "RestReader.h"

#include "Command/Query/FilterParameter.h"
#include "Command/RequestBase.h"
#include "Data/ElementGeneric.h"
#include "DataAccess/QueryResponse.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/String.h>

namespace Kesa::Host
{

using Command::FilterParameter;
using Command::QueryResponse;
using Command::QueryResult;
using Command::RequestBase;
using Command::UrlPath;
using Data::ElementBase;
using Poco::JSON::Object;
using Poco::Net::HTTPRequest;
using Poco::Net::HTTPServerRequest;
using Service::ServiceDataAccessPoint;
using Util::FastMutex;
using Util::ScopedLock;
typedef ServiceDataAccessPoint::UpdateResult UpdateResult;

struct RestWriter::Change
{
    const RequestBase& wanted;
    const UrlPath& url;
    const ConditionalRequest conditions;
    DataAccessTrigger& trigger;
    ServiceDataAccessPoint& data;
    Object::Ptr body;

    /// The element at the URL as it is now, null if there is none.
    ElementBase::Ptr element() const { return data.getElement(url.getService(), url.getResource(), url.getElement()); }
    bool isOnElement() const { return url.getCharacteristic() == UrlPath::SERVICE_RESOURCE_ELEMENT; }
};

namespace
{

RestAnswer notFound(const UrlPath& url)
{
    return RestAnswer::error(404, "There is no \"" + url.getUri().getPath() + "\" here.");
}

DataRow rowOf(const Data::XObjectBase::Ptr& object)
{
    return DataRow(object);
}

/// The answer to a change that did not succeed.
RestAnswer failure(const UpdateResult& result)
{
    switch (result.value())
    {
    case UpdateResult::NOT_FOUND:
        return RestAnswer::error(QueryResponse(QueryResult::NOT_FOUND, result.message()));
    case UpdateResult::DUPLICATE:
        return RestAnswer::error(409, result.message().empty() ? "The element exists already." : result.message());
    case UpdateResult::INVALID_REQUEST:
    case UpdateResult::INVALID_OBJECT:
        return RestAnswer::error(QueryResponse(QueryResult::INVALID_REQUEST, result.message()));
    default:
        return RestAnswer::error(QueryResponse(QueryResult::PROCESSING_ERROR, result.message()));
    }
}

/// Tells the trigger what was stored.
template <class Report>
void report(const UrlPath& url, Report tell)
{
    try
    {
        tell();
    }
    catch (const Poco::Exception& e)
    {
        KESA_LOG_ERROR("The change of " << url.getUri().getPath()
                                        << " is stored, but telling the subscriptions failed: " << e.displayText());
    }
    catch (const std::exception& e)
    {
        KESA_LOG_ERROR("The change of " << url.getUri().getPath()
                                        << " is stored, but telling the subscriptions failed: " << e.what());
    }
}

/// What is wrong with the query of a request that writes: only a deletion may have one, which names members.
RestAnswer checkWriteQuery(const RequestBase& wanted, bool isDeletion)
{
    const QueryVerdict verdict = checkQuery(wanted);
    if (verdict.code != 0)
        return RestAnswer::error(verdict.code, verdict.message);
    const bool hasOthers =
        wanted.hasSearchCriteria() || wanted.renderCriteria.size() > (wanted.hasFieldsCriteria() ? 1 : 0);
    if (isDeletion && hasOthers)
        return RestAnswer::error(400, "A deletion knows no parameter but $fields.");
    if (!isDeletion && wanted.hasAnyCriteria())
        return RestAnswer::error(400, "A request that creates or updates has no query.");
    return RestAnswer();
}

/// The answer to the creation of an element, with where it stands.
RestAnswer creationAnswer(const DataRow& row)
{
    RestAnswer answer = RestReader::wholeElement(row);
    answer.status = 201;
    answer.location = row.object()->getUri().getPathEtc();
    return answer;
}

} // namespace

RestAnswer RestWriter::write(HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response,
                             const RequestBase& wanted, DataAccessTrigger& trigger)
{
    const std::string& method = request.getMethod();
    const bool isDeletion = method == HTTPRequest::HTTP_DELETE;
    Change change{wanted, wanted.getUrlPath(), ConditionalRequest(request), trigger, trigger.data(), nullptr};
    const bool isCreation = method == HTTPRequest::HTTP_PUT || !change.isOnElement();
    RestAnswer verdict = checkWriteQuery(wanted, isDeletion);
    if (verdict.isError())
        return verdict;
    if (!(isCreation ? hasResource(change) : !change.element().isNull()))
        return notFound(change.url);
    if (isDeletion)
        return wanted.hasFieldsCriteria() ? removeMembers(change) : remove(change);
    std::string text;
    verdict = m_bodies.read(request, response, text);
    if (verdict.isError())
        return verdict;
    const JsonBody body = JsonBody::parse(text);
    if (body.object.isNull())
        return RestAnswer::error(400, body.problem);
    change.body = body.object;
    if (!isCreation)
        return update(change);
    return change.isOnElement() ? createAt(change) : create(change);
}

bool RestWriter::hasResource(const Change& change)
{
    return !change.data.getResource(change.url.getService(), change.url.getResource()).isNull();
}

FastMutex& RestWriter::lockOf(const Change& change)
{
    return m_locks.of(change.url.getService(), change.url.getResource(), Poco::toLower(change.url.getElement()));
}

RestAnswer RestWriter::judge(const Change& change, const ElementBase::Ptr& current)
{
    const bool needsTag = change.conditions.isConditional() && !current.isNull();
    const std::string etag = needsTag ? RestReader::wholeElement(rowOf(current)).etag : std::string();
    if (change.conditions.judgeWrite(!current.isNull(), etag) == ConditionalRequest::Verdict::PROCEED)
        return RestAnswer();
    return RestAnswer::error(412, "The element is not in the state that If-Match or If-None-Match asks for.");
}

RestAnswer RestWriter::create(const Change& change)
{
    // What is there is the list, which has no tag.
    if (change.conditions.judgeWrite(true, "") != ConditionalRequest::Verdict::PROCEED)
        return RestAnswer::error(412, "A list is in no state that If-Match or If-None-Match could ask for.");
    const UpdateResult result =
        change.data.insertElement(change.url.getService(), change.url.getResource(), change.body);
    if (!result.success())
        return failure(result);
    if (result.created.isNull())
        return RestAnswer::error(500, "The service does not say what it created.");
    const DataRow row(result.created);
    const Poco::URI url = result.created->getUri();
    report(change.url, [&] { change.trigger.created(url, row.json()); });
    return creationAnswer(row);
}

RestAnswer RestWriter::createAt(const Change& change)
{
    ScopedLock<FastMutex> lock(lockOf(change));
    const ElementBase::Ptr current = change.element();
    const RestAnswer verdict = judge(change, current);
    if (verdict.isError())
        return verdict;
    if (!current.isNull())
        return failure(UpdateResult(UpdateResult::DUPLICATE));
    const UpdateResult result = change.data.insertElement(change.url.getUri(), change.body);
    const Data::XObjectBase::Ptr created =
        result.created.isNull() ? Data::XObjectBase::Ptr(change.element()) : result.created;
    lock.unlock();
    if (!result.success() || created.isNull())
        return failure(result);
    const DataRow row(created);
    report(change.url, [&] { change.trigger.created(created->getUri(), row.json()); });
    return creationAnswer(row);
}

RestAnswer RestWriter::update(const Change& change)
{
    ScopedLock<FastMutex> lock(lockOf(change));
    const ElementBase::Ptr current = change.element();
    if (current.isNull())
        return notFound(change.url);
    const RestAnswer verdict = judge(change, current);
    if (verdict.isError())
        return verdict;
    const UpdateResult result = change.data.updateElement(change.url.getService(), change.url.getResource(),
                                                          change.url.getElement(), change.body);
    const ElementBase::Ptr now = change.element();
    lock.unlock();
    if (!result.success())
        return failure(result);
    if (result.value() == UpdateResult::OK)
        report(change.url, [&] { change.trigger.updated(change.url.getUri(), change.body); });
    return now.isNull() ? notFound(change.url) : RestReader::wholeElement(rowOf(now));
}

RestAnswer RestWriter::remove(const Change& change)
{
    ScopedLock<FastMutex> lock(lockOf(change));
    const ElementBase::Ptr current = change.element();
    if (current.isNull())
        return notFound(change.url);
    const RestAnswer verdict = judge(change, current);
    if (verdict.isError())
        return verdict;
    const DataRow row = rowOf(current);
    RestAnswer answer = RestReader::wholeElement(row); // before it goes: it may be rendered from the store
    answer.etag.clear();
    const UpdateResult result = change.data.deleteElement(*current);
    lock.unlock();
    if (!result.success())
        return failure(result);
    if (result.value() == UpdateResult::OK)
        report(change.url, [&] { change.trigger.deleted(change.url.getUri(), row.json()); });
    return answer;
}

RestAnswer RestWriter::removeMembers(const Change& change)
{
    std::vector<Poco::SharedPtr<FilterParameter>> fields;
    change.wanted.extractRenderCriteria(fields);
    if (fields.front()->contains("id") || fields.front()->contains("uri"))
        return RestAnswer::error(400, "The members \"id\" and \"uri\" of an element cannot be deleted.");
    const DataAnswer known = change.trigger.read(change.wanted);
    if (known.isRefused()) // a member that the resource does not declare
        return RestAnswer::error(known.code(), known.message());
    ScopedLock<FastMutex> lock(lockOf(change));
    const ElementBase::Ptr current = change.element();
    if (current.isNull())
        return notFound(change.url);
    const RestAnswer verdict = judge(change, current);
    if (verdict.isError())
        return verdict;
    Data::ElementGeneric rest(*current);
    bool isChanged = false;
    for (const auto& field: fields.front()->getFields())
        isChanged = rest.removeValue(field.getName()) || isChanged;
    const UpdateResult result = isChanged ? change.data.updateElement(rest) : UpdateResult(UpdateResult::NO_UPDATE);
    const ElementBase::Ptr now = change.element();
    lock.unlock();
    if (!result.success())
        return failure(result);
    if (now.isNull())
        return notFound(change.url);
    const DataRow row = rowOf(now);
    if (result.value() == UpdateResult::OK)
        report(change.url, [&] { change.trigger.deleted(change.url.getUri(), row.json()); });
    return RestReader::wholeElement(row);
}

} // namespace Kesa::Host
