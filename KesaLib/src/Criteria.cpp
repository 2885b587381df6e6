#include "Command/Query/RenderCriterion.h"
#include "Command/Query/SearchCriterion.h"

namespace Kesa::Command
{

QueryParameter::QueryParameter(bool valid): m_valid(valid) {}
QueryParameter::~QueryParameter() = default;

RenderCriterion::RenderCriterion(bool valid): QueryParameter(valid) {}
RenderCriterion::~RenderCriterion() = default;

SearchCriterion::SearchCriterion(bool valid): QueryParameter(valid) {}
SearchCriterion::~SearchCriterion() = default;

} // namespace Kesa::Command
