// An I2C adapter that answers whatever it likes: errors, counts and bytes. What is handed over stays in its
// buffer, with the length that the adapter told, and the accelerometer takes it.

#include "I2C/I2c.h"
#include "base/Tavbase/TavubufferDynamic.h"
#include "tests/fuzz/Target.h"
#include "tests/kit/MessageDevice.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <string_view>
#include <sys/ioctl.h>

namespace
{

/// Each answer is a byte: 0xFF, 0xFE and so on fail, any other succeeds; and then the transfer's bytes.
int AnswerFrom(Fuzz::Input& answers, unsigned long request, void* argument)
{
    constexpr int ERRORS[] = {EIO, ENXIO, ETIMEDOUT, EBUSY};
    const unsigned char how = answers.Byte();
    if (how > 0xFF - std::size(ERRORS))
    {
        return -ERRORS[0xFF - how];
    }
    if (request == I2C_SMBUS)
    {
        const i2c_smbus_ioctl_data& transfer = *static_cast<i2c_smbus_ioctl_data*>(argument);
        if (transfer.read_write == I2C_SMBUS_READ)
        {
            const std::size_t room = transfer.size == I2C_SMBUS_BYTE_DATA ? 1 : sizeof(transfer.data->block);
            const std::string_view bytes = answers.Bytes(room);
            std::memcpy(transfer.data->block, bytes.data(), bytes.size());
        }
    }
    return how % 3;
}

}

FUZZ_TARGET(I2cBlock)
{
    using Tavdevice::I2C::I2c;
    constexpr unsigned char UNUSED = 0xC5;
    Fuzz::Input rest(input);
    Kit::MessageDevice device("/dev/i2c-1", [&rest](unsigned long request, void* argument) {
        return AnswerFrom(rest, request, argument);
    });
    I2c bus(1);
    bus.Acquire(rest.Byte());
    while (!rest.AtEnd())
    {
        const unsigned char what = rest.Byte();
        const unsigned char reg = rest.Byte();
        if (what % 4 == 0)
        {
            const int value = bus.ReadByte(reg);
            FUZZ_REQUIRE(value >= -1 && value <= 0xFF);
        }
        else if (what % 4 == 1)
        {
            bus.WriteByte(reg, what);
        }
        else
        {
            const std::size_t capacity = rest.Byte() + (what % 8 == 7 ? 200U : 0U);
            TavubufferDynamic buffer;
            buffer.Allocate(capacity);
            std::fill_n(buffer.data, capacity, UNUSED);
            const bool read = bus.ReadBytes(reg, buffer);
            FUZZ_REQUIRE(buffer.length <= buffer.capacity && buffer.length <= I2C_SMBUS_BLOCK_MAX + 2);
            FUZZ_REQUIRE(read || buffer.length == 0);
        }
    }
    bus.Close();
}
