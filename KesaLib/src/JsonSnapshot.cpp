#include "JsonSnapshot.h"

#include "JsonWriter.h"

#include <deque>
#include <list>

namespace Kesa::Command
{

namespace
{
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

/// What is done with a part that nobody else holds: it is walked in place, or it is copied all the same because it is
/// reached through a part that others hold.
enum class Unshared
{
    KEEP,
    COPY
};

void separate(Var& value, Unshared unshared, int depth);

void separateParts(Object& object, Unshared unshared, int depth)
{
    for (auto& member: object)
        separate(member.second, unshared, depth + 1);
}

void separateParts(Array& array, Unshared unshared, int depth)
{
    // The array gives out constant iterators only, but neither it nor its elements are constant here.
    for (const Var& element: array)
        separate(const_cast<Var&>(element), unshared, depth + 1);
}

/// `value` holds a shared pointer to a `T`.
template <class T>
void separatePointer(Var& value, Unshared unshared, int depth)
{
    const Poco::SharedPtr<T> part = value.extract<Poco::SharedPtr<T>>();
    if (part.isNull())
        return;
    const int ownReferences = 2; // that of `value` and that of `part`
    if (unshared == Unshared::KEEP && part.referenceCount() <= ownReferences)
    {
        separateParts(const_cast<T&>(*part), unshared, depth);
        return;
    }
    const Poco::SharedPtr<T> copy = new T(*part);
    separateParts(const_cast<T&>(*copy), Unshared::COPY, depth);
    value = copy;
}

/// `value` holds a `T` itself. Its copy shares the parts with it, so these are copied in any case.
template <class T>
void separateValue(Var& value, int depth)
{
    T copy(value.extract<T>());
    separateParts(copy, Unshared::COPY, depth);
    value = copy;
}

/// As separateValue, for the lists of POCO's dynamic types.
template <class T>
void separateList(Var& value, int depth)
{
    T copy(value.extract<T>());
    for (Var& element: copy)
        separate(element, Unshared::COPY, depth + 1);
    value = copy;
}

/// As separateValue, for the structures of POCO's dynamic types.
template <class T>
void separateStruct(Var& value, int depth)
{
    T copy;
    for (const auto& member: value.extract<T>())
    {
        Var part = member.second;
        separate(part, Unshared::COPY, depth + 1);
        copy.insert(member.first, part);
    }
    value = copy;
}

void separate(Var& value, Unshared unshared, int depth)
{
    const std::type_info& type = value.type();
    if (depth >= MAX_JSON_DEPTH) // never written, so whoever holds it may change it
        value.clear();
    else if (type == typeid(Object::Ptr))
        separatePointer<Object>(value, unshared, depth);
    else if (type == typeid(Array::Ptr))
        separatePointer<Array>(value, unshared, depth);
    else if (type == typeid(Object))
        separateValue<Object>(value, depth);
    else if (type == typeid(Array))
        separateValue<Array>(value, depth);
    else if (type == typeid(std::vector<Var>))
        separateList<std::vector<Var>>(value, depth);
    else if (type == typeid(std::list<Var>))
        separateList<std::list<Var>>(value, depth);
    else if (type == typeid(std::deque<Var>))
        separateList<std::deque<Var>>(value, depth);
    else if (type == typeid(Poco::DynamicStruct))
        separateStruct<Poco::DynamicStruct>(value, depth);
    else if (type == typeid(Poco::OrderedDynamicStruct))
        separateStruct<Poco::OrderedDynamicStruct>(value, depth);
}
} // namespace

Object::Ptr deepCopy(const Object& object)
{
    Object::Ptr copy = new Object(object);
    separateParts(*copy, Unshared::COPY, 0);
    return copy;
}

void separateFromOthers(Object& object)
{
    separateParts(object, Unshared::KEEP, 0);
}

} // namespace Kesa::Command
