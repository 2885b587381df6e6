#include "SystemReader.h"

#include <Time/Now.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>

namespace SystemMonitor
{
namespace
{

using Poco::UInt64;
using Poco::JSON::Object;

/// One digit after the point is what the figures are worth, and what people read.
double rounded(double value)
{
    return std::round(value * 10) / 10;
}

double percent(UInt64 part, UInt64 whole)
{
    return whole == 0 ? 0 : rounded(100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

/// Counters start anew when a device is plugged in again.
UInt64 increase(UInt64 before, UInt64 now)
{
    return now > before ? now - before : 0;
}

Object::Ptr newElement(const std::string& resource, const std::string& id, const std::string& name)
{
    Object::Ptr element = new Object;
    element->set("id", id);
    element->set("uri", "/system/" + resource + "/" + id);
    element->set("name", name);
    return element;
}

std::string stateName(char state)
{
    switch (state)
    {
    case 'R':
        return "running";
    case 'S':
        return "sleeping";
    case 'D':
        return "waiting";
    case 'I':
        return "idle";
    case 'T':
    case 't':
        return "stopped";
    case 'Z':
        return "zombie";
    default:
        return std::string(1, state);
    }
}

bool isNumber(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

/// The space of a file system. False if it cannot be asked, because it was unmounted just now for one.
bool setSpace(Object& disk, const std::string& directory)
{
    struct statvfs space = {};
    if (::statvfs(directory.c_str(), &space) != 0)
        return false;
    const UInt64 total = space.f_blocks * space.f_frsize;
    const UInt64 used = total - space.f_bfree * space.f_frsize;
    disk.set("totalBytes", total);
    disk.set("usedBytes", used);
    disk.set("availableBytes", UInt64(space.f_bavail * space.f_frsize));
    disk.set("usedPercent", percent(used, total));
    return true;
}

} // namespace

std::string safeId(const std::string& name)
{
    static const char DIGITS[] = "0123456789abcdef";
    std::string id;
    for (const unsigned char c: name)
        if (c < 0x80 && (std::isalnum(c) || c == '.' || c == '_' || c == '-'))
            id += static_cast<char>(c);
        else
            id += {'~', DIGITS[c >> 4], DIGITS[c & 15]};
    return id;
}

SystemReader::SystemReader(const std::string& proc)
    : m_proc(proc),
      m_ticksPerSecond(static_cast<double>(::sysconf(_SC_CLK_TCK))),
      m_pageBytes(static_cast<UInt64>(::sysconf(_SC_PAGESIZE))),
      m_lastRead(Kesa::Util::now())
{
    read();
}

Snapshot SystemReader::read()
{
    const Poco::Clock now = Kesa::Util::now();
    m_elapsed = static_cast<double>(now - m_lastRead) / 1e6;
    m_lastRead = now;
    return {{"cpus", readCpus()},
            {"memory", readMemory()},
            {"disks", readDisks()},
            {"interfaces", readInterfaces()},
            {"processes", readProcesses()}};
}

std::string SystemReader::readFile(const std::string& name) const
{
    std::ifstream file(m_proc + "/" + name);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

double SystemReader::perSecond(UInt64 before, UInt64 now) const
{
    return m_elapsed > 0 ? rounded(static_cast<double>(increase(before, now)) / m_elapsed) : 0;
}

Elements SystemReader::readCpus()
{
    Elements elements;
    std::map<std::string, CpuTimes> cpus;
    for (const CpuTimes& now: parseCpuTimes(readFile("stat")))
    {
        const auto last = m_cpus.find(now.name);
        const CpuTimes before = last == m_cpus.end() ? now : last->second;
        const UInt64 total = increase(before.total, now.total);
        const UInt64 unused = increase(before.idle, now.idle) + increase(before.wait, now.wait);
        const std::string id = now.name == "cpu" ? "all" : now.name;
        Object::Ptr element = newElement("cpus", id, now.name == "cpu" ? "all processors" : now.name);
        element->set("usagePercent", percent(increase(unused, total), total));
        element->set("userPercent", percent(increase(before.user, now.user), total));
        element->set("systemPercent", percent(increase(before.system, now.system), total));
        element->set("waitPercent", percent(increase(before.wait, now.wait), total));
        elements[id] = element;
        cpus[now.name] = now;
    }
    m_cpus = std::move(cpus);
    return elements;
}

Elements SystemReader::readMemory() const
{
    std::map<std::string, UInt64> memory = parseMemory(readFile("meminfo"));
    const auto area = [&](const std::string& id, const std::string& name, UInt64 total, UInt64 available)
    {
        Object::Ptr element = newElement("memory", id, name);
        const UInt64 used = increase(available, total);
        element->set("totalBytes", total);
        element->set("availableBytes", available);
        element->set("usedBytes", used);
        element->set("usedPercent", percent(used, total));
        return element;
    };
    Object::Ptr ram = area("ram", "main memory", memory["MemTotal"], memory["MemAvailable"]);
    ram->set("cachedBytes", memory["Cached"] + memory["Buffers"]);
    return {{"ram", ram}, {"swap", area("swap", "swap space", memory["SwapTotal"], memory["SwapFree"])}};
}

Elements SystemReader::readDisks()
{
    Elements elements;
    std::map<std::string, DiskCounters> disks = parseDiskCounters(readFile("diskstats"));
    for (const Mount& mount: parseMounts(readFile("self/mounts")))
    {
        // File systems that only the kernel sees have no device; a container's root has none either.
        const bool isDevice = mount.source.compare(0, 5, "/dev/") == 0;
        const std::string device = isDevice ? mount.source.substr(5) : mount.source;
        const std::string id = safeId(device);
        if ((!isDevice && mount.directory != "/") || elements.count(id) != 0)
            continue;
        Object::Ptr element = newElement("disks", id, mount.source);
        element->set("mountedOn", mount.directory);
        element->set("fileSystem", mount.type);
        if (!setSpace(*element, mount.directory))
            continue;
        const auto now = disks.find(device);
        const auto last = m_disks.find(device);
        if (now != disks.end())
        {
            const DiskCounters before = last == m_disks.end() ? now->second : last->second;
            const double busy = perSecond(before.busyMilliseconds, now->second.busyMilliseconds) / 10;
            element->set("readBytesPerSecond", perSecond(before.readBytes, now->second.readBytes));
            element->set("writtenBytesPerSecond", perSecond(before.writtenBytes, now->second.writtenBytes));
            element->set("busyPercent", std::min(100.0, rounded(busy)));
        }
        elements[id] = element;
    }
    m_disks = std::move(disks);
    return elements;
}

Elements SystemReader::readInterfaces()
{
    Elements elements;
    std::map<std::string, InterfaceCounters> interfaces;
    for (const InterfaceCounters& now: parseInterfaces(readFile("net/dev")))
    {
        const auto last = m_interfaces.find(now.name);
        const InterfaceCounters before = last == m_interfaces.end() ? now : last->second;
        Object::Ptr element = newElement("interfaces", safeId(now.name), now.name);
        element->set("receivedBytes", now.receivedBytes);
        element->set("sentBytes", now.sentBytes);
        element->set("receivedPackets", now.receivedPackets);
        element->set("sentPackets", now.sentPackets);
        element->set("errorPackets", now.errors);
        element->set("droppedPackets", now.dropped);
        element->set("receivedBytesPerSecond", perSecond(before.receivedBytes, now.receivedBytes));
        element->set("sentBytesPerSecond", perSecond(before.sentBytes, now.sentBytes));
        elements[safeId(now.name)] = element;
        interfaces[now.name] = now;
    }
    m_interfaces = std::move(interfaces);
    return elements;
}

Elements SystemReader::readProcesses()
{
    Elements elements;
    std::map<long, ProcessStat> processes;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(m_proc, error), end; !error && entry != end; entry.increment(error))
    {
        const std::string id = entry->path().filename().string();
        if (!isNumber(id) || elements.size() >= MAX_PROCESSES)
            continue;
        const std::optional<ProcessStat> now = parseProcess(readFile(id + "/stat"));
        if (!now) // it ended since its name was read
            continue;
        const auto last = m_processes.find(now->id);
        const bool isKnown = last != m_processes.end() && last->second.startTicks == now->startTicks;
        elements[id] = processElement(*now, isKnown ? last->second.cpuTicks : 0);
        processes[now->id] = *now;
    }
    m_processes = std::move(processes);
    return elements;
}

Object::Ptr SystemReader::processElement(const ProcessStat& process, UInt64 ticksBefore) const
{
    Object::Ptr element = newElement("processes", std::to_string(process.id), process.name);
    element->set("parentId", process.parentId);
    element->set("state", stateName(process.state));
    element->set("threads", process.threads);
    element->set("residentBytes", process.residentPages * m_pageBytes);
    element->set("cpuPercent", rounded(100 * perSecond(ticksBefore, process.cpuTicks) / m_ticksPerSecond));
    element->set(STARTED, static_cast<double>(process.startTicks) / m_ticksPerSecond);
    return element;
}

} // namespace SystemMonitor
