// operator new and delete of a test program, which are counted and may be refused.

#include "tests/kit/Leaks.h"

#include <cstdlib>
#include <new>

void* operator new(std::size_t size)
{
    void* const memory = Kit::Leaks::TakeAllocation() ? std::malloc(size == 0 ? 1 : size) : nullptr;
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    if (memory != nullptr)
    {
        Kit::Leaks::GiveAllocation();
        std::free(memory);
    }
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}
