#include "Data/AttributeBase.h"

namespace Kesa::Data
{

AttributeBase::AttributeBase(XObjectId parent): m_parentId(parent) {}

AttributeBase::AttributeBase(AttributeBase&& other) noexcept: m_parentId(other.m_parentId) {}

AttributeBase::~AttributeBase() = default;

} // namespace Kesa::Data
