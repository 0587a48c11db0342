#ifndef VIRTUAL_UNIT_COMMON_DESCRIPTOR_H
#define VIRTUAL_UNIT_COMMON_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

namespace VirtualUnit
{

/// Owns a descriptor, or none (-1).
class Descriptor
{
public:
    explicit Descriptor(int owned = -1) : number(owned) {}

    Descriptor(Descriptor&& other) noexcept : number(other.Release()) {}

    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }

    ~Descriptor()
    {
        if (number >= 0)
        {
            close(number);
        }
    }

    int Get() const { return number; }

    /// @return the descriptor, which is the caller's from now on
    int Release() { return std::exchange(number, -1); }

private:
    int number;
};

}

#endif
