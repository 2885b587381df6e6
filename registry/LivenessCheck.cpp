#include "LivenessCheck.h"

#include <Poco/Ascii.h>

#include <cerrno>
#include <new>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kesa::Registry
{

namespace
{

/// What each first line of an HTTP answer begins with; '0' stands for any digit.
constexpr std::string_view FORM = "HTTP/0.0 000";

bool isStatusLine(std::string_view text)
{
    for (std::size_t i = 0; i < FORM.size(); ++i)
        if (FORM[i] == '0' ? !Poco::Ascii::isDigit(static_cast<unsigned char>(text[i])) : text[i] != FORM[i])
            return false;
    return true;
}

/// True if `error` says that this machine lacks something, and nothing about the service.
bool isOwnLack(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM || error == EADDRNOTAVAIL ||
           error == EAGAIN;
}

} // namespace

LivenessCheck::~LivenessCheck()
{
    if (m_socket >= 0)
        ::close(m_socket);
}

LivenessCheck::State LivenessCheck::begin(const Poco::Net::SocketAddress& address, const std::string& uri)
{
    try
    {
        m_request = "HEAD " + uri + " HTTP/1.1\r\nHost: " + address.toString() + "\r\nConnection: close\r\n\r\n";
    }
    catch (const std::bad_alloc&)
    {
        return State::NotAsked;
    }
    m_socket = ::socket(address.af(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (m_socket < 0)
        return isOwnLack(errno) ? State::NotAsked : State::Dead;
    if (::connect(m_socket, address.addr(), address.length()) == 0)
        return send();
    if (errno == EINPROGRESS)
        return State::Waiting;
    return isOwnLack(errno) ? State::NotAsked : State::Dead;
}

unsigned LivenessCheck::events() const
{
    return m_request.empty() ? EPOLLIN : EPOLLOUT;
}

LivenessCheck::State LivenessCheck::proceed()
{
    return m_request.empty() ? receive() : send();
}

LivenessCheck::State LivenessCheck::send()
{
    const ssize_t count = ::send(m_socket, m_request.data(), m_request.size(), MSG_NOSIGNAL);
    if (count < 0)
        return errno == EAGAIN || errno == EINTR ? State::Waiting : State::Dead; // Dead also if it did not connect
    m_request.erase(0, static_cast<std::size_t>(count));
    return State::Waiting;
}

LivenessCheck::State LivenessCheck::receive()
{
    char buffer[FORM.size()];
    const ssize_t count = ::recv(m_socket, buffer, FORM.size() - m_answer.size(), 0);
    if (count < 0)
        return errno == EAGAIN || errno == EINTR ? State::Waiting : State::Dead;
    m_answer.append(buffer, static_cast<std::size_t>(count));
    if (count > 0 && m_answer.size() < FORM.size())
        return State::Waiting;
    return m_answer.size() == FORM.size() && isStatusLine(m_answer) ? State::Alive : State::Dead;
}

} // namespace Kesa::Registry
