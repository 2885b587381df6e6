#pragma once

#include <Poco/Net/HTTPServer.h>
#include <Poco/ThreadPool.h>
#include <Poco/Types.h>

#include <map>
#include <memory>
#include <string>

namespace RestBench
{

/// The plain choice: POCO's HTTP server with a handler that sends ready-made texts, by URL. It reads a body to its end
/// and looks at nothing in it.
///
/// Threads: built and destroyed on one.
class BareServer
{
public:
    typedef std::map<std::string, std::string> Texts; ///< what is answered, by URL with its query

    explicit BareServer(Texts texts);
    ~BareServer();

    Poco::UInt16 port() const { return m_server.port(); }

private:
    static constexpr int THREADS = 8; ///< as many as a front door has

    Poco::ThreadPool m_threads{THREADS, THREADS};
    Poco::Net::HTTPServer m_server;
};

} // namespace RestBench
