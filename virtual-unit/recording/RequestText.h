#ifndef VIRTUAL_UNIT_RECORDING_REQUESTTEXT_H
#define VIRTUAL_UNIT_RECORDING_REQUESTTEXT_H

#include "virtual-unit/peripherals/IoctlPeripheral.h"

#include <cstddef>
#include <cstdint>
#include <linux/i2c.h>
#include <optional>
#include <string>
#include <string_view>

namespace VirtualUnit
{

/**
 * Requests and answers as text for people, and back.
 *
 * | Request | Answer, when it succeeds |
 * |---|---|
 * | "pin 103 = 1" | "0" |
 * | "descriptor size" (HIDIOCGRDESCSIZE) | "150" |
 * | "name 256" (HIDIOCGRAWNAME with room for 256 bytes) | "'FTDI FT260'" |
 * | "info" (HIDIOCGRAWINFO) | "bus 0x0003, vendor 0x0403, product 0x6030" |
 * | "ioctl 0x1234" (any other) | what it returns, "0" |
 * | "select 0x1C", "select 0x1C by force" (I2C) | "0" |
 * | "read 0x1C:0x0C" (a byte of a register) | "A5" |
 * | "read 0x1C:0x01, 6 bytes" (a block) | "00 01 02 03 04 05", and ", count 7" when the adapter told that |
 * | "write 0x1C:0x2A 01" (a byte or a block of one), "write 0x1C:0x2A 01 02" | "0" |
 * | "transfer 0x1C:0x2A, direction 1, type 3" (any other) | "0" |
 *
 * The answer to a request that fails is the name of its errno, "ENXIO", or "errno 4000" when it has none.
 */
class RequestText
{
public:
    using Ioctl = IoctlPeripheral::Ioctl;

    /// What a request gave.
    struct Outcome
    {
        int result = 0;     ///< 0 or more; below 0: a negated errno
        std::string stored; ///< in the caller's memory; of a transfer: the begin of its data

        bool operator==(const Outcome&) const = default;
    };

    static std::string Of(const Ioctl& call);

    /// @param result what the device answered to `call` @return that, with what the caller was given
    static Outcome Given(const Ioctl& call, int result);

    static std::string OfSelection(std::uint64_t address, bool force);
    static std::string OfTransfer(unsigned char slave, unsigned char direction, unsigned char reg,
                                  std::uint32_t type, const i2c_smbus_data& data);

    /// @param count I2cPeripheral::Count() before the transfer @param error 0 or an errno
    static Outcome Given(unsigned char direction, std::uint32_t type, std::size_t count,
                         const i2c_smbus_data& data, int error);

    static std::string Encode(const std::string& request, const Outcome& outcome);

    /// @return none: the request is none, or the answer is none to it
    static std::optional<Outcome> Decode(const std::string& request, const std::string& answer);

    /// Requests of different channels have nothing to do with each other.
    /// @return "pin 103"; empty: the channel that the rest of a port is
    static std::string Channel(const std::string& request);

    static std::string_view NameOf(const std::string& request); ///< of the pin; empty: it is about none
};

}

#endif
