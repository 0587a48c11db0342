#include "base/Tavbase/TavubufferDynamic.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <new>
#include <utility>

static_assert(offsetof(TavubufferDynamic, data) == 0);
static_assert(offsetof(TavubufferDynamic, tag) == sizeof(void*));
static_assert(offsetof(TavubufferDynamic, capacity) == 2 * sizeof(void*));
static_assert(offsetof(TavubufferDynamic, length) == 2 * sizeof(void*) + sizeof(std::uint64_t));

namespace
{

unsigned char* NewArray(std::uint64_t bytes)
{
    if (bytes == 0)
    {
        return nullptr;
    }
    if (bytes > static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max()))
    {
        throw std::bad_alloc(); // longer than any array, for example a 64-bit count on a 32-bit board
    }
    return new unsigned char[static_cast<std::size_t>(bytes)]();
}

}

TavubufferDynamic::TavubufferDynamic(std::uint64_t bytes) : data(NewArray(bytes)), capacity(bytes)
{
}

TavubufferDynamic::TavubufferDynamic(const TavubufferDynamic& other)
    : data(other.data == nullptr ? nullptr : NewArray(other.capacity)), tag(other.tag),
      capacity(other.capacity), length(std::min(other.length, other.capacity))
{
    if (data != nullptr)
    {
        std::copy_n(other.data, static_cast<std::size_t>(length), data);
    }
}

TavubufferDynamic::TavubufferDynamic(TavubufferDynamic&& other) noexcept
    : data(std::exchange(other.data, nullptr)), tag(other.tag), capacity(std::exchange(other.capacity, 0)),
      length(std::exchange(other.length, 0))
{
}

TavubufferDynamic& TavubufferDynamic::operator=(const TavubufferDynamic& other)
{
    return *this = TavubufferDynamic(other);
}

TavubufferDynamic& TavubufferDynamic::operator=(TavubufferDynamic&& other) noexcept
{
    TavubufferDynamic taken(std::move(other));
    std::swap(data, taken.data);
    tag = taken.tag;
    std::swap(capacity, taken.capacity);
    std::swap(length, taken.length);
    return *this;
}

TavubufferDynamic::~TavubufferDynamic()
{
    delete[] data;
}

void TavubufferDynamic::Allocate(std::uint64_t bytes)
{
    unsigned char* const fresh = NewArray(bytes);
    delete[] data;
    data = fresh;
    capacity = bytes;
    length = 0;
}
