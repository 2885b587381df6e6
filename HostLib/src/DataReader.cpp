#include "DataReader.h"

#include "Expansion.h"

#include "Command/RequestBase.h"
#include "DataAccess/ServiceDataAccessPoint.h"

namespace Kesa::Host
{

using Command::RequestBase;
using Command::UrlPath;

namespace
{

template <class Objects>
std::vector<DataRow> toRows(const Objects& objects)
{
    std::vector<DataRow> rows;
    rows.reserve(objects.size());
    for (const auto& object: objects)
        rows.emplace_back(Data::XObjectBase::Ptr(object));
    return rows;
}

QueryVerdict nothingAt(const UrlPath& url)
{
    const std::string path = "\"" + url.getUri().getPath() + "\"";
    if (!url.isValid() || url.isReservedKeyword())
        return {404, "No URL of a service has the form " + path + "."};
    return {404, "There is no " + path + " here."};
}

/// True if the query names members, which the resource may have declared.
bool namesMembers(const RequestBase& request)
{
    return request.hasFieldsCriteria() || request.hasSortbyCriteria() || request.hasAttributeCriteria();
}

} // namespace

DataReader::DataReader(const Poco::SharedPtr<Service::ServiceDataAccessPoint>& data): m_data(data) {}

DataReader::~DataReader() = default;

QueryVerdict DataReader::check(const RequestBase& request)
{
    if (!exists(request.getUrlPath()))
        return nothingAt(request.getUrlPath());
    const QueryVerdict verdict = checkQuery(request);
    return verdict.code == 0 ? checkMembers(request) : verdict;
}

QueryVerdict DataReader::checkMembers(const RequestBase& request)
{
    const UrlPath& url = request.getUrlPath();
    if (!namesMembers(request) || url.getResource().empty())
        return {};
    const auto resource = m_data->getResource(url.getService(), url.getResource());
    const std::string unknown =
        resource.isNull() ? std::string() : m_declared.unknownMember(resource->getSpecification(), request);
    if (unknown.empty())
        return {};
    return {400, "The elements of \"" + url.getResource() + "\" have no member \"" + unknown + "\"."};
}

bool DataReader::exists(const UrlPath& url)
{
    switch (url.getCharacteristic())
    {
    case UrlPath::ROOT:
        return true;
    case UrlPath::SERVICE:
        return !m_data->getService(url.getService()).isNull();
    case UrlPath::SERVICE_RESOURCE:
        return !m_data->getResource(url.getService(), url.getResource()).isNull();
    case UrlPath::SERVICE_RESOURCE_ELEMENT:
        return !m_data->getElement(url.getService(), url.getResource(), url.getElement()).isNull();
    default:
        return false;
    }
}

DataAnswer DataReader::read(const RequestBase& request)
{
    const UrlPath& url = request.getUrlPath();
    if (url.getCharacteristic() == UrlPath::SERVICE_RESOURCE_ELEMENT)
        return readElement(request);
    const QueryVerdict verdict = check(request);
    if (verdict.code != 0)
        return DataAnswer::refusal(verdict.code, verdict.message);
    DataAnswer answer = DataAnswer::list(rowsAt(url), request);
    expand(answer, request);
    return answer;
}

DataAnswer DataReader::readElement(const RequestBase& request)
{
    const UrlPath& url = request.getUrlPath();
    const auto element = m_data->getElement(url.getService(), url.getResource(), url.getElement());
    QueryVerdict verdict = element.isNull() ? nothingAt(url) : checkQuery(request);
    if (verdict.code == 0)
        verdict = checkMembers(request);
    if (verdict.code != 0)
        return DataAnswer::refusal(verdict.code, verdict.message);
    DataAnswer answer = DataAnswer::element(DataRow(Data::XObjectBase::Ptr(element)), request);
    expand(answer, request);
    return answer;
}

std::vector<DataRow> DataReader::rowsAt(const UrlPath& url)
{
    switch (url.getCharacteristic())
    {
    case UrlPath::ROOT:
        return toRows(m_data->getServices());
    case UrlPath::SERVICE:
        return toRows(m_data->getResources(url.getService()));
    default:
        return toRows(m_data->getElements(url.getService(), url.getResource()));
    }
}

void DataReader::expand(DataAnswer& answer, const RequestBase& request)
{
    if (!request.hasExpandCriteria())
        return;
    Expansion expansion(*m_data, request);
    if (!expansion.isWanted())
        return;
    for (DataRow& row: answer.rows())
        row = DataRow(expansion.expand(*row.json()));
}

} // namespace Kesa::Host
