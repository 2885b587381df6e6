#pragma once

#include <chrono>

/// The stranger's own measure of time.
class Stopwatch
{
public:
    auto elapsed() const { return std::chrono::steady_clock::now() - m_start; }

private:
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};
