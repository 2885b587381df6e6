#include "ProcText.h"

#include <sstream>

namespace SystemMonitor
{
namespace
{

using Poco::UInt64;

/// The kernel counts in sectors of this many bytes, whatever the device's own are.
constexpr UInt64 SECTOR = 512;

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::vector<UInt64> numbersOf(std::istream& stream)
{
    std::vector<UInt64> numbers;
    for (UInt64 number; stream >> number;)
        numbers.push_back(number);
    return numbers;
}

/// Blanks in a mount's names are written as "\040".
std::string unescape(const std::string& text)
{
    const auto isOctal = [&](std::size_t i) { return text[i] >= '0' && text[i] <= '7'; };
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\\' && i + 3 < text.size() && isOctal(i + 1) && isOctal(i + 2) && isOctal(i + 3))
        {
            result += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
            i += 3;
        }
        else
        {
            result += text[i];
        }
    return result;
}

} // namespace

std::vector<CpuTimes> parseCpuTimes(const std::string& text)
{
    std::vector<CpuTimes> result;
    for (const std::string& line: linesOf(text))
    {
        std::istringstream stream(line);
        CpuTimes times;
        stream >> times.name;
        // user nice system idle iowait irq softirq steal; what follows is contained in user and nice
        const std::vector<UInt64> n = numbersOf(stream);
        if (times.name.compare(0, 3, "cpu") != 0 || n.size() < 8)
            continue;
        times.user = n[0] + n[1];
        times.system = n[2] + n[5] + n[6];
        times.idle = n[3];
        times.wait = n[4];
        times.total = times.user + times.system + times.idle + times.wait + n[7];
        result.push_back(times);
    }
    return result;
}

std::map<std::string, UInt64> parseMemory(const std::string& text)
{
    std::map<std::string, UInt64> result;
    for (const std::string& line: linesOf(text))
    {
        std::istringstream stream(line);
        std::string name;
        UInt64 number = 0;
        std::string unit;
        if (std::getline(stream, name, ':') && stream >> number)
            result[name] = stream >> unit && unit == "kB" ? number * 1024 : number;
    }
    return result;
}

std::map<std::string, DiskCounters> parseDiskCounters(const std::string& text)
{
    std::map<std::string, DiskCounters> result;
    for (const std::string& line: linesOf(text))
    {
        std::istringstream stream(line);
        UInt64 major = 0;
        UInt64 minor = 0;
        std::string name;
        stream >> major >> minor >> name;
        // reads merged sectors ms, writes merged sectors ms, in flight, ms busy
        const std::vector<UInt64> n = numbersOf(stream);
        if (n.size() >= 10)
            result[name] = {n[2] * SECTOR, n[6] * SECTOR, n[9]};
    }
    return result;
}

std::vector<Mount> parseMounts(const std::string& text)
{
    std::vector<Mount> result;
    for (const std::string& line: linesOf(text))
    {
        std::istringstream stream(line);
        Mount mount;
        if (stream >> mount.source >> mount.directory >> mount.type)
            result.push_back({unescape(mount.source), unescape(mount.directory), mount.type});
    }
    return result;
}

std::vector<InterfaceCounters> parseInterfaces(const std::string& text)
{
    std::vector<InterfaceCounters> result;
    for (const std::string& line: linesOf(text))
    {
        // The name may hold a colon itself, and the first number may follow without a blank.
        const std::size_t colon = line.rfind(':');
        if (colon == std::string::npos)
            continue;
        std::istringstream stream(line.substr(colon + 1));
        // received: bytes packets errors dropped fifo frame compressed multicast, then sent: bytes packets errors
        // dropped
        const std::vector<UInt64> n = numbersOf(stream);
        if (n.size() < 12)
            continue;
        const std::string name = line.substr(line.find_first_not_of(' '), colon - line.find_first_not_of(' '));
        result.push_back({name, n[0], n[1], n[8], n[9], n[2] + n[10], n[3] + n[11]});
    }
    return result;
}

std::optional<ProcessStat> parseProcess(const std::string& text)
{
    // "17 (name) S 1 ...": the name may hold blanks and parentheses itself.
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open)
        return std::nullopt;
    ProcessStat process;
    process.name = text.substr(open + 1, close - open - 1);
    std::istringstream head(text.substr(0, open));
    std::istringstream tail(text.substr(close + 1));
    head >> process.id;
    tail >> process.state;
    std::vector<long long> n; // the fields from the fourth on, the parent's id
    for (long long number; n.size() < 21 && tail >> number;)
        n.push_back(number);
    if (!head || n.size() < 21)
        return std::nullopt;
    process.parentId = static_cast<long>(n[0]);
    process.cpuTicks = static_cast<UInt64>(n[10] + n[11]);
    process.threads = static_cast<long>(n[16]);
    process.startTicks = static_cast<UInt64>(n[18]);
    process.residentPages = static_cast<UInt64>(n[20]);
    return process;
}

} // namespace SystemMonitor
