#pragma once

#include "AttributeValueBase.h"

#include <cmath>
#include <type_traits>
#include <utility>

namespace Kesa::Data
{

/// A value of the type `V`, with the base `B`: AttributeValueBase, or AttributeValueStringableBase for values that have
/// a text. Only derived classes can be built from a value.
///
/// Threads: a value; different objects are independent.
template <class V, class B>
class KESA_API AttributeValue: public B
{
public:
    typedef V value_type;
    typedef AttributeValue<V, B> this_type;

    AttributeValue(const AttributeValue&) = default;
    AttributeValue(AttributeValue&&) noexcept = default;
    AttributeValue& operator=(const AttributeValue&) = default;
    AttributeValue& operator=(AttributeValue&&) noexcept = default;
    ~AttributeValue() override = default;

    const std::type_info& type() const override { return typeid(V); }
    /// Holds the value in its own type.
    GenericValue asGeneric() const override { return GenericValue(m_value); }
    /// As asGeneric(); numbers that JSON cannot write are null.
    Poco::Dynamic::Var toJSON(int /*expandLevel*/) const override
    {
        if constexpr (std::is_floating_point_v<V>)
            if (!std::isfinite(m_value))
                return Poco::Dynamic::Var();
        return asGeneric();
    }
    bool isXObjReference() const override { return false; }
    bool isArray() const override { return false; }
    bool setValue(const AttributeValueBase& other) override
    {
        const auto* same = dynamic_cast<const this_type*>(&other);
        if (!same)
            return false;
        m_value = same->m_value;
        return true;
    }
    /// A value of another type is compared through the generic values of both, which compare as texts.
    int compare(const AttributeValueBase& other) const override
    {
        if (const auto* same = dynamic_cast<const this_type*>(&other))
            return order(m_value, same->m_value);
        return order(this->asGeneric(), other.asGeneric());
    }

    const value_type& get() const { return m_value; }
    operator const value_type&() const { return m_value; }
    void set(const value_type& value) { m_value = value; }
    void set(value_type&& value) { m_value = std::move(value); }

    bool operator==(const value_type& value) const { return m_value == value; }
    bool operator==(const this_type& other) const { return m_value == other.m_value; }
    bool operator<(const this_type& other) const { return less(m_value, other.m_value); }
    bool operator>(const this_type& other) const { return less(other.m_value, m_value); }

protected:
    explicit AttributeValue(const value_type& value): m_value(value) {}
    explicit AttributeValue(value_type&& value): m_value(std::move(value)) {}

private:
    template <class T>
    static bool less(const T& left, const T& right)
    {
        if constexpr (requires { left < right; })
            return left < right;
        else // a type without an order, such as a URI, is ordered by its text
            return left.toString() < right.toString();
    }
    template <class T>
    static int order(const T& left, const T& right)
    {
        if (less(left, right))
            return -1;
        return less(right, left) ? 1 : 0;
    }

    V m_value;
};

} // namespace Kesa::Data
