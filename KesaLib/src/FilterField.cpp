#include "Command/Query/FilterField.h"

namespace Kesa::Command
{

FilterField::FilterField(const std::string& name, const Poco::SharedPtr<Paging>& paging): m_name(name), m_paging(paging)
{
}

} // namespace Kesa::Command
