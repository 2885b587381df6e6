#include "RegistryProcess.h"

#include "TestTools.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace Kesa::Registry::Test
{

RegistryProcess::RegistryProcess(const std::vector<std::string>& arguments, const char* program)
{
    int output[2];
    int errors[2];
    if (::pipe2(output, O_CLOEXEC) != 0 || ::pipe2(errors, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    std::vector<char*> argv{const_cast<char*>(program)};
    for (const std::string& argument: arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    m_process = ::fork();
    if (m_process == 0)
    {
        ::dup2(output[1], STDOUT_FILENO);
        ::dup2(errors[1], STDERR_FILENO);
        ::execv(program, argv.data());
        ::_exit(127);
    }
    ::close(output[1]);
    ::close(errors[1]);
    m_output = output[0];
    m_errors = errors[0];
}

RegistryProcess::~RegistryProcess()
{
    if (m_process > 0)
    {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
    }
    ::close(m_output);
    ::close(m_errors);
}

std::string RegistryProcess::readLine(int descriptor)
{
    std::string line;
    char byte;
    while (::read(descriptor, &byte, 1) == 1 && byte != '\n')
        line += byte;
    return line;
}

Poco::UInt16 RegistryProcess::waitForPort()
{
    const std::string line = readLine();
    const std::size_t colon = line.rfind(':');
    return colon == std::string::npos ? 0 : static_cast<Poco::UInt16>(std::stoi(line.substr(colon + 1)));
}

void RegistryProcess::signal(int number) const
{
    ::kill(m_process, number);
}

std::optional<int> RegistryProcess::wait()
{
    int status = 0;
    if (!eventually([&] { return ::waitpid(m_process, &status, WNOHANG) == m_process; }))
        return std::nullopt;
    m_process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
}

long RegistryProcess::memory() const
{
    std::ifstream file("/proc/" + std::to_string(m_process) + "/statm");
    long total = 0;
    long resident = 0;
    file >> total >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

} // namespace Kesa::Registry::Test
