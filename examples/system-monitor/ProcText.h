#pragma once

#include <Poco/Types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

/// The files of /proc, from text to numbers. Pure functions: any thread. A line that is not understood is left out,
/// since a kernel may write more than this program knows.
namespace SystemMonitor
{

/// Times of one processor since the start of the machine, in clock ticks.
struct CpuTimes
{
    std::string name; ///< "cpu" for all together, "cpu0" for the first
    Poco::UInt64 user = 0;
    Poco::UInt64 system = 0;
    Poco::UInt64 idle = 0;
    Poco::UInt64 wait = 0; ///< idle, while a disk worked
    Poco::UInt64 total = 0;
};

/// Traffic of one block device since the start of the machine.
struct DiskCounters
{
    Poco::UInt64 readBytes = 0;
    Poco::UInt64 writtenBytes = 0;
    Poco::UInt64 busyMilliseconds = 0;
};

/// One mounted file system.
struct Mount
{
    std::string source;    ///< "/dev/vda"
    std::string directory; ///< "/"
    std::string type;      ///< "ext4"
};

/// Traffic of one network interface since it came up.
struct InterfaceCounters
{
    std::string name;
    Poco::UInt64 receivedBytes = 0;
    Poco::UInt64 receivedPackets = 0;
    Poco::UInt64 sentBytes = 0;
    Poco::UInt64 sentPackets = 0;
    Poco::UInt64 errors = 0;
    Poco::UInt64 dropped = 0;
};

struct ProcessStat
{
    long id = 0;
    std::string name;
    char state = '?';
    long parentId = 0;
    Poco::UInt64 cpuTicks = 0; ///< used so far
    long threads = 0;
    Poco::UInt64 startTicks = 0; ///< from the start of the machine to that of the process
    Poco::UInt64 residentPages = 0;
};

/// /proc/stat
std::vector<CpuTimes> parseCpuTimes(const std::string& text);
/// /proc/meminfo: from its names to bytes.
std::map<std::string, Poco::UInt64> parseMemory(const std::string& text);
/// /proc/diskstats: from the device's name, "vda", to its counters.
std::map<std::string, DiskCounters> parseDiskCounters(const std::string& text);
/// /proc/self/mounts
std::vector<Mount> parseMounts(const std::string& text);
/// /proc/net/dev
std::vector<InterfaceCounters> parseInterfaces(const std::string& text);
/// /proc/<pid>/stat. Empty if the text is not understood.
std::optional<ProcessStat> parseProcess(const std::string& text);

} // namespace SystemMonitor
