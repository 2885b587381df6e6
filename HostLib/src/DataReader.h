#pragma once

#include "DataAnswer.h"
#include "DeclaredMembers.h"
#include "Export.h"
#include "QueryCheck.h"

#include <Poco/SharedPtr.h>

namespace Kesa::Command
{
class UrlPath;
}
namespace Kesa::Service
{
class ServiceDataAccessPoint;
}

namespace Kesa::Host
{

/// Reads what stands at a URL from a data access point, as the URL's query asks. The one reader for HTTP and for
/// subscriptions.
///
/// Ownership: shares the data access point.
/// Threads:   every operation from any thread; the data access point is called on it.
/// Errors:    exceptions of the data access point go to the caller.
class KESA_API DataReader
{
public:
    explicit DataReader(const Poco::SharedPtr<Service::ServiceDataAccessPoint>& data);
    ~DataReader();

    /// What stands there, or the refusal that check() gives.
    DataAnswer read(const Command::RequestBase& request);
    /// Whether there is something at the URL (404), and whether its query can be answered (400, 403).
    QueryVerdict check(const Command::RequestBase& request);

private:
    QueryVerdict checkMembers(const Command::RequestBase& request);
    bool exists(const Command::UrlPath& url);
    std::vector<DataRow> rowsAt(const Command::UrlPath& url);
    DataAnswer readElement(const Command::RequestBase& request);
    void expand(DataAnswer& answer, const Command::RequestBase& request);

    Poco::SharedPtr<Service::ServiceDataAccessPoint> m_data;
    DeclaredMembers m_declared;
};

} // namespace Kesa::Host
