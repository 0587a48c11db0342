#ifndef SERIALPROTOCOL_FRAMECOLLECTOR_H
#define SERIALPROTOCOL_FRAMECOLLECTOR_H

#include "base/Export.h"

#include <cstddef>
#include <span>

namespace SerialProtocol
{

/**
 * Gathers one response frame byte by byte.
 *
 * What comes before the first 0xAA is dropped; from there on every byte belongs to the frame, a further
 * 0xAA too. The frame ends with its trailer 0xEF 0x0D, wherever that stands, or with one byte more than
 * expected. Whether it then has the expected length is for the caller to see.
 *
 * Threads: one collector belongs to one thread at a time.
 */
class TAVDEVICE_API FrameCollector
{
public:
    /**
     * @param storage  receives the frame; stays the caller's. With room for fewer than `expected` + 1 bytes
     *                 the frame ends when it is full.
     * @param expected length of the frame in bytes
     */
    FrameCollector(std::span<unsigned char> storage, std::size_t expected);

    /// Takes the next byte from the line. @return true when the frame has ended; it then takes no further one
    bool Take(unsigned char byte);

    std::size_t Count() const { return count; } ///< bytes of the frame so far

private:
    bool Ended() const;

    std::span<unsigned char> room;
    std::size_t count = 0;
};

}

#endif
