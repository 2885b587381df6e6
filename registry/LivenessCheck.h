#pragma once

#include <Poco/Net/SocketAddress.h>

#include <string>

namespace Kesa::Registry
{

/// One question to a service whether it lives: a connection of its own, "HEAD <uri>", and the first line of any HTTP
/// answer. Never waits.
///
///     LivenessCheck check;
///     if (check.begin(address, uri) == LivenessCheck::State::Waiting)
///         ... wait until check.descriptor() is ready for check.events(), then check.proceed(), until it is not Waiting
///
/// Ownership: owns its socket.
/// Threads:   one thread at a time.
class LivenessCheck
{
public:
    enum class State
    {
        Waiting,
        Alive,
        Dead,
        NotAsked ///< this machine has no descriptor, port or memory left for it: nothing is known of the service
    };

    LivenessCheck() = default;
    ~LivenessCheck();
    LivenessCheck(const LivenessCheck&) = delete;
    LivenessCheck& operator=(const LivenessCheck&) = delete;

    State begin(const Poco::Net::SocketAddress& address, const std::string& uri);
    State proceed();

    int descriptor() const { return m_socket; }
    /// What to wait for, as epoll names it.
    unsigned events() const;

private:
    State send();
    State receive();

    int m_socket = -1;
    std::string m_request; ///< empty once it is sent
    std::string m_answer;  ///< the beginning of its first line
};

} // namespace Kesa::Registry
