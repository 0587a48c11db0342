#ifndef I2C_HIDI2C_H
#define I2C_HIDI2C_H

#include "base/Export.h"

#include <string>

namespace Tavdevice
{

/// The I2C condition of an FT260 transfer, byte 2 of its request; any other value is passed on as it is.
enum FT260_I2C_FLAG : unsigned char
{
    FT260_I2C_NONE = 0x00,
    FT260_I2C_START = 0x02,
    FT260_I2C_REPEATED_START = 0x03,
    FT260_I2C_STOP = 0x04,
    FT260_I2C_START_AND_STOP = 0x06
};

/**
 * An FT260 USB-to-I2C bridge behind the kernel's hidraw interface.
 *
 * Failures are told by the result and by one line on standard error; what the kernel knows about the device,
 * and what it sends, is printed to standard output. Nothing is logged or thrown.
 *
 * Close() closes the device, the destructor does not. Neither changes what the object remembers: call Close()
 * once for each Open(). After it the number may be that of another file of the process, which a further
 * Close() closes and I2C_Write() writes to. A second Open() before it loses the first descriptor.
 *
 * A bridge that is pulled out while it is open comes back under another number, such as "/dev/hidraw1". More
 * of this kind: docs/limits.md.
 *
 * Threads: no lock; an object belongs to one thread at a time.
 */
class TAVDEVICE_API HidI2C
{
public:
    HidI2C(); ///< "/dev/hidraw0", closed
    HidI2C(const HidI2C&) = delete;
    HidI2C& operator=(const HidI2C&) = delete;
    virtual ~HidI2C(); ///< does not close

    /**
     * Opens a hidraw device and prints its report descriptor's size, its name, and its bus and identifiers.
     * @return false when it cannot be opened, or does not tell its descriptor's size or its identifiers; in
     *         the latter two cases it is open all the same
     */
    bool Open(const std::string& path);

    bool Close(); ///< @return false when the system could not close it; true when it was never open

    /**
     * Writes to a slave, by one report.
     * @param address 7 bits
     * @param data    `len` bytes
     * @param len     0 to 4
     * @param written receives `len`, or -1 when the report was not taken; untouched when none was sent; may
     *                be null
     * @return true when the report was taken
     */
    bool I2C_Write(unsigned char address, FT260_I2C_FLAG flag, unsigned char* data, unsigned short len,
                   int* written);

    /**
     * Asks a slave for bytes and, half a second later, prints the report that came. The bytes themselves are
     * not handed over.
     * @param address 7 bits
     * @param data    not used
     * @param len     how many bytes, 0 to 60
     * @param count   receives how many bytes the report holds; untouched on failure; may be null
     * @return true when an I2C input report came
     */
    bool I2C_Read(unsigned char address, FT260_I2C_FLAG flag, unsigned char* data, unsigned short len,
                  int* count);

    /// Prints `n` bytes in hexadecimal to standard output, as one line.
    void DoPrint(char* report, int n);

private:
    struct Layout; ///< checks the order of the fields

    std::string device;
    int fd = 0; ///< 0: not open yet
};

}

#endif
