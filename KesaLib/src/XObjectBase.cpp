#include "Data/XObjectBase.h"

#include <Poco/Exception.h>
#include <Poco/String.h>

namespace Kesa::Data
{

namespace
{
/// -1, 0 or 1; an attribute without a value comes first.
int compareValues(const AttributeValueBase* left, const AttributeValueBase* right)
{
    if (left && right)
        return left->compare(*right);
    return (left ? 1 : 0) - (right ? 1 : 0);
}

int compareMaps(const AttributeMap& left, const AttributeMap& right)
{
    auto l = left.begin();
    auto r = right.begin();
    for (; l != left.end() && r != right.end(); ++l, ++r)
    {
        if (const int names = l->first.compare(r->first))
            return names < 0 ? -1 : 1;
        if (const int values = compareValues(l->second->getValueBase(), r->second->getValueBase()))
            return values;
    }
    return (l != left.end() ? 1 : 0) - (r != right.end() ? 1 : 0);
}
} // namespace

const std::string XObjectBase::KEY_ID = "id";
const std::string XObjectBase::KEY_URI = "uri";
const std::string XObjectBase::KEY_NAME = "name";

XObjectBase::XObjectBase(XObjectId id): m_xObjectId(id) {}
XObjectBase::XObjectBase(const XObjectBase& other) = default;
XObjectBase::XObjectBase(XObjectBase&& other) noexcept = default;
XObjectBase& XObjectBase::operator=(const XObjectBase& other) = default;
XObjectBase& XObjectBase::operator=(XObjectBase&& other) noexcept = default;
XObjectBase::~XObjectBase() = default;

bool XObjectBase::operator<(const XObjectBase& other) const
{
    return compare(other) < 0;
}

bool XObjectBase::operator>(const XObjectBase& other) const
{
    return compare(other) > 0;
}

bool XObjectBase::operator==(const XObjectBase& other) const
{
    return compare(other) == 0;
}

bool XObjectBase::operator!=(const XObjectBase& other) const
{
    return compare(other) != 0;
}

int XObjectBase::compare(const XObjectBase& other) const
{
    if (m_xObjectId != other.m_xObjectId)
        return m_xObjectId < other.m_xObjectId ? -1 : 1;
    return m_xObjectId == INVALID_XOBJ_ID ? compareMaps(getAttributes(), other.getAttributes()) : 0;
}

bool XObjectBase::tryParseId(const std::string& text, Poco::UUID& id)
{
    // The parser itself takes a text that goes on behind the id.
    return id.tryParse(text) && Poco::icompare(id.toString(), text) == 0;
}

Poco::UUID XObjectBase::parseId(const std::string& text)
{
    Poco::UUID id;
    if (!tryParseId(text, id))
        throw Poco::InvalidAccessException("Value '" + text + "' for attribute " + KEY_ID + " is no UUID");
    return id;
}

Poco::URI XObjectBase::parseUri(const std::string& text)
{
    try
    {
        return Poco::URI(text);
    }
    catch (const Poco::SyntaxException&)
    {
        throw Poco::InvalidAccessException("Value '" + text + "' for attribute " + KEY_URI + " is no URI");
    }
}

} // namespace Kesa::Data
