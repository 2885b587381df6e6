#include "Followers.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/WebSocket.h>

#include <cstdio>
#include <cstring>
#include <list>
#include <stdexcept>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace RestBench
{

struct Followers::Order
{
    Poco::UInt16 port;
    unsigned count;
    char url[128];
};

Followers::Followers()
{
    if (::pipe(m_orders) != 0 || ::pipe(m_answers) != 0)
        throw std::runtime_error("no pipes");
    m_process = ::fork();
    if (m_process == 0)
        live();
    ::close(m_orders[0]);
    ::close(m_answers[1]);
}

Followers::~Followers()
{
    ::close(m_orders[1]);
    ::close(m_answers[0]);
    ::waitpid(m_process, nullptr, 0);
}

void Followers::add(Poco::UInt16 port, const std::string& url, unsigned count)
{
    Order order{port, count, ""};
    url.copy(order.url, sizeof order.url - 1);
    char done = 0;
    if (::write(m_orders[1], &order, sizeof order) != sizeof order || ::read(m_answers[0], &done, 1) != 1)
        throw std::runtime_error("the followers are gone");
}

void Followers::open(int poller, const Order& order)
{
    static std::list<Poco::Net::WebSocket> sockets; // as long as the process
    const std::string subscribe = std::string(R"({"type":"subscribe","event":")") + order.url + "\"}";
    for (unsigned i = 0; i < order.count; ++i)
    {
        Poco::Net::HTTPClientSession session("127.0.0.1", order.port);
        Poco::Net::HTTPRequest request(Poco::Net::HTTPRequest::HTTP_GET, "/", Poco::Net::HTTPMessage::HTTP_1_1);
        Poco::Net::HTTPResponse response;
        sockets.emplace_back(session, request, response);
        sockets.back().sendFrame(subscribe.data(), static_cast<int>(subscribe.size()));
        char buffer[4096];
        int flags = 0;
        sockets.back().receiveFrame(buffer, sizeof buffer, flags); // the acknowledgement
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = sockets.back().impl()->sockfd();
        ::epoll_ctl(poller, EPOLL_CTL_ADD, event.data.fd, &event);
    }
}

void Followers::live()
{
    ::close(m_orders[1]);
    ::close(m_answers[0]);
    const int poller = ::epoll_create1(0);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = m_orders[0];
    ::epoll_ctl(poller, EPOLL_CTL_ADD, m_orders[0], &event);
    try
    {
        while (::epoll_wait(poller, &event, 1, -1) == 1)
        {
            char buffer[65536];
            if (event.data.fd != m_orders[0])
            {
                if (::recv(event.data.fd, buffer, sizeof buffer, MSG_DONTWAIT) == 0)
                    ::epoll_ctl(poller, EPOLL_CTL_DEL, event.data.fd, nullptr);
                continue;
            }
            Order order;
            if (::read(m_orders[0], &order, sizeof order) != sizeof order)
                ::_exit(0);
            open(poller, order);
            if (::write(m_answers[1], "d", 1) != 1)
                ::_exit(0);
        }
    }
    catch (const Poco::Exception& e)
    {
        std::fprintf(stderr, "rest: follower: %s\n", e.displayText().c_str());
    }
    ::_exit(1);
}

} // namespace RestBench
