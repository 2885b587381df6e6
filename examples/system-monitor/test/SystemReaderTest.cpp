#include "SystemReader.h"

#include <Poco/TemporaryFile.h>
#include <Time/Now.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace
{

using SystemMonitor::Snapshot;
using SystemMonitor::SystemReader;

/// A directory with recorded files in the place of /proc, and a clock that the test moves.
class SystemReaderTest: public testing::Test
{
protected:
    SystemReaderTest()
    {
        m_directory.createDirectory();
        write("stat", "cpu  100 0 100 800 0 0 0 0\ncpu0 100 0 100 800 0 0 0 0\n");
        write("meminfo", "MemTotal: 1000 kB\nMemAvailable: 750 kB\nCached: 90 kB\nBuffers: 10 kB\nSwapTotal: 0 "
                         "kB\nSwapFree: 0 kB\n");
        write("diskstats", " 254 0 vda 0 0 100 0 0 0 200 0 0 1000 0\n");
        write("self/mounts", "proc /proc proc rw 0 0\n/dev/vda / ext4 rw 0 0\n/dev/vda /mnt ext4 rw 0 0\n");
        write("net/dev", "lo: 1000 10 0 0 0 0 0 0 2000 20 0 0 0 0 0 0\n");
        writeProcess(17, "init", 0, 5);
    }
    ~SystemReaderTest() override { m_directory.remove(true); }

    void write(const std::string& name, const std::string& text)
    {
        const std::filesystem::path path = m_directory.path() + "/" + name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }

    void writeProcess(int id, const std::string& name, int cpuTicks, int startTicks)
    {
        write(std::to_string(id) + "/stat", std::to_string(id) + " (" + name + ") S 1 0 0 0 -1 0 0 0 0 0 " +
                                                std::to_string(cpuTicks) + " 0 0 0 20 0 3 0 " +
                                                std::to_string(startTicks) + " 0 2 0\n");
    }

    void remove(const std::string& name) { std::filesystem::remove_all(m_directory.path() + "/" + name); }

    std::string path() const { return m_directory.path(); }

    static std::string text(const Snapshot& snapshot, const std::string& resource, const std::string& id,
                            const std::string& member)
    {
        return snapshot.at(resource).at(id)->get(member).toString();
    }

    Kesa::Util::TestClock clock;
    const long ticksPerSecond = ::sysconf(_SC_CLK_TCK);

private:
    Poco::TemporaryFile m_directory;
};

TEST_F(SystemReaderTest, GivesEveryElementItsIdUriAndName)
{
    const Snapshot snapshot = SystemReader(path()).read();
    int count = 0;
    for (const auto& [resource, elements]: snapshot)
        for (const auto& [id, element]: elements)
        {
            ++count;
            EXPECT_EQ(element->getValue<std::string>("id"), id);
            EXPECT_EQ(element->getValue<std::string>("uri"), "/system/" + resource + "/" + id);
            EXPECT_NE(element->getValue<std::string>("name"), "");
        }
    EXPECT_EQ(count, 7); // all, cpu0, ram, swap, vda, lo, 17
}

TEST_F(SystemReaderTest, TellsHowBusyProcessorsWereSinceTheLastRead)
{
    SystemReader reader(path());
    write("stat", "cpu  110 0 130 850 10 0 0 0\ncpu0 110 0 130 850 10 0 0 0\n");
    const Snapshot snapshot = reader.read();
    EXPECT_EQ(text(snapshot, "cpus", "all", "usagePercent"), "40");
    EXPECT_EQ(text(snapshot, "cpus", "cpu0", "userPercent"), "10");
    EXPECT_EQ(text(snapshot, "cpus", "cpu0", "systemPercent"), "30");
    EXPECT_EQ(text(snapshot, "cpus", "cpu0", "waitPercent"), "10");
}

TEST_F(SystemReaderTest, TellsMemoryInBytes)
{
    const Snapshot snapshot = SystemReader(path()).read();
    EXPECT_EQ(text(snapshot, "memory", "ram", "totalBytes"), "1024000");
    EXPECT_EQ(text(snapshot, "memory", "ram", "usedBytes"), "256000");
    EXPECT_EQ(text(snapshot, "memory", "ram", "usedPercent"), "25");
    EXPECT_EQ(text(snapshot, "memory", "ram", "cachedBytes"), "102400");
    EXPECT_EQ(text(snapshot, "memory", "swap", "usedPercent"), "0");
}

TEST_F(SystemReaderTest, TellsEachDeviceOnceWithItsTraffic)
{
    SystemReader reader(path());
    clock.advance(2000);
    write("diskstats", " 254 0 vda 0 0 300 0 0 0 240 0 0 2000 0\n");
    const Snapshot snapshot = reader.read();
    EXPECT_EQ(snapshot.at("disks").size(), 1u);
    EXPECT_EQ(text(snapshot, "disks", "vda", "mountedOn"), "/");
    EXPECT_EQ(text(snapshot, "disks", "vda", "readBytesPerSecond"), "51200");
    EXPECT_EQ(text(snapshot, "disks", "vda", "writtenBytesPerSecond"), "10240");
    EXPECT_EQ(text(snapshot, "disks", "vda", "busyPercent"), "50");
}

TEST_F(SystemReaderTest, TellsTheRootOfAContainerThatHasNoDevice)
{
    write("self/mounts", "overlay / overlay rw 0 0\ntmpfs /tmp tmpfs rw 0 0\n");
    const Snapshot snapshot = SystemReader(path()).read();
    EXPECT_EQ(text(snapshot, "disks", "overlay", "mountedOn"), "/");
    EXPECT_EQ(snapshot.at("disks").size(), 1u);
    EXPECT_FALSE(snapshot.at("disks").at("overlay")->has("busyPercent"));
}

TEST_F(SystemReaderTest, TellsTheTrafficOfInterfaces)
{
    SystemReader reader(path());
    clock.advance(500);
    write("net/dev", "lo: 1500 15 1 0 0 0 0 0 2000 20 1 2 0 0 0 0\n");
    const Snapshot snapshot = reader.read();
    EXPECT_EQ(text(snapshot, "interfaces", "lo", "receivedBytes"), "1500");
    EXPECT_EQ(text(snapshot, "interfaces", "lo", "receivedBytesPerSecond"), "1000");
    EXPECT_EQ(text(snapshot, "interfaces", "lo", "sentBytesPerSecond"), "0");
    EXPECT_EQ(text(snapshot, "interfaces", "lo", "errorPackets"), "2");
    EXPECT_EQ(text(snapshot, "interfaces", "lo", "droppedPackets"), "2");
}

TEST_F(SystemReaderTest, CountsFromZeroAgainWhenACounterStartedAnew)
{
    SystemReader reader(path());
    clock.advance(1000);
    write("net/dev", "lo: 5 1 0 0 0 0 0 0 5 1 0 0 0 0 0 0\n");
    EXPECT_EQ(text(reader.read(), "interfaces", "lo", "receivedBytesPerSecond"), "0");
}

TEST_F(SystemReaderTest, TellsWhatProcessesUsedSinceTheLastRead)
{
    SystemReader reader(path());
    clock.advance(1000);
    writeProcess(17, "init", static_cast<int>(ticksPerSecond) / 2, 5);
    const Snapshot snapshot = reader.read();
    EXPECT_EQ(text(snapshot, "processes", "17", "name"), "init");
    EXPECT_EQ(text(snapshot, "processes", "17", "state"), "sleeping");
    EXPECT_EQ(text(snapshot, "processes", "17", "parentId"), "1");
    EXPECT_EQ(text(snapshot, "processes", "17", "threads"), "3");
    EXPECT_EQ(text(snapshot, "processes", "17", "cpuPercent"), "50");
    EXPECT_EQ(text(snapshot, "processes", "17", "residentBytes"), std::to_string(2 * ::sysconf(_SC_PAGESIZE)));
}

TEST_F(SystemReaderTest, CountsANewProcessUnderAnOldNumberFromItsStart)
{
    writeProcess(17, "old", 1000000, 5);
    SystemReader reader(path());
    clock.advance(1000);
    writeProcess(17, "new", static_cast<int>(ticksPerSecond) / 10, 6);
    EXPECT_EQ(text(reader.read(), "processes", "17", "cpuPercent"), "10");
}

TEST_F(SystemReaderTest, LeavesOutAProcessThatEnded)
{
    SystemReader reader(path());
    remove("17/stat");
    EXPECT_TRUE(reader.read().at("processes").empty());
}

TEST_F(SystemReaderTest, GivesEmptyResourcesWhereNothingCanBeRead)
{
    for (const char* name: {"stat", "meminfo", "diskstats", "self", "net", "17"})
        remove(name);
    const Snapshot snapshot = SystemReader(path()).read();
    EXPECT_TRUE(snapshot.at("cpus").empty());
    EXPECT_TRUE(snapshot.at("processes").empty());
    EXPECT_EQ(text(snapshot, "memory", "ram", "totalBytes"), "0");
}

TEST(SystemReaderOnThisMachine, FindsProcessorsMemoryAndItself)
{
    const Snapshot snapshot = SystemReader().read();
    EXPECT_TRUE(snapshot.at("cpus").count("cpu0"));
    EXPECT_GT(snapshot.at("memory").at("ram")->getValue<Poco::UInt64>("totalBytes"), 0u);
    EXPECT_TRUE(snapshot.at("processes").count(std::to_string(::getpid())));
}

TEST(SafeId, HoldsNothingThatAUrlWouldRead)
{
    EXPECT_EQ(SystemMonitor::safeId("vda1"), "vda1");
    EXPECT_EQ(SystemMonitor::safeId("mapper/vg-root"), "mapper~2fvg-root");
    EXPECT_EQ(SystemMonitor::safeId("eth0:1?%~ #"), "eth0~3a1~3f~25~7e~20~23");
    EXPECT_EQ(SystemMonitor::safeId("\xC3\xA4"), "~c3~a4");
}

} // namespace
