#ifndef SERIALPROTOCOL_CRC16_H
#define SERIALPROTOCOL_CRC16_H

#include "base/Export.h"

#include <span>

namespace SerialProtocol
{

/**
 * CRC-16/UMTS: polynomial 0x8005, most significant bit first, nothing reflected, no final XOR. Over the
 * nine ASCII digits "123456789", started from 0, it is 0xFEE8. Any thread.
 * @param init 0, or the CRC of the bytes before these
 */
TAVDEVICE_API unsigned short Crc16(unsigned short init, std::span<const unsigned char> bytes);

}

#endif
