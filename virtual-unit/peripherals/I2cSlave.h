#ifndef VIRTUAL_UNIT_PERIPHERALS_I2CSLAVE_H
#define VIRTUAL_UNIT_PERIPHERALS_I2CSLAVE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace VirtualUnit
{

/**
 * An emulated chip on an I2C bus, with registers of eight bits.
 *
 * Threads: none of its own and no lock; the bus' host sees to it that one call is made at a time.
 */
class I2cSlave
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Bytes = std::vector<unsigned char>;

    /// What goes wrong; may be changed at any time.
    struct Faults
    {
        static constexpr std::size_t EVERY = SIZE_MAX;

        std::size_t goodTransfers = 0; ///< so many are taken first; counts down
        std::size_t naks = 0;          ///< so many are not acknowledged then; counts down, but for EVERY
    };

    explicit I2cSlave(unsigned char busAddress) : address(busAddress) {}

    I2cSlave(const I2cSlave&) = delete;
    I2cSlave& operator=(const I2cSlave&) = delete;
    virtual ~I2cSlave() = default;

    Faults faults;

    unsigned char Address() const { return address; } ///< 7 bits

    /// One transfer: selects a register and reads `count` bytes from there. Times must not go back.
    /// @return none when the slave did not acknowledge
    std::optional<Bytes> Read(unsigned char reg, std::size_t count, TimePoint now);

    /// One transfer: writes bytes from a register on. @return false when the slave did not acknowledge
    bool Write(unsigned char reg, std::span<const unsigned char> bytes, TimePoint now);

protected:
    virtual Bytes ReadRegisters(unsigned char reg, std::size_t count, TimePoint now) = 0;
    virtual void WriteRegisters(unsigned char reg, std::span<const unsigned char> bytes, TimePoint now) = 0;

private:
    bool Acknowledges();

    unsigned char address;
};

}

#endif
