#pragma once

#include <Command/RequestBase.h>

#include <vector>

namespace Kesa::Service
{

/// The render criteria of class T of a request, or null when it has none.
template <class T>
const std::vector<Poco::SharedPtr<Command::RenderCriterion>>* findRenderCriteria(const Command::RequestBase& request)
{
    const auto entry = request.renderCriteria.find(Command::RequestBase::criteriaKey<T>());
    return entry == request.renderCriteria.end() ? nullptr : &entry->second;
}

} // namespace Kesa::Service
