#pragma once

#include "StatusObject.h"

#include <Poco/JSON/Array.h>

namespace Kesa::Command
{

/// A response: a JSON document with status, data, a paging block and a time stamp.
///
/// Ownership: shares the data that it is given; copies the paging block, so that two responses never hold the same one.
/// Threads:   as StatusObject.
class KESA_API ResponseObject: public StatusObject
{
public:
    typedef Poco::SharedPtr<ResponseObject> Ptr;

    static const JsonFieldName FIELD_PAGING;
    static const JsonFieldName FIELD_PAGING_OFFSET_ID;
    static const JsonFieldName FIELD_PAGING_OFFSET;
    static const JsonFieldName FIELD_PAGING_LIMIT;
    static const JsonFieldName FIELD_PAGING_TOTAL;
    static const JsonFieldName FIELD_PAGING_TOTAL_PAGES;
    static const JsonFieldName FIELD_PAGING_PREVIOUS;
    static const JsonFieldName FIELD_PAGING_NEXT;
    static const JsonFieldName FIELD_TIMESTAMP;
    static const JsonFieldName FIELD_DATA;
    static const JsonFieldName FIELD_SERVICE;

    /// A response with nothing in it.
    ResponseObject();
    /// A response with `data`; null gives an empty one.
    explicit ResponseObject(const Poco::JSON::Array::Ptr& data);
    explicit ResponseObject(const Poco::JSON::Object::Ptr& data);
    /// An error response, as setErrorStatus makes it.
    ResponseObject(int code, const std::string& message);
    ResponseObject(const ResponseObject& other);
    ~ResponseObject() override;
    ResponseObject& operator=(const ResponseObject& other);

    /// The paging block, null when there is none.
    Poco::JSON::Object::Ptr getPaging() const;
    /// Stores a copy of `paging`; null removes the block.
    void setPaging(const Poco::JSON::Object::Ptr& paging);

    /// The data, null when it is of the other kind or absent.
    Poco::JSON::Object::Ptr getDataAsJsonObject() const;
    Poco::JSON::Array::Ptr getDataAsJsonArray() const;
    /// Shares `data`; null removes the data.
    void setData(const Poco::JSON::Object::Ptr& data);
    void setData(const Poco::JSON::Array::Ptr& data);
    bool hasData() const;

    /// Makes this response carry the whole content of `source`: shares its data, copies its paging block. Null changes
    /// nothing.
    void copyObject(const ResponseObject* source);
    /// Writes the present time, in milliseconds since the process's time origin.
    void setTimeStamp();
    /// Sets any further key; an empty value removes it.
    void setCustomField(const std::string& key, const Poco::Dynamic::Var& value);

protected:
    /// Gives this object's document a paging block of its own.
    void separatePaging();
};

} // namespace Kesa::Command
