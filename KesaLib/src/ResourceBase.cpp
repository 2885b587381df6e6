#include "Data/ResourceBase.h"

namespace Kesa::Data
{

const std::string ResourceBase::KEY_DESCRIPTION = "description";

ResourceBase::ResourceBase(XObjectId id): XObjectBase(id) {}

ResourceBase::~ResourceBase() = default;

} // namespace Kesa::Data
