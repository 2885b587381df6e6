#pragma once

#include <Export.h>

namespace Kesa::Command
{

/// One parameter of a URL's query. A parameter that could not be read is kept and marked as invalid.
class KESA_API QueryParameter
{
public:
    explicit QueryParameter(bool valid = true);
    virtual ~QueryParameter();

    bool isValid() const { return m_valid; }
    void setInvalid() { m_valid = false; }

protected:
    QueryParameter(const QueryParameter&) = default;
    QueryParameter& operator=(const QueryParameter&) = default;

    bool m_valid;
};

} // namespace Kesa::Command
