#pragma once

#include "ProcText.h"
#include "Snapshot.h"

#include <Poco/Clock.h>
#include <Poco/Types.h>

#include <cstddef>
#include <map>
#include <string>

namespace SystemMonitor
{

/// Reads this machine's processors, memory, disks, network interfaces and processes.
///
/// Every element has `id`, `uri`, `name` and its figures, with the unit in the figure's name. Figures "per second" and
/// "percent" are those between two reads.
///
/// Threads: one at a time.
class SystemReader
{
public:
    /// Processes beyond this number are left out.
    static constexpr std::size_t MAX_PROCESSES = 10000;

    /// Takes the counts from which the first read() goes on. `proc` is where the kernel's files are; tests have their
    /// own.
    explicit SystemReader(const std::string& proc = "/proc");

    /// The state of the machine now. A file that cannot be read leaves out what it would have told.
    Snapshot read();

private:
    std::string readFile(const std::string& name) const;
    double perSecond(Poco::UInt64 before, Poco::UInt64 now) const;
    Elements readCpus();
    Elements readMemory() const;
    Elements readDisks();
    Elements readInterfaces();
    Elements readProcesses();
    Poco::JSON::Object::Ptr processElement(const ProcessStat& process, Poco::UInt64 ticksBefore) const;

    const std::string m_proc;
    const double m_ticksPerSecond;
    const Poco::UInt64 m_pageBytes;
    Poco::Clock m_lastRead;
    double m_elapsed = 0; ///< seconds from the read before to this one
    std::map<std::string, CpuTimes> m_cpus;
    std::map<std::string, DiskCounters> m_disks;
    std::map<std::string, InterfaceCounters> m_interfaces;
    std::map<long, ProcessStat> m_processes;
};

/// `name` with every character that has a meaning in a URL, or none, written as "~" and two hexadecimal digits.
std::string safeId(const std::string& name);

} // namespace SystemMonitor
