#include "StopSignal.h"

#include <Poco/Exception.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace Kesa::Client
{
namespace
{

int pipeEnds[2] = {-1, -1};

extern "C" void tellStop(int)
{
    const int error = errno;
    const char byte = 0;
    // A full pipe says already what this byte would say.
    [[maybe_unused]] const ssize_t count = ::write(pipeEnds[1], &byte, 1);
    errno = error;
}

} // namespace

StopSignal::StopSignal()
{
    if (::pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0)
        throw Poco::SystemException("cannot create a pipe", std::strerror(errno));
    struct sigaction action = {};
    action.sa_handler = &tellStop;
    // Without SA_RESTART a write to a reader that does not read is interrupted too.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

StopSignal::~StopSignal()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
}

int StopSignal::descriptor() const
{
    return pipeEnds[0];
}

} // namespace Kesa::Client
