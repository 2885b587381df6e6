#pragma once

#include <Poco/Types.h>

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Kesa::Registry::Test
{

/// The registry, or another program, beside the test. Killed at the end, if it has not ended by then.
class RegistryProcess
{
public:
    explicit RegistryProcess(const std::vector<std::string>& arguments, const char* program = KESA_REGISTRY);
    ~RegistryProcess();
    RegistryProcess(const RegistryProcess&) = delete;
    RegistryProcess& operator=(const RegistryProcess&) = delete;

    /// The next line of its standard output, and of its standard error; empty at the end.
    std::string readLine() { return readLine(m_output); }
    std::string readErrorLine() { return readLine(m_errors); }
    /// Waits until it listens; 0 if it ended instead.
    Poco::UInt16 waitForPort();
    void signal(int number) const;
    /// Its exit status, 256 plus the number of the signal that ended it, or nothing if it does not end within ten
    /// seconds.
    std::optional<int> wait();
    /// Bytes of memory that are its own.
    long memory() const;

private:
    static std::string readLine(int descriptor);

    pid_t m_process = -1;
    int m_output = -1;
    int m_errors = -1;
};

} // namespace Kesa::Registry::Test
