#pragma once

#include "BodyReader.h"
#include "ElementLocks.h"
#include "Export.h"
#include "RestAnswer.h"

#include "DataAccess/ServiceDataAccessPoint.h"

namespace Kesa::Command
{
class RequestBase;
class UrlPath;
} // namespace Kesa::Command

namespace Kesa::Host
{

class ConditionalRequest;
class DataAccessTrigger;

/// Answers POST, PUT and DELETE: changes the data access point and reports what was changed to the trigger.
///
/// A condition on an element's state is judged, and the state changed, in one step as far as all who write through the
/// same object are concerned. A change is reported once it is stored, with no lock held.
///
/// Threads: write() from any thread, at once; data access point and trigger are called on it.
/// Errors:  exceptions of the data access point go to the caller. One of the trigger is logged, since the change
/// stands.
class KESA_API RestWriter
{
public:
    /// `bodyWaiters`: how many threads may wait for long bodies.
    explicit RestWriter(unsigned bodyWaiters): m_bodies(bodyWaiters) {}

    /// Carries out the request, whose method is one that its URL knows.
    RestAnswer write(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response,
                     const Command::RequestBase& wanted, DataAccessTrigger& trigger);

private:
    /// A request with its body on its way to the data.
    struct Change;

    RestAnswer create(const Change& change);
    RestAnswer createAt(const Change& change);
    RestAnswer update(const Change& change);
    RestAnswer remove(const Change& change);
    RestAnswer removeMembers(const Change& change);
    static bool hasResource(const Change& change);
    Util::FastMutex& lockOf(const Change& change);
    static RestAnswer judge(const Change& change, const Data::ElementBase::Ptr& current);

    BodyReader m_bodies;
    ElementLocks m_locks;
};

} // namespace Kesa::Host
