#pragma once

#include "Export.h"
#include "FrontDoor.h"

#include <Poco/AutoPtr.h>

namespace Poco::Net
{
class HTTPServerParams;
class HTTPServerRequestImpl;
class HTTPServerSession;
} // namespace Poco::Net

namespace Kesa::Host
{

struct DoorConnection;
struct RequestHead;

/// Runs POCO's session, request and response for the one request that has arrived on a connection, and the handler on
/// them.
///
/// Threads: serve() from any thread, for several connections at once.
class KESA_API RequestRunner
{
public:
    RequestRunner(FrontDoor::Handler handler, const FrontDoor::Options& options);
    ~RequestRunner();

    /// Answers the request whose head the connection's parser has read. Raises nothing. Afterwards the connection's
    /// `closes` says whether another request may follow; and `isTaken` whether the handler
    /// made a websocket of it.
    void serve(DoorConnection& connection) const;

private:
    /// Says how the request ended: true if the connection can carry another one.
    bool exchange(Poco::Net::HTTPServerSession& session, DoorConnection& connection) const;
    void answer(Poco::Net::HTTPServerRequestImpl& request, Poco::Net::HTTPServerResponse& response,
                DoorConnection& connection) const;

    const FrontDoor::Handler m_handler;
    const long m_bodyTimeout;
    const Poco::AutoPtr<Poco::Net::HTTPServerParams> m_params;
};

} // namespace Kesa::Host
