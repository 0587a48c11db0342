#include "SerialProtocol/Crc16.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace SerialProtocol
{

namespace
{

constexpr unsigned int POLYNOMIAL = 0x8005;
constexpr unsigned int TOP_BIT = 0x8000;
constexpr unsigned int REGISTER = 0xFFFF;
constexpr int BITS = 8;

using Table = std::array<std::uint16_t, 256>;

/// The register after a byte has gone into an empty one.
constexpr Table LAST = [] {
    Table table{};
    for (unsigned int byte = 0; byte < table.size(); ++byte)
    {
        unsigned int crc = byte << BITS;
        for (int bit = 0; bit < BITS; ++bit)
        {
            crc = (crc << 1) ^ ((crc & TOP_BIT) != 0 ? POLYNOMIAL : 0);
        }
        table[byte] = static_cast<std::uint16_t>(crc & REGISTER);
    }
    return table;
}();

constexpr unsigned int Next(unsigned int crc, unsigned char byte)
{
    return (crc << BITS & REGISTER) ^ LAST[(crc >> BITS) ^ byte];
}

/// The register after a byte and a zero byte have gone into an empty one.
constexpr Table LAST_BUT_ONE = [] {
    Table table{};
    for (unsigned int byte = 0; byte < table.size(); ++byte)
    {
        table[byte] = static_cast<std::uint16_t>(Next(LAST[byte], 0));
    }
    return table;
}();

}

unsigned short Crc16(unsigned short init, std::span<const unsigned char> bytes)
{
    // Two bytes a step fill the register, so that a step is two look-ups that do not wait for each other.
    unsigned int crc = init;
    std::size_t i = 0;
    for (; i + 1 < bytes.size(); i += 2)
    {
        crc = LAST_BUT_ONE[(crc >> BITS) ^ bytes[i]] ^ LAST[(crc & 0xFF) ^ bytes[i + 1]];
    }
    if (i < bytes.size())
    {
        crc = Next(crc, bytes[i]);
    }
    return static_cast<unsigned short>(crc);
}

}
