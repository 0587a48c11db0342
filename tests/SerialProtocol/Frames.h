#ifndef TESTS_SERIALPROTOCOL_FRAMES_H
#define TESTS_SERIALPROTOCOL_FRAMES_H

#include <span>
#include <string>
#include <string_view>

/// Frames of the command protocol, made without the library.
namespace Frames
{

inline std::span<const unsigned char> Span(std::string_view bytes)
{
    return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}

/// CRC-16/UMTS by its definition: bit by bit through a shift register.
inline unsigned int Crc(std::string_view bytes, unsigned int begin = 0)
{
    unsigned int crc = begin;
    for (const unsigned char byte : bytes)
    {
        for (unsigned int mask = 0x80; mask != 0; mask >>= 1)
        {
            const bool feedback = ((crc & 0x8000) != 0) != ((byte & mask) != 0);
            crc = ((crc << 1) & 0xFFFF) ^ (feedback ? 0x8005U : 0U);
        }
    }
    return crc;
}

inline constexpr std::string_view TRAILER = "\xEF\x0D";

inline std::string WithEnd(std::string_view front, unsigned int high, unsigned int low)
{
    std::string frame(front);
    frame += static_cast<char>(high);
    frame += static_cast<char>(low);
    return frame.append(TRAILER);
}

/// The bytes before the CRC, the CRC and the trailer.
inline std::string Framed(std::string_view front)
{
    const unsigned int crc = Crc(front);
    return WithEnd(front, crc >> 8, crc & 0xFF);
}

/// A response of 10 bytes. `payload` is the byte before the CRC.
inline std::string Short(unsigned char type, unsigned char payload = 0)
{
    const std::string front = {'\xAA', '\x55', static_cast<char>(type),
                               '\x01', '\x01', static_cast<char>(payload)};
    return Framed(front);
}

/// A response of 17 bytes. `identifier` are the six bytes in its middle, in the order of the frame.
inline std::string Long(unsigned char type, std::string_view identifier)
{
    std::string front = {'\xAA', '\x55', static_cast<char>(type), '\x01', '\x08', '\x01'};
    front += identifier;
    front += '\x7C';
    return Framed(front);
}

inline std::string Command(unsigned char command)
{
    return Short(0x02, command);
}

/// The front of a response of 10 bytes whose CRC is below 256.
inline std::string FrontWithASmallCrc()
{
    for (unsigned int tried = 0; tried <= 0xFFFF; ++tried)
    {
        const std::string front = {
            '\xAA', '\x55', '\x01', '\x01', static_cast<char>(tried >> 8), static_cast<char>(tried & 0xFF)};
        if (Crc(front) != 0 && Crc(front) < 0x100)
        {
            return front;
        }
    }
    return {};
}

}

#endif
