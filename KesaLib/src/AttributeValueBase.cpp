#include "Data/AttributeValueBase.h"

namespace Kesa::Data
{

AttributeValueBase::~AttributeValueBase() = default;

} // namespace Kesa::Data
