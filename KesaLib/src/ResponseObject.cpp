#include "Command/ResponseObject.h"

#include "JsonSnapshot.h"

#include <Time/Timestamp.h>

namespace Kesa::Command
{

const StatusObject::JsonFieldName ResponseObject::FIELD_PAGING = "paging";
const StatusObject::JsonFieldName ResponseObject::FIELD_PAGING_OFFSET_ID = "offsetId";
const StatusObject::JsonFieldName ResponseObject::FIELD_PAGING_OFFSET = "offset";
const StatusObject::JsonFieldName ResponseObject::FIELD_PAGING_LIMIT = "limit";
const StatusObject::JsonFieldName ResponseObject::FIELD_PAGING_TOTAL = "total";
const StatusObject::JsonFieldName ResponseObject::FIELD_PAGING_TOTAL_PAGES = "totalPages";
const StatusObject::JsonFieldName ResponseObject::FIELD_PAGING_PREVIOUS = "previous";
const StatusObject::JsonFieldName ResponseObject::FIELD_PAGING_NEXT = "next";
const StatusObject::JsonFieldName ResponseObject::FIELD_TIMESTAMP = "timestamp";
const StatusObject::JsonFieldName ResponseObject::FIELD_DATA = "data";
const StatusObject::JsonFieldName ResponseObject::FIELD_SERVICE = "service";

ResponseObject::ResponseObject() = default;
ResponseObject::ResponseObject(const Poco::JSON::Array::Ptr& data)
{
    setData(data);
}
ResponseObject::ResponseObject(const Poco::JSON::Object::Ptr& data)
{
    setData(data);
}
ResponseObject::ResponseObject(int code, const std::string& message)
{
    setErrorStatus(code, message);
}
ResponseObject::ResponseObject(const ResponseObject& other): StatusObject(other)
{
    separatePaging();
}
ResponseObject::~ResponseObject() = default;

ResponseObject& ResponseObject::operator=(const ResponseObject& other)
{
    copyObject(&other);
    return *this;
}

Poco::JSON::Object::Ptr ResponseObject::getPaging() const
{
    return JSONObject->getObject(FIELD_PAGING);
}

void ResponseObject::setPaging(const Poco::JSON::Object::Ptr& paging)
{
    setMember(FIELD_PAGING, paging.isNull() ? Poco::Dynamic::Var() : Poco::Dynamic::Var(deepCopy(*paging)));
}

Poco::JSON::Object::Ptr ResponseObject::getDataAsJsonObject() const
{
    return JSONObject->getObject(FIELD_DATA);
}

Poco::JSON::Array::Ptr ResponseObject::getDataAsJsonArray() const
{
    return JSONObject->getArray(FIELD_DATA);
}

void ResponseObject::setData(const Poco::JSON::Object::Ptr& data)
{
    setMember(FIELD_DATA, data.isNull() ? Poco::Dynamic::Var() : Poco::Dynamic::Var(data));
    m_text.dataChanged();
}

void ResponseObject::setData(const Poco::JSON::Array::Ptr& data)
{
    setMember(FIELD_DATA, data.isNull() ? Poco::Dynamic::Var() : Poco::Dynamic::Var(data));
    m_text.dataChanged();
}

bool ResponseObject::hasData() const
{
    return JSONObject->has(FIELD_DATA);
}

void ResponseObject::copyObject(const ResponseObject* source)
{
    if (!source || source == this)
        return;
    StatusObject::operator=(*source);
    separatePaging();
}

void ResponseObject::setTimeStamp()
{
    setMember(FIELD_TIMESTAMP, Timestamp::createTimestamp().asMilliseconds());
}

void ResponseObject::setCustomField(const std::string& key, const Poco::Dynamic::Var& value)
{
    setMember(key, value);
    m_text.dataChanged(); // the value may hold parts that others hold too
}

void ResponseObject::separatePaging()
{
    if (const Poco::JSON::Object::Ptr paging = getPaging())
        JSONObject->set(FIELD_PAGING, Poco::JSON::Object::Ptr(new Poco::JSON::Object(*paging)));
}

} // namespace Kesa::Command
