#include "RequestRunner.h"

#include "DoorConnection.h"
#include "ErrorDocument.h"
#include "LogStream.h"
#include "Time/Now.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/HTTPServerResponseImpl.h>
#include <Poco/Net/HTTPServerSession.h>
#include <Poco/Net/NetException.h>
#include <Poco/Timestamp.h>

namespace Kesa::Host
{

namespace
{

/// True if nothing of the request is still on its way, so that the next request begins right behind it.
bool isWhole(const RequestHead& head, const DoorSocket& socket)
{
    return !head.chunked && (head.bodyLength == 0 || socket.hasArrived(head.length + head.bodyLength));
}

/// True if the handler made a websocket of the connection, whose socket then belongs to others and is not touched any
/// more.
bool isTaken(Poco::Net::HTTPServerRequestImpl& request, DoorConnection& connection)
{
    return request.session().socket().impl() != connection.socket.impl();
}

} // namespace

RequestRunner::RequestRunner(FrontDoor::Handler handler, const FrontDoor::Options& options)
    : m_handler(std::move(handler)), m_bodyTimeout(options.bodyTimeout), m_params(new Poco::Net::HTTPServerParams)
{
}

RequestRunner::~RequestRunner() = default;

void RequestRunner::serve(DoorConnection& connection) const
{
    connection.closes = true;
    try
    {
        Poco::Net::HTTPServerSession session(connection.socket, m_params);
        try
        {
            connection.closes = !exchange(session, connection);
        }
        catch (const Poco::Net::MessageException&) // POCO refuses what the front door let pass; nothing was sent
        {
            const std::string answer = rawErrorAnswer(400, "The request head is malformed.");
            connection.door().sendBytes(answer.data(), static_cast<int>(answer.size()));
        }
        catch (const Poco::Exception& e) // the client has gone, as a rule
        {
            KESA_LOG_INFO("A request of " << connection.address << " failed: " << e.displayText());
        }
        session.detachSocket(); // the descriptor stays ours when the session goes
    }
    catch (const std::exception& e)
    {
        KESA_LOG_ERROR("A request of " << connection.address << " failed: " << e.what());
    }
    if (!connection.isTaken)
        connection.door().flush();
}

bool RequestRunner::exchange(Poco::Net::HTTPServerSession& session, DoorConnection& connection) const
{
    DoorSocket& socket = connection.door();
    const RequestHead& head = connection.parser.head();
    const bool whole = isWhole(head, socket);
    Poco::Clock deadline = Kesa::Util::now();
    deadline += m_bodyTimeout * 1000;
    socket.beginRequest(head.chunked ? DoorSocket::UNLIMITED : head.length + head.bodyLength, deadline);

    session.hasMoreRequests(); // without it the session does not keep the connection alive
    Poco::Net::HTTPServerResponseImpl response(session);
    Poco::Net::HTTPServerParams::Ptr params(m_params);
    Poco::Net::HTTPServerRequestImpl request(response, session, params.get());
    response.setDate(Poco::Timestamp());
    response.setVersion(request.getVersion());
    response.setKeepAlive(whole && request.getKeepAlive());
    answer(request, response, connection);
    if (connection.isTaken)
        return false;
    if (whole)
        socket.discardUnread();
    return whole && response.getKeepAlive();
}

void RequestRunner::answer(Poco::Net::HTTPServerRequestImpl& request, Poco::Net::HTTPServerResponse& response,
                           DoorConnection& connection) const
{
    try
    {
        m_handler(request, response);
        connection.isTaken = isTaken(request, connection);
        if (response.sent())
            return;
        KESA_LOG_ERROR("The handler of " << request.getMethod() << " " << request.getURI() << " sent no answer.");
    }
    catch (const Poco::Exception& e)
    {
        KESA_LOG_ERROR("The handler of " << request.getMethod() << " " << request.getURI()
                                         << " failed: " << e.displayText());
    }
    catch (const std::exception& e)
    {
        KESA_LOG_ERROR("The handler of " << request.getMethod() << " " << request.getURI() << " failed: " << e.what());
    }
    catch (...)
    {
        KESA_LOG_ERROR("The handler of " << request.getMethod() << " " << request.getURI() << " failed.");
    }
    connection.isTaken = isTaken(request, connection);
    if (response.sent())
        response.setKeepAlive(false); // half an answer: only the end of the connection tells the client
    else
        sendError(response, 500, "The service failed to answer this request.");
}

} // namespace Kesa::Host
