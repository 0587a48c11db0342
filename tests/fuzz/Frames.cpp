// What the key reader sends: the length that is expected, and bytes. However they are framed, a frame stays
// in its room and is decoded; what is framed as the protocol wants it comes out as it went in.

#include "tests/SerialProtocol/Frames.h"
#include "SerialProtocol/Crc16.h"
#include "SerialProtocol/Frame.h"
#include "SerialProtocol/FrameCollector.h"
#include "tests/fuzz/Target.h"

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <string_view>

namespace
{

using SerialProtocol::FrameCollector;

constexpr unsigned char UNUSED = 0xC5;

/// Room for a frame, and bytes behind it that nobody may touch.
using FrameRoom = std::array<unsigned char, 24>;

/// @return how many bytes it took to end the frame; npos: it has not ended
std::size_t FillFrame(FrameCollector& collector, std::string_view bytes)
{
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        if (collector.Take(static_cast<unsigned char>(bytes[i])))
        {
            return i + 1;
        }
    }
    return std::string_view::npos;
}

void RequireWhole(std::string_view front)
{
    const std::string frame = Frames::Framed(front);
    FrameRoom room{};
    FrameCollector collector(std::span<unsigned char>(room).first(20), frame.size());
    const std::size_t end = FillFrame(collector, frame);
    if (frame.find(Frames::TRAILER) + Frames::TRAILER.size() == frame.size()) // it is not in the midst, too
    {
        FUZZ_REQUIRE(end == frame.size() && collector.Count() == frame.size());
        FUZZ_REQUIRE(std::ranges::equal(Frames::Span(frame), std::span(room).first(frame.size())));
        FUZZ_REQUIRE(SerialProtocol::FrameIsAccepted(std::span(room).first(frame.size())));
    }
    FUZZ_REQUIRE(SerialProtocol::Crc16(0, Frames::Span(front)) == Frames::Crc(front));
}

}

FUZZ_TARGET(Frames)
{
    using namespace SerialProtocol;
    Fuzz::Input rest(input);
    const std::size_t expected = rest.Byte() % (LONGEST_RESPONSE_BYTES + 1);
    const std::size_t size = rest.Byte() % 20 + 1;
    const std::string_view bytes = rest.Rest();

    FrameRoom room;
    room.fill(UNUSED);
    FrameCollector collector(std::span<unsigned char>(room).first(size), expected);
    const std::size_t end = FillFrame(collector, bytes);
    FUZZ_REQUIRE(collector.Count() <= std::min(size, expected + 1));
    FUZZ_REQUIRE(std::all_of(room.begin() + static_cast<std::ptrdiff_t>(collector.Count()), room.end(),
                             [](unsigned char byte) { return byte == UNUSED; }));
    if (collector.Count() > 0)
    {
        const std::string_view frame = bytes.substr(bytes.find('\xAA'), collector.Count());
        FUZZ_REQUIRE(std::ranges::equal(Frames::Span(frame), std::span(room).first(frame.size())));
    }
    if (end != std::string_view::npos)
    {
        FUZZ_REQUIRE(collector.Count() == std::min(size, expected + 1) ||
                     bytes.substr(0, end).ends_with(Frames::TRAILER));
        const std::size_t count = collector.Count();
        FUZZ_REQUIRE(collector.Take(FRAME_START) && collector.Count() == count);
    }
    FrameIsAccepted(std::span<const unsigned char>(room).first(collector.Count()));
    const Reply reply = DecodeReply(std::span<const unsigned char>(room).first<REPLY_BYTES>());
    FUZZ_REQUIRE(reply.type == room[2]);
    FUZZ_REQUIRE((reply.result == Reply::Result::Error) == (room[2] == 0x60 || room[2] == 0x99));
    if (reply.result == Reply::Result::Identifier)
    {
        FUZZ_REQUIRE(std::equal(reply.identifier.rbegin(), reply.identifier.rend(), room.begin() + 6));
    }

    RequireWhole(std::string("\xAA").append(bytes.substr(0, LONGEST_RESPONSE_BYTES - FRAME_END_BYTES - 1)));
}
