#include "MemoryShortage.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<bool (*)()> concerned{nullptr};
std::atomic<long> left{0}; ///< allocations until the one that fails; negative: it has failed

} // namespace

void* operator new(std::size_t size)
{
    const auto isConcerned = concerned.load();
    if (isConcerned && left >= 0 && isConcerned() && left-- == 0)
        throw std::bad_alloc();
    if (void* const memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace Kesa::Test
{

MemoryShortage::MemoryShortage(bool (*isConcerned)(), long allowed)
{
    left = allowed;
    concerned = isConcerned;
}

MemoryShortage::~MemoryShortage()
{
    concerned = nullptr;
}

bool MemoryShortage::hasStruck() const
{
    return left < 0;
}

} // namespace Kesa::Test
