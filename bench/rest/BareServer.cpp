#include "BareServer.h"

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/StreamCopier.h>

#include <utility>

namespace RestBench
{

namespace
{

class Handler: public Poco::Net::HTTPRequestHandler
{
public:
    explicit Handler(const BareServer::Texts& texts): m_texts(texts) {}

    void handleRequest(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response) override
    {
        if (request.hasContentLength())
        {
            std::string body;
            Poco::StreamCopier::copyToString(request.stream(), body);
        }
        const std::string& text = m_texts.at(request.getURI());
        response.setContentType("application/json");
        response.sendBuffer(text.data(), text.size());
    }

private:
    const BareServer::Texts& m_texts;
};

class Factory: public Poco::Net::HTTPRequestHandlerFactory
{
public:
    explicit Factory(BareServer::Texts texts): m_texts(std::move(texts)) {}

    Poco::Net::HTTPRequestHandler* createRequestHandler(const Poco::Net::HTTPServerRequest&) override
    {
        return new Handler(m_texts);
    }

private:
    const BareServer::Texts m_texts;
};

Poco::Net::HTTPServerParams::Ptr params()
{
    Poco::Net::HTTPServerParams::Ptr params = new Poco::Net::HTTPServerParams;
    params->setKeepAlive(true);
    params->setMaxKeepAliveRequests(0); // as many as the client likes
    return params;
}

} // namespace

BareServer::BareServer(Texts texts)
    : m_server(new Factory(std::move(texts)), m_threads,
               Poco::Net::ServerSocket(Poco::Net::SocketAddress("127.0.0.1", 0)), params())
{
    m_server.start();
}

BareServer::~BareServer()
{
    m_server.stopAll(true);
}

} // namespace RestBench
