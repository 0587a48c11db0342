#ifndef TESTS_BASE_TAVBASE_INTERFACES_VIRTUALSLOT_H
#define TESTS_BASE_TAVBASE_INTERFACES_VIRTUALSLOT_H

#include <cstddef>
#include <cstring>

namespace Tests
{

/**
 * The slot of a virtual function in its class's table, counted from 0; -1 when it is not virtual. A
 * destructor takes slots 0 and 1 of a class that declares it first.
 *
 * Itanium C++ ABI, section 2.3: a pointer to a virtual member function holds one plus the offset of its
 * slot; on ARM it holds the offset, and the lowest bit of the adjustment says that it is virtual.
 */
template <class Member>
std::ptrdiff_t VirtualSlot(Member member)
{
    struct
    {
        std::ptrdiff_t function;
        std::ptrdiff_t adjustment;
    } parts{};

    static_assert(sizeof parts == sizeof member);
    std::memcpy(&parts, &member, sizeof parts);
#if defined(__arm__) || defined(__aarch64__)
    const bool isVirtual = (parts.adjustment & 1) != 0;
    const std::ptrdiff_t offset = parts.function;
#else
    const bool isVirtual = (parts.function & 1) != 0;
    const std::ptrdiff_t offset = parts.function - 1;
#endif
    return isVirtual ? offset / static_cast<std::ptrdiff_t>(sizeof(void*)) : -1;
}

}

#endif
