#ifndef I2C_I2C_H
#define I2C_I2C_H

#include "base/Export.h"
#include "base/Tavbase/Interfaces/IError.h"
#include "base/Tavbase/TavubufferDynamic.h"

#include <string>

namespace Tavdevice::I2C
{

/**
 * One I2C adapter ("/dev/i2c-N"), as the master of SMBus transfers with one slave at a time.
 *
 *     I2c bus(1);
 *     if (bus.Acquire(0x1C))
 *     {
 *         const int identity = bus.ReadByte(0x0D);
 *         bus.Close();
 *     }
 *
 * Open() and Acquire() record their failures in the error record; the transfers report by their result alone.
 * Nothing is thrown, nothing is logged.
 *
 * Close() closes the adapter, the destructor does not. A copy shares the descriptor: one of the two closes. A
 * second Open(), and an assignment to an open object, lose its descriptor (docs/limits.md).
 *
 * Threads: no lock; an object belongs to one thread at a time. The error record may be read from any.
 */
class TAVDEVICE_API I2c : public Tavbase::Interfaces::IError
{
public:
    I2c(); ///< names no adapter; it cannot be opened
    /// Names the adapter "/dev/i2c-" and the number; does not touch it.
    explicit I2c(int adapter);
    I2c(const I2c& other) = default;            ///< shares the descriptor
    I2c& operator=(const I2c& other) = default; ///< shares the descriptor; its own is lost
    ~I2c() override;                            ///< does not close

    bool Open(); ///< @return false when the adapter cannot be opened

    /// @return false when the adapter could not be closed (it then stays open); true when it is closed,
    /// also when it was before
    bool Close();

    /**
     * Selects a slave, after opening the adapter where that is still to be done.
     * @param address 7 bits
     * @return false when the adapter cannot be opened or refuses the address
     */
    bool Acquire(int address);

    int ReadByte(unsigned char reg); ///< @return the register, 0 to 255; -1 on failure

    /**
     * Reads the registers from `reg` on into a buffer, at most 32 bytes in one transfer. As many bytes are
     * asked for as the low eight bits of its `capacity` say: a capacity of 256 asks for none.
     * @param buffer `length` becomes the number of bytes that came, never more than `capacity`
     * @return false on failure, with a `length` of 0; false for a buffer without storage, which stays as it
     * is
     */
    bool ReadBytes(unsigned char reg, TavubufferDynamic& buffer);

    bool WriteByte(unsigned char reg, unsigned char value); ///< @return true when the slave took it

private:
    struct Layout; ///< checks the order of the fields

    /// Records an error with the present errno. @return false
    bool Fail(const char* message, const char* where);

    std::string device;
    int fd = -1; ///< below 1: closed
};

}

#endif
