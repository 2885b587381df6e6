#include "DataRow.h"

#include "ImmutableJson.h"
#include "JsonWriter.h"

namespace Kesa::Host
{

ImmutableJson::~ImmutableJson() = default;

namespace
{

/// What the object offers of lasting JSON; null if it offers none.
const ImmutableJson* lasting(const Data::XObjectBase::Ptr& object)
{
    return dynamic_cast<const ImmutableJson*>(object.get());
}

} // namespace

DataRow::DataRow(const Data::XObjectBase::Ptr& object): m_object(object) {}
DataRow::DataRow(const Poco::JSON::Object::Ptr& json): m_json(json) {}
DataRow::DataRow(const DataRow& other) = default;
DataRow::DataRow(DataRow&& other) noexcept = default;
DataRow& DataRow::operator=(const DataRow& other) = default;
DataRow& DataRow::operator=(DataRow&& other) noexcept = default;
DataRow::~DataRow() = default;

const Poco::JSON::Object::Ptr& DataRow::json() const
{
    if (!m_json.isNull())
        return m_json;
    const ImmutableJson* const kept = lasting(m_object);
    return m_json = kept ? kept->sharedJson() : m_object->toJSON(0);
}

void DataRow::appendText(std::string& out) const
{
    if (const ImmutableJson* const kept = lasting(m_object))
        out += kept->jsonText();
    else
        Command::appendJson(out, json());
}

} // namespace Kesa::Host
