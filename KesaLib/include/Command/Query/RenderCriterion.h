#pragma once

#include "QueryParameter.h"

namespace Kesa::Command
{

/// A parameter that shapes the answer. An unknown key that begins with "$" is kept as a plain, invalid one of these.
class KESA_API RenderCriterion: public QueryParameter
{
public:
    explicit RenderCriterion(bool valid = true);
    ~RenderCriterion() override;

protected:
    RenderCriterion(const RenderCriterion&) = default;
    RenderCriterion& operator=(const RenderCriterion&) = default;
};

} // namespace Kesa::Command
