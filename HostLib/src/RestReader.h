#pragma once

#include "DataRow.h"
#include "Export.h"
#include "RestAnswer.h"

namespace Poco::Net
{
class HTTPServerRequest;
}
namespace Kesa::Command
{
class RequestBase;
}
namespace Kesa::Service
{
class SubscriptionTrigger;
}

namespace Kesa::Host
{

class DataAccessTrigger;

/// Answers GET and HEAD. It reads through the trigger, as subscriptions do.
///
/// Threads: every operation from any thread; the trigger is called on it.
class KESA_API RestReader
{
public:
    /// What stands at the URL. An element as a whole comes with its tag, and the conditions of the request hold for it.
    static RestAnswer read(const Poco::Net::HTTPServerRequest& request, const Command::RequestBase& wanted,
                           DataAccessTrigger& trigger);
    /// The same from the data source of a trigger that has no data access point.
    static RestAnswer read(const Poco::Net::HTTPServerRequest& request, const Command::RequestBase& wanted,
                           Service::SubscriptionTrigger& trigger);
    /// A whole element with its tag.
    static RestAnswer wholeElement(const DataRow& row);
};

} // namespace Kesa::Host
