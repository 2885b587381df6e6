#include "DeclaredMembers.h"

#include "JSONTools.h"

#include "Command/Query/AttributeValueSearch.h"
#include "Command/Query/FilterParameter.h"
#include "Command/Query/SortParameter.h"
#include "Command/RequestBase.h"

#include <vector>

namespace Kesa::Host
{

using Command::AttributeValueSearch;
using Command::FilterParameter;
using Command::RequestBase;
using Command::SortParameter;
using Poco::JSON::Object;

namespace
{

/// The names under "properties", null if there is no such object.
std::shared_ptr<const std::set<std::string>> parse(const std::string& schemaText)
{
    Object::Ptr schema;
    if (!Util::JSONTools::parseJSONString(schemaText, schema))
        return nullptr;
    const Object::Ptr properties = schema->getObject("properties");
    if (properties.isNull())
        return nullptr;
    auto names = std::make_shared<std::set<std::string>>(std::set<std::string>{"id", "uri", "name"});
    for (const auto& member: *properties)
        names->insert(member.first);
    return names;
}

/// Every member that the request names.
std::vector<std::string> namedMembers(const RequestBase& request)
{
    std::vector<std::string> names;
    std::vector<Poco::SharedPtr<FilterParameter>> fields;
    std::vector<Poco::SharedPtr<SortParameter>> orders;
    std::vector<Poco::SharedPtr<AttributeValueSearch>> attributes;
    request.extractRenderCriteria(fields);
    request.extractRenderCriteria(orders);
    request.extractSearchCriteria(attributes);
    for (const auto& criterion: fields)
        for (const auto& field: criterion->getFields())
            names.push_back(field.getName());
    for (const auto& order: orders)
        for (const auto& key: order->getKeys())
            names.push_back(key.name);
    for (const auto& attribute: attributes)
        names.push_back(attribute->getName());
    return names;
}

} // namespace

std::string DeclaredMembers::unknownMember(const std::string& schemaText, const RequestBase& request)
{
    if (schemaText.empty())
        return {};
    const auto declared = namesOf(schemaText);
    if (!declared)
        return {};
    for (const std::string& name: namedMembers(request))
        if (declared->count(name) == 0)
            return name;
    return {};
}

std::shared_ptr<const DeclaredMembers::Names> DeclaredMembers::namesOf(const std::string& schemaText)
{
    {
        Util::ScopedLock lock(m_mutex);
        const auto found = m_kept.find(schemaText);
        if (found != m_kept.end())
            return found->second;
    }
    const auto names = parse(schemaText);
    Util::ScopedLock lock(m_mutex);
    if (m_kept.size() >= MAX_KEPT)
        m_kept.clear();
    m_kept[schemaText] = names;
    return names;
}

} // namespace Kesa::Host
