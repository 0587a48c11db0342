#include "benchmarks/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<std::uint64_t> count{0};

}

std::uint64_t Benchmarks::Allocations()
{
    return count.load();
}

// The libraries are shared, so that they take these as well. The array forms call them.

void* operator new(std::size_t bytes)
{
    count.fetch_add(1, std::memory_order_relaxed);
    void* const memory = std::malloc(bytes == 0 ? 1 : bytes);
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
