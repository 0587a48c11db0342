#include "SerialProtocol/Frame.h"

#include "SerialProtocol/Crc16.h"

#include <algorithm>

namespace SerialProtocol
{

namespace
{

constexpr unsigned char COMMAND_TYPE = 0x02;
constexpr unsigned char FIXED = 0x01;

constexpr std::size_t TYPE_OFFSET = 2;
constexpr std::size_t STATUS_OFFSET = 5;
constexpr std::size_t IDENTIFIER_OFFSET = 6;
constexpr std::size_t DECIDING_IDENTIFIER_BYTES = 4; // all zero: there is no identifier

constexpr unsigned char ACKNOWLEDGE_TYPE = 0x01;
constexpr unsigned char IDENTIFIER_TYPE = 0x05;
constexpr unsigned char STATUS_TYPE = 0x06;
constexpr unsigned char ERROR_TYPES[] = {0x60, 0x99};

unsigned char HighByte(unsigned int crc)
{
    return static_cast<unsigned char>(crc >> 8);
}

unsigned char LowByte(unsigned int crc)
{
    return static_cast<unsigned char>(crc & 0xFF);
}

Reply::Result ResultOf(unsigned char type)
{
    switch (type)
    {
    case ACKNOWLEDGE_TYPE:
        return Reply::Result::Acknowledged;
    case IDENTIFIER_TYPE:
        return Reply::Result::Identifier;
    case STATUS_TYPE:
        return Reply::Result::Status;
    default:
        return std::ranges::find(ERROR_TYPES, type) != std::end(ERROR_TYPES) ? Reply::Result::Error
                                                                             : Reply::Result::Unknown;
    }
}

}

CommandFrame BuildCommandFrame(unsigned char command)
{
    CommandFrame frame = {FRAME_START, FRAME_START_SECOND, COMMAND_TYPE, FIXED, FIXED, command};
    constexpr std::size_t CRC_OFFSET = COMMAND_FRAME_BYTES - FRAME_END_BYTES;
    const unsigned short crc = Crc16(0, std::span(frame).first(CRC_OFFSET));
    frame[CRC_OFFSET] = HighByte(crc);
    frame[CRC_OFFSET + 1] = LowByte(crc);
    std::ranges::copy(FRAME_TRAILER, frame.begin() + CRC_OFFSET + 2);
    return frame;
}

bool FrameIsAccepted(std::span<const unsigned char> frame)
{
    if (frame.size() < FRAME_END_BYTES)
    {
        return false;
    }
    const std::size_t crcOffset = frame.size() - FRAME_END_BYTES;
    const unsigned short crc = Crc16(0, frame.first(crcOffset));
    return frame[crcOffset] == HighByte(crc) || frame[crcOffset + 1] == crc;
}

Reply DecodeReply(std::span<const unsigned char, REPLY_BYTES> frame)
{
    Reply reply;
    reply.type = frame[TYPE_OFFSET];
    reply.result = ResultOf(reply.type);
    reply.status = frame[STATUS_OFFSET];
    const auto identifier = frame.subspan<IDENTIFIER_OFFSET, IDENTIFIER_BYTES>();
    std::ranges::reverse_copy(identifier, reply.identifier.begin());
    if (reply.result == Reply::Result::Identifier &&
        std::ranges::all_of(identifier.first<DECIDING_IDENTIFIER_BYTES>(),
                            [](unsigned char byte) { return byte == 0; }))
    {
        reply.result = Reply::Result::NoIdentifier;
    }
    return reply;
}

}
