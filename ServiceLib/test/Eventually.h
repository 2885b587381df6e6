#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace Kesa::Test
{

/// Waits until `holds`, at most for 20 s.
inline bool eventually(const std::function<bool()>& holds)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!holds())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace Kesa::Test
