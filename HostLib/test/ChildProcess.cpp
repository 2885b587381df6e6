#include "ChildProcess.h"

#include "TestTools.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

ChildProcess::ChildProcess(const std::string& program, const std::string& argument)
    : ChildProcess(program, argument.empty() ? std::vector<std::string>() : std::vector<std::string>{argument})
{
}

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments)
{
    std::vector<char*> words{const_cast<char*>(program.c_str())};
    for (const std::string& argument: arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    m_process = ::fork();
    if (m_process == 0)
    {
        ::dup2(ends[1], STDOUT_FILENO);
        ::execv(program.c_str(), words.data());
        ::_exit(127);
    }
    ::close(ends[1]);
    m_output = ends[0];
}

ChildProcess::~ChildProcess()
{
    if (m_process > 0)
    {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
    }
    ::close(m_output);
}

std::string ChildProcess::readLine()
{
    std::string line;
    char byte;
    while (::read(m_output, &byte, 1) == 1 && byte != '\n')
        line += byte;
    return line;
}

void ChildProcess::signal(int number) const
{
    ::kill(m_process, number);
}

std::optional<int> ChildProcess::wait()
{
    int status = 0;
    if (!eventually([&] { return ::waitpid(m_process, &status, WNOHANG) == m_process; }))
        return std::nullopt;
    m_process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
}

long ChildProcess::processorTime() const
{
    std::ifstream file("/proc/" + std::to_string(m_process) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string skipped;
    for (int i = 0; i < 11; ++i) // state and ten numbers stand before the two that count
        fields >> skipped;
    long user = 0;
    long system = 0;
    fields >> user >> system;
    return (user + system) * 1000 / ::sysconf(_SC_CLK_TCK);
}
