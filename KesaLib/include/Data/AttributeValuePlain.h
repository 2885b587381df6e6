#pragma once

#include "AttributeValue.h"

namespace Kesa::Data
{

/// A number or truth value as the value of an attribute: `long`, `unsigned long`, `double` or `bool`.
///
/// Threads: a value; different objects are independent.
template <class V>
class KESA_API AttributeValuePlain: public AttributeValue<V, AttributeValueBase>
{
public:
    explicit AttributeValuePlain(const V& value): AttributeValue<V, AttributeValueBase>(value) {}
    explicit AttributeValuePlain(V&& value): AttributeValue<V, AttributeValueBase>(std::move(value)) {}
};

} // namespace Kesa::Data
