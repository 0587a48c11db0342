#ifndef SERIALPROTOCOL_FRAME_H
#define SERIALPROTOCOL_FRAME_H

#include "base/Export.h"

#include <array>
#include <cstddef>
#include <span>

/**
 * The frames of the command protocol as bytes; ISerialComm carries them. Any thread.
 *
 * Command, 10 bytes: 0xAA 0x55, type 0x02, 0x01 0x01, the command code, CRC, trailer.
 * Response, at most 17 bytes: 0xAA, one byte, the type, then what the type has, CRC, trailer.
 *
 * The CRC (Crc16.h) covers all bytes before it and comes high byte first; the trailer is 0xEF 0x0D.
 */
namespace SerialProtocol
{

constexpr unsigned char FRAME_START = 0xAA;                          ///< of commands and responses
constexpr unsigned char FRAME_START_SECOND = 0x55;                   ///< of commands
constexpr std::array<unsigned char, 2> FRAME_TRAILER = {0xEF, 0x0D}; ///< the last two bytes of each frame

constexpr std::size_t COMMAND_FRAME_BYTES = 10;    ///< CRC and trailer included
constexpr std::size_t LONGEST_RESPONSE_BYTES = 17; ///< likewise
constexpr std::size_t FRAME_END_BYTES = 4;         ///< CRC and trailer
constexpr std::size_t REPLY_BYTES = 12;            ///< those of a response that DecodeReply() may look at
constexpr std::size_t IDENTIFIER_BYTES = 6;        ///< of a key

using CommandFrame = std::array<unsigned char, COMMAND_FRAME_BYTES>; ///< a whole one

TAVDEVICE_API CommandFrame BuildCommandFrame(unsigned char command); ///< with CRC and trailer

/**
 * Whether the CRC of a whole response, trailer included, is good enough. That it is loose is meant: the
 * readers in the field are taken at their word when the high byte alone is right, and when the CRC as a
 * number equals the low byte (which is then below 256).
 * @return false for less than the four bytes of CRC and trailer
 */
TAVDEVICE_API bool FrameIsAccepted(std::span<const unsigned char> frame);

/// What a response says.
struct Reply
{
    /// Which of them it is.
    enum class Result : int
    {
        Error = -1,       ///< type 0x60 or 0x99: the peripheral reports an error
        Acknowledged = 0, ///< type 0x01
        Status = 1,       ///< type 0x06: `status` holds the status byte
        NoIdentifier = 2, ///< type 0x05 with its first four bytes zero, whatever the last two are
        Identifier = 3,   ///< type 0x05: `identifier` holds the identifier
        Unknown = 5       ///< any other type
    };

    Result result = Result::Unknown;                          ///< says which of the others mean something
    unsigned char type = 0;                                   ///< as it stands in the frame
    unsigned char status = 0;                                 ///< means something with Result::Status
    std::array<unsigned char, IDENTIFIER_BYTES> identifier{}; ///< the last byte of the frame's comes first
};

/// Decodes a response that has been accepted. A short one is followed by whatever the buffer holds: no
/// result but Result::Identifier depends on it.
TAVDEVICE_API Reply DecodeReply(std::span<const unsigned char, REPLY_BYTES> frame);

}

#endif
