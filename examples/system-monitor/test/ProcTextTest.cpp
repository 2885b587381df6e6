#include "ProcText.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using namespace SystemMonitor;

TEST(CpuTimes, AreReadForAllProcessorsAndForEach)
{
    const auto cpus = parseCpuTimes("cpu  1794 10 1553 162122 277 3 24 8 0 0\n"
                                    "cpu0 526 0 593 81701 5 0 5 2 0 0\n"
                                    "intr 124581 0 0\n"
                                    "ctxt 262770\n");
    ASSERT_EQ(cpus.size(), 2u);
    EXPECT_EQ(cpus[0].name, "cpu");
    EXPECT_EQ(cpus[0].user, 1804u);
    EXPECT_EQ(cpus[0].system, 1580u);
    EXPECT_EQ(cpus[0].idle, 162122u);
    EXPECT_EQ(cpus[0].wait, 277u);
    EXPECT_EQ(cpus[0].total, 1804u + 1580 + 162122 + 277 + 8);
    EXPECT_EQ(cpus[1].name, "cpu0");
}

TEST(CpuTimes, LeaveOutLinesThatAreCutShort)
{
    EXPECT_TRUE(parseCpuTimes("").empty());
    EXPECT_TRUE(parseCpuTimes("cpu0 1 2 3\ncpu1\n\n").empty());
}

TEST(Memory, IsReadInBytes)
{
    const auto memory = parseMemory("MemTotal:       24684092 kB\nHugePages_Total:      12\nDirectMap1G: x kB\n\n");
    EXPECT_EQ(memory.size(), 2u);
    EXPECT_EQ(memory.at("MemTotal"), 24684092ull * 1024);
    EXPECT_EQ(memory.at("HugePages_Total"), 12u);
}

TEST(DiskCounters, AreReadInBytesAndMilliseconds)
{
    const auto disks = parseDiskCounters(
        "   7       0 loop0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
        " 254       0 vda 29265 7053 2906650 7170 7391 5666 318688 1164 0 3832 8663 5452 42 148040 294 989 34\n"
        " 254       1 short 1 2 3\n");
    ASSERT_EQ(disks.size(), 2u);
    EXPECT_EQ(disks.at("vda").readBytes, 2906650ull * 512);
    EXPECT_EQ(disks.at("vda").writtenBytes, 318688ull * 512);
    EXPECT_EQ(disks.at("vda").busyMilliseconds, 3832u);
}

TEST(Mounts, AreReadWithTheirBlanks)
{
    const auto mounts = parseMounts("/dev/vda / ext4 rw,relatime 0 0\n"
                                    "/dev/sdb1 /media/my\\040disk\\134x vfat rw 0 0\n"
                                    "/dev/sdc1 /a\\09 vfat rw 0 0\n"
                                    "broken\n");
    ASSERT_EQ(mounts.size(), 3u);
    EXPECT_EQ(mounts[0].source, "/dev/vda");
    EXPECT_EQ(mounts[0].directory, "/");
    EXPECT_EQ(mounts[0].type, "ext4");
    EXPECT_EQ(mounts[1].directory, "/media/my disk\\x");
    EXPECT_EQ(mounts[2].directory, "/a\\09");
}

TEST(Interfaces, AreReadFromBothHalvesOfTheirLine)
{
    const auto interfaces =
        parseInterfaces("Inter-|   Receive                                                |  Transmit\n"
                        " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop "
                        "fifo colls carrier\n"
                        "    lo:    3267      29    0    0    0     0          0         0     3268      30    0    0  "
                        "  0     0       0          0\n"
                        "eth0:1:30502911 844 1 2 0 0 0 0 39569 457 3 4 0 0 0 0\n");
    ASSERT_EQ(interfaces.size(), 2u);
    EXPECT_EQ(interfaces[0].name, "lo");
    EXPECT_EQ(interfaces[0].receivedBytes, 3267u);
    EXPECT_EQ(interfaces[0].receivedPackets, 29u);
    EXPECT_EQ(interfaces[0].sentBytes, 3268u);
    EXPECT_EQ(interfaces[0].sentPackets, 30u);
    EXPECT_EQ(interfaces[1].name, "eth0:1");
    EXPECT_EQ(interfaces[1].receivedBytes, 30502911u);
    EXPECT_EQ(interfaces[1].errors, 4u);
    EXPECT_EQ(interfaces[1].dropped, 6u);
}

const std::string TAIL =
    " S 1 5588 2690 0 -1 4194304 99 0 0 0 11 22 0 0 20 0 7 0 83128 3133440 409 18446744073709551615 0\n";

TEST(Process, IsRead)
{
    const auto process = parseProcess("5600 (cat)" + TAIL);
    ASSERT_TRUE(process);
    EXPECT_EQ(process->id, 5600);
    EXPECT_EQ(process->name, "cat");
    EXPECT_EQ(process->state, 'S');
    EXPECT_EQ(process->parentId, 1);
    EXPECT_EQ(process->cpuTicks, 33u);
    EXPECT_EQ(process->threads, 7);
    EXPECT_EQ(process->startTicks, 83128u);
    EXPECT_EQ(process->residentPages, 409u);
}

TEST(Process, MayHaveParenthesesAndBlanksInItsName)
{
    const auto process = parseProcess("17 (a) R (b c) )" + TAIL);
    ASSERT_TRUE(process);
    EXPECT_EQ(process->name, "a) R (b c) ");
    EXPECT_EQ(process->state, 'S');
}

class BadProcess: public testing::TestWithParam<const char*>
{
};

TEST_P(BadProcess, IsLeftOut)
{
    EXPECT_FALSE(parseProcess(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(All, BadProcess,
                         testing::Values("", "17", "17 (cat", "17 cat) S 1", ")(", "17 (cat) S 1 2 3",
                                         "x (cat) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22"));

} // namespace
