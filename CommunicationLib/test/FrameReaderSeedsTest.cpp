// Replays the seeds of the fuzzer, and what it once found.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace
{

TEST(FrameReaderSeeds, GiveTheSameEventsHoweverTheyAreCut)
{
    int seeds = 0;
    for (const auto& entry: std::filesystem::directory_iterator(KESA_FRAME_READER_SEEDS))
    {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        EXPECT_FALSE(bytes.empty()) << entry.path();
        EXPECT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
        ++seeds;
    }
    EXPECT_GE(seeds, 8);
}

} // namespace
