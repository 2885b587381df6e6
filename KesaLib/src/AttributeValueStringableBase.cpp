#include "Data/AttributeValueStringableBase.h"

namespace Kesa::Data
{

AttributeValueStringableBase::~AttributeValueStringableBase() = default;

} // namespace Kesa::Data
