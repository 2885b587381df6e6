#pragma once

#include "FilterField.h"
#include "RenderCriterion.h"

#include <set>
#include <string>
#include <vector>

namespace Kesa::Command
{

/// The fields that a request selects: "$fields=a,b".
class KESA_API FilterParameter: public RenderCriterion
{
public:
    /// `value` is a list of names with commas between them; one that is empty, or holds an empty name, is invalid.
    explicit FilterParameter(const std::string& value);
    ~FilterParameter() override;

    /// The fields in the order of the URL, each name once; none if the parameter is invalid.
    const std::vector<FilterField>& getFields() const { return m_fields; }
    /// Whether `name` is one of the fields; quick however many they are.
    bool contains(const std::string& name) const { return m_names.count(name) != 0; }

private:
    std::vector<FilterField> m_fields;
    std::set<std::string> m_names;
};

} // namespace Kesa::Command
