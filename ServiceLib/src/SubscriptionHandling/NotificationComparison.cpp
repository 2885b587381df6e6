#include "SubscriptionObject.h"

#include <Command/WebSocketResponseObject.h>

namespace Kesa::Service
{

using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{

/// Above the first level only these members tell one object from another.
bool isIdentifying(const std::string& key)
{
    return key == PROPERTY_KEY_UUID || key == "uri" || key == "name";
}

bool isObject(const Var& value)
{
    return value.type() == typeid(Object::Ptr) || value.type() == typeid(Object);
}

bool hasId(const Object::Ptr& element)
{
    return !element.isNull() && element->has(PROPERTY_KEY_UUID);
}

/// Whether two elements of a list stand for the same thing. Elements without an id cannot be told apart.
bool isSameElement(const Object::Ptr& a, const Object::Ptr& b)
{
    if (hasId(a) != hasId(b) || a.isNull() != b.isNull())
        return false;
    return !hasId(a) ||
           a->get(PROPERTY_KEY_UUID).convert<std::string>() == b->get(PROPERTY_KEY_UUID).convert<std::string>();
}

bool identifyingMembersEqual(const Object& a, const Object& b)
{
    for (const auto& [key, value]: a)
    {
        if (isIdentifying(key) && value != b.get(key))
            return false;
    }
    return true;
}

} // namespace

bool SubscriptionObject::isEqualData(const NotificationPtr& dataA, const NotificationPtr& dataB)
{
    if (dataA.isNull() || dataB.isNull())
        return false;
    // As pointers: two notifications that each carry a paging block never count as equal.
    if (dataA->getPaging() != dataB->getPaging())
        return false;
    const Object::Ptr object = dataA->getDataAsJsonObject();
    if (!object.isNull())
        return firstLevelCompare(object, dataB->getDataAsJsonObject(), 0);
    return firstLevelCompare(dataA->getDataAsJsonArray(), dataB->getDataAsJsonArray(), 0);
}

bool SubscriptionObject::isEqualDataList(const NotificationPtr& dataA, const NotificationPtr& dataB)
{
    if (dataA.isNull() || dataB.isNull())
        return dataA.isNull() && dataB.isNull();
    if (dataA->getPaging() != dataB->getPaging())
        return false;
    const Array::Ptr listA = dataA->getDataAsJsonArray();
    const Array::Ptr listB = dataB->getDataAsJsonArray();
    if (listA.isNull() || listB.isNull() || listA->size() != listB->size())
        return false;
    for (std::size_t index = 0; index < listA->size(); ++index)
    {
        if (!isSameElement(listA->get(index).extract<Object::Ptr>(), listB->get(index).extract<Object::Ptr>()))
            return false;
    }
    return true;
}

bool SubscriptionObject::firstLevelCompare(const Object::Ptr& objDataA, const Object::Ptr& objDataB, uint8_t level)
{
    if (objDataA.isNull() || objDataB.isNull())
        return objDataA.isNull() && objDataB.isNull();
    if (level != 0)
        return identifyingMembersEqual(*objDataA, *objDataB);
    if (objDataA->size() != objDataB->size())
        return false;
    // Members are sorted by key, so with equal counts the same keys stand at the same places.
    auto memberB = objDataB->begin();
    for (auto memberA = objDataA->begin(); memberA != objDataA->end(); ++memberA, ++memberB)
    {
        if (memberA->first != memberB->first)
            return false;
        const Var& a = memberA->second;
        const Var& b = memberB->second;
        bool isEqual;
        if (a.isArray())
            isEqual = firstLevelCompare(a.extract<Array::Ptr>(), b.extract<Array::Ptr>(), 1);
        else if (isObject(a))
            isEqual = firstLevelCompare(a.extract<Object::Ptr>(), b.extract<Object::Ptr>(), 1);
        else
            isEqual = !(a != b);
        if (!isEqual)
            return false;
    }
    return true;
}

bool SubscriptionObject::firstLevelCompare(const Array::Ptr& arrayDataA, const Array::Ptr& arrayDataB, uint8_t level)
{
    if (arrayDataA.isNull() || arrayDataB.isNull())
        return arrayDataA.isNull() && arrayDataB.isNull();
    if (arrayDataA->size() != arrayDataB->size())
        return false;
    for (unsigned int index = 0; index < arrayDataA->size(); ++index)
    {
        const Var a = arrayDataA->get(index);
        const Var b = arrayDataB->get(index);
        bool isEqual;
        if (arrayDataA->isObject(index))
            isEqual = firstLevelCompare(a.extract<Object::Ptr>(), b.extract<Object::Ptr>(), level);
        else if (arrayDataA->isArray(index))
            isEqual = firstLevelCompare(a.extract<Array::Ptr>(), b.extract<Array::Ptr>(), level + 1);
        else
            isEqual = !(a != b);
        if (!isEqual)
            return false;
    }
    return true;
}

} // namespace Kesa::Service
