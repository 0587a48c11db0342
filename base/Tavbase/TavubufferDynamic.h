#ifndef BASE_TAVBASE_TAVUBUFFERDYNAMIC_H
#define BASE_TAVBASE_TAVUBUFFERDYNAMIC_H

#include "base/Export.h"

#include <cstdint>

/**
 * The byte buffer that is handed by reference to every byte-level read and write.
 *
 * A reader fills at most `capacity` bytes at `data` and sets `length`; a writer sends `length` bytes from
 * `data`. The fields are public: owners and the classes that read and write set them directly.
 *
 * Ownership: the buffer owns the array at `data`. It must come from `new unsigned char[n]` (Allocate()
 * does that) and is freed with `delete[]` by the destructor, by Allocate() and by assignment. Whoever
 * wants to keep the array takes `data` and leaves a null pointer. `capacity` may be lowered below what was
 * allocated, to make a reader ask for less; it must never be raised above it.
 *
 * Copying: a copy has an array of its own with the same `capacity`, and the first `length` bytes of the
 * original (never more than `capacity`); the rest of its array is zero. Moving hands the array over and
 * leaves the source empty.
 *
 * Threads: none of its own; one buffer belongs to one thread at a time.
 */
struct TAVBASE_API TavubufferDynamic
{
    unsigned char* data = nullptr; ///< the bytes; null when the buffer has none
    std::uintptr_t tag = 0;        ///< for the owner's use; the libraries neither read nor change it
    std::uint64_t capacity = 0;    ///< bytes that a reader may use at `data`
    std::uint64_t length = 0;      ///< bytes that are valid at `data`

    TavubufferDynamic() = default; ///< no array

    /// As Allocate(). @throws std::bad_alloc
    explicit TavubufferDynamic(std::uint64_t bytes);

    TavubufferDynamic(const TavubufferDynamic& other);                ///< @throws std::bad_alloc
    TavubufferDynamic(TavubufferDynamic&& other) noexcept;            ///< leaves `other` empty
    TavubufferDynamic& operator=(const TavubufferDynamic& other);     ///< @throws std::bad_alloc
    TavubufferDynamic& operator=(TavubufferDynamic&& other) noexcept; ///< leaves `other` empty
    ~TavubufferDynamic();                                             ///< frees the array

    /**
     * Frees the present array and makes a new one of `bytes` zero bytes; `capacity` becomes `bytes`,
     * `length` 0. With 0 the buffer has no array. @throws std::bad_alloc, the buffer is then unchanged.
     */
    void Allocate(std::uint64_t bytes);
};

#endif
