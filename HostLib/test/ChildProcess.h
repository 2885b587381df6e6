#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// A program that a test runs beside itself. Killed at the end, if it has not ended by then.
class ChildProcess
{
public:
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
    /// With one argument, or none if it is empty.
    ChildProcess(const std::string& program, const std::string& argument);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// The next line of its standard output; empty at the end.
    std::string readLine();
    void signal(int number) const;
    /// Its exit status, 256 plus the number of the signal that ended it, or nothing if it does not end within ten
    /// seconds.
    std::optional<int> wait();
    /// Milliseconds of processor time that it has used.
    long processorTime() const;

private:
    pid_t m_process = -1;
    int m_output = -1;
};
