#pragma once

#include "Messages.h"

#include <DataAccessTrigger.h>
#include <GenericServiceBootstrap.h>
#include <InMemoryDataAccessPoint.h>
#include <ServiceHost.h>

#include <Poco/JSON/Array.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/StreamCopier.h>

#include <string>

namespace Kesa::Test
{

/// A running service over a store in memory: "/board/notes", which clients read, write and follow.
class Board
{
public:
    Board(): host(m_bootstrap, Host::ServiceHost::Options())
    {
        m_bootstrap.store->addService("board");
        m_bootstrap.store->addResource("board", "notes");
        host.start();
    }
    ~Board() { host.stop(); }
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

private:
    class Bootstrap: public Service::GenericServiceBootstrap
    {
    public:
        Host::InMemoryDataAccessPoint::Ptr store{new Host::InMemoryDataAccessPoint};

    protected:
        bool startupImpl() override { return true; }
        bool shutdownImpl() override { return true; }
        Service::SubscriptionTrigger::Ptr createSubscriptionInterface() override
        {
            return new Host::DataAccessTrigger(store);
        }
    };

    Bootstrap m_bootstrap;

public:
    Host::ServiceHost host;
};

/// A client of the REST interface on one connection.
///
/// Threads: one at a time.
class RestClient
{
public:
    struct Answer
    {
        int status = 0;
        std::string etag;
        Poco::JSON::Object::Ptr document;

        Poco::JSON::Object::Ptr object() const { return document->getObject("data"); }
        Poco::JSON::Array::Ptr list() const { return document->getArray("data"); }
    };

    explicit RestClient(const Board& board): m_session("127.0.0.1", board.host.port()) { m_session.setKeepAlive(true); }

    Answer send(const std::string& method, const std::string& url, const std::string& body = "",
                const std::string& ifMatch = "")
    {
        Poco::Net::HTTPRequest request(method, url, Poco::Net::HTTPMessage::HTTP_1_1);
        if (!ifMatch.empty())
            request.set("If-Match", ifMatch);
        if (!body.empty())
        {
            request.setContentType("application/json");
            request.setContentLength64(static_cast<Poco::Int64>(body.size()));
        }
        std::ostream& stream = m_session.sendRequest(request);
        m_session.socket().setNoDelay(true); // head and body leave at once
        stream << body;
        Poco::Net::HTTPResponse response;
        std::string text;
        Poco::StreamCopier::copyToString(m_session.receiveResponse(response), text);
        return {response.getStatus(), response.get("ETag", ""), parsed(text)};
    }
    Answer get(const std::string& url) { return send("GET", url); }

private:
    Poco::Net::HTTPClientSession m_session;
};

} // namespace Kesa::Test
