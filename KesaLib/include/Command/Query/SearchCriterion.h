#pragma once

#include "QueryParameter.h"

namespace Kesa::Command
{

/// A parameter that selects by content.
class KESA_API SearchCriterion: public QueryParameter
{
public:
    explicit SearchCriterion(bool valid = true);
    ~SearchCriterion() override;

protected:
    SearchCriterion(const SearchCriterion&) = default;
    SearchCriterion& operator=(const SearchCriterion&) = default;
};

} // namespace Kesa::Command
