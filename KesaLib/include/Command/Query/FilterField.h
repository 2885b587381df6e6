#pragma once

#include "Paging.h"

#include <Poco/SharedPtr.h>

#include <string>

namespace Kesa::Command
{

/// One field that a request selects, with the paging of a list-valued one.
class KESA_API FilterField
{
public:
    /// `paging` may be null.
    explicit FilterField(const std::string& name, const Poco::SharedPtr<Paging>& paging = nullptr);

    const std::string& getName() const { return m_name; }
    const Poco::SharedPtr<Paging>& getPaging() const { return m_paging; }

private:
    std::string m_name;
    Poco::SharedPtr<Paging> m_paging;
};

} // namespace Kesa::Command
