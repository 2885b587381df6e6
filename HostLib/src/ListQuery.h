#pragma once

#include "DataRow.h"

#include "Command/Query/SortParameter.h"

#include <Poco/JSON/Object.h>
#include <Poco/SharedPtr.h>

#include <vector>

namespace Kesa::Command
{
class AnyValueSearch;
class AttributeValueSearch;
class Paging;
class RequestBase;
} // namespace Kesa::Command

namespace Kesa::Host
{

/// Selects, orders and pages the objects of a list as the query of a request asks, in this order. Looks into an object
/// only for a search, an order, or a page that begins at an id.
///
/// Ownership: borrows the request.
/// Threads:   one thread at a time.
class KESA_API ListQuery
{
public:
    explicit ListQuery(const Command::RequestBase& request);
    ~ListQuery();

    /// Leaves in `rows`, which come in the order of their creation, what belongs on the page. Gives the paging block,
    /// null where none was asked for and all fit on one page.
    Poco::JSON::Object::Ptr apply(std::vector<DataRow>& rows) const;

private:
    bool matches(const DataRow& row) const;
    void filter(std::vector<DataRow>& rows) const;
    void sort(std::vector<DataRow>& rows) const;
    Poco::JSON::Object::Ptr page(std::vector<DataRow>& rows, const Command::Paging& paging) const;

    const Command::RequestBase& m_request;
    std::vector<Poco::SharedPtr<Command::AnyValueSearch>> m_texts;
    std::vector<Poco::SharedPtr<Command::AttributeValueSearch>> m_attributes;
    std::vector<Command::SortParameter::Key> m_order;
    Poco::SharedPtr<Command::Paging> m_paging; ///< null: none was asked for
};

} // namespace Kesa::Host
