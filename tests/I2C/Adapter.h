#ifndef TESTS_I2C_ADAPTER_H
#define TESTS_I2C_ADAPTER_H

#include "tests/kit/MessageDevice.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace I2cTests
{

using Texts = std::vector<std::string>;

inline constexpr const char* ADAPTER = "/dev/i2c-1";

inline constexpr std::array<int, 5> BUS_ERRORS = {EIO, ENXIO, ETIMEDOUT, EBUSY, ENODEV};

template <class... Values>
std::string Format(const char* format, Values... values)
{
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

inline bool IsOpen(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

/**
 * An I2C adapter with one slave of 256 byte registers. It keeps each transfer as a text, numbers in
 * hexadecimal: "slave 1C", "read 0D", "write 2A=01", "block 01 type 8 count 1E".
 */
class Adapter
{
public:
    static constexpr int AS_ASKED = -1;
    static constexpr unsigned char FIRST_OF_BLOCK = 0x80; ///< the bytes of a block count up from here

    explicit Adapter(const std::string& path = ADAPTER)
        : device(path, [this](unsigned long request, void* argument) { return Answer(request, argument); })
    {
    }

    virtual ~Adapter() = default;
    Adapter(const Adapter&) = delete;
    Adapter& operator=(const Adapter&) = delete;

    void Set(unsigned char reg, unsigned char value)
    {
        const std::scoped_lock lock(access);
        registers[reg] = value;
    }

    unsigned char Get(unsigned char reg) const
    {
        const std::scoped_lock lock(access);
        return registers[reg];
    }

    /// Transfers of the register fail with that errno; 0: no longer.
    void FailOn(unsigned char reg, int error)
    {
        const std::scoped_lock lock(access);
        failing[reg] = error;
    }

    /// The count byte that block reads come back with.
    void CountBlocksAs(int bytes)
    {
        const std::scoped_lock lock(access);
        blockCount = bytes;
    }

    /// What ioctls that succeed return.
    void Return(int result)
    {
        const std::scoped_lock lock(access);
        success = result;
    }

    /// How long a transfer takes.
    void Delay(std::chrono::microseconds time)
    {
        const std::scoped_lock lock(access);
        delay = time;
    }

    Texts Transfers() const
    {
        const std::scoped_lock lock(access);
        return transfers;
    }

    void Forget()
    {
        const std::scoped_lock lock(access);
        transfers.clear();
    }

protected:
    // Called with the registers locked.

    virtual unsigned char Read(unsigned char reg) { return registers[reg]; }

    virtual void ReadBlock(unsigned char* bytes, std::size_t room)
    {
        for (std::size_t i = 0; i < room; ++i)
        {
            bytes[i] = static_cast<unsigned char>(FIRST_OF_BLOCK + i);
        }
    }

    mutable std::mutex access;

private:
    int Answer(unsigned long request, void* argument)
    {
        std::chrono::microseconds wait{0};
        {
            const std::scoped_lock lock(access);
            wait = delay;
        }
        if (wait.count() > 0)
        {
            std::this_thread::sleep_for(wait);
        }
        const std::scoped_lock lock(access);
        if (request == I2C_SLAVE)
        {
            transfers.push_back(Format("slave %02lX", reinterpret_cast<unsigned long>(argument)));
            return success;
        }
        return request == I2C_SMBUS ? Transfer(*static_cast<i2c_smbus_ioctl_data*>(argument)) : -ENOTTY;
    }

    int Transfer(i2c_smbus_ioctl_data& transfer)
    {
        const unsigned char reg = transfer.command;
        i2c_smbus_data& data = *transfer.data;
        const bool read = transfer.read_write == I2C_SMBUS_READ;
        const bool byte = transfer.size == I2C_SMBUS_BYTE_DATA;
        if (byte)
        {
            transfers.push_back(read ? Format("read %02X", reg) : Format("write %02X=%02X", reg, data.byte));
        }
        else
        {
            transfers.push_back(Format("%s %02X type %u count %02X", read ? "block" : "block write", reg,
                                       transfer.size, data.block[0]));
        }
        if (const auto error = failing.find(reg); error != failing.end() && error->second != 0)
        {
            return -error->second;
        }
        if (byte && read)
        {
            data.byte = Read(reg);
        }
        else if (byte)
        {
            registers[reg] = data.byte;
        }
        else
        {
            ReadBlock(data.block + 1, sizeof data.block - 1);
            data.block[0] = blockCount == AS_ASKED ? data.block[0] : static_cast<unsigned char>(blockCount);
        }
        return success;
    }

    // All under access.
    std::array<unsigned char, 256> registers{};
    std::map<unsigned char, int> failing;
    int blockCount = AS_ASKED;
    int success = 0;
    std::chrono::microseconds delay{0};
    Texts transfers;

    Kit::MessageDevice device; // last: it answers with the members above
};

}

#endif
