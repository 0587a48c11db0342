#include "SerialProtocol/FrameCollector.h"

#include "SerialProtocol/Frame.h"

#include <algorithm>

namespace SerialProtocol
{

FrameCollector::FrameCollector(std::span<unsigned char> storage, std::size_t expected)
    : room(expected < storage.size() ? storage.first(expected + 1) : storage)
{
}

bool FrameCollector::Take(unsigned char byte)
{
    if (Ended())
    {
        return true;
    }
    if (count == 0 && byte != FRAME_START)
    {
        return false;
    }
    room[count] = byte;
    ++count;
    return Ended();
}

bool FrameCollector::Ended() const
{
    return count == room.size() ||
           (count >= FRAME_TRAILER.size() &&
            std::ranges::equal(room.first(count).last(FRAME_TRAILER.size()), FRAME_TRAILER));
}

}
