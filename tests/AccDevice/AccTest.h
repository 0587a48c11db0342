#ifndef TESTS_ACCDEVICE_ACCTEST_H
#define TESTS_ACCDEVICE_ACCTEST_H

#include "AccDevice/AccDevice.h"
#include "tests/I2C/Adapter.h"
#include "tests/kit/DeviceTest.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace AccTests
{

using namespace std::chrono_literals;
using I2cTests::Adapter;
using I2cTests::BUS_ERRORS;
using I2cTests::Format;
using I2cTests::Texts;
using Kit::Clock;
using Tavdevice::ACC::AccDevice;
using Tavdevice::I2C::I2c;

inline constexpr unsigned char ADDRESS = 0x1C;
inline constexpr unsigned char INT_SOURCE = 0x0C;
inline constexpr unsigned char WHO_AM_I = 0x0D;
inline constexpr unsigned char OUT_X_MSB = 0x01;
inline constexpr unsigned char CTRL_REG1 = 0x2A;

/// What the accelerometer does in a step that finds a batch.
inline const Texts BATCH_STEP = {"read 0C", "block 01 type 8 count 1E", "read 00"};

/// The chip: tells its identity, and has its FIFO flag set while there is a batch to fetch.
class Chip : public Adapter
{
public:
    using Adapter::Adapter;

    void Fill(int batches = 1)
    {
        const std::scoped_lock lock(access);
        waiting += batches;
    }

    int Waiting() const
    {
        const std::scoped_lock lock(access);
        return waiting;
    }

    void BecomeAnother(unsigned char identity) { Set(WHO_AM_I, identity); }

protected:
    unsigned char Read(unsigned char reg) override
    {
        return reg == INT_SOURCE && waiting > 0 ? 0x40 : Adapter::Read(reg);
    }

    void ReadBlock(unsigned char* bytes, std::size_t room) override
    {
        Adapter::ReadBlock(bytes, room);
        bytes[0] = static_cast<unsigned char>(fetched++); // tells the batches apart
        waiting = std::max(waiting - 1, 0);
    }

private:
    int waiting = 0;
    int fetched = 0;
};

/// One call of the application's receiver.
struct Batch
{
    std::vector<unsigned char> bytes;
    std::chrono::nanoseconds at{0};
    std::thread::id thread;
};

class Receiver : public AccDevice::IThreadDelegate
{
public:
    void ThreadCallback(void* value) override
    {
        std::chrono::milliseconds pause{0};
        {
            const std::scoped_lock lock(access);
            buffer = static_cast<TavubufferDynamic*>(value);
            batches.push_back({{buffer->data, buffer->data + buffer->length},
                               Clock::Elapsed(),
                               std::this_thread::get_id()});
            pause = slowness;
        }
        if (pause.count() > 0)
        {
            std::this_thread::sleep_for(pause);
        }
    }

    std::size_t Count() const
    {
        const std::scoped_lock lock(access);
        return batches.size();
    }

    std::vector<Batch> All() const
    {
        const std::scoped_lock lock(access);
        return batches;
    }

    void BeSlow(std::chrono::milliseconds time)
    {
        const std::scoped_lock lock(access);
        slowness = time;
    }

    /// The accelerometer's buffer: lives as long as that, and belongs to its thread.
    TavubufferDynamic* Buffer() const
    {
        const std::scoped_lock lock(access);
        return buffer;
    }

private:
    mutable std::mutex access;
    std::vector<Batch> batches;
    std::chrono::milliseconds slowness{0};
    TavubufferDynamic* buffer = nullptr;
};

class AccTest : public Kit::DeviceTest
{
protected:
    AccTest() { chip.Set(WHO_AM_I, 0x1A); }

    bool Prepare(AccDevice& device)
    {
        AccDevice::IThreadDelegate* delegate = &receiver;
        return device.Prepare(delegate);
    }

    bool Prepare() { return Prepare(accelerometer); }

    /// Prepared, and running as its thread would have it, but on the test's own thread.
    void Begin()
    {
        ASSERT_TRUE(Prepare());
        ASSERT_NE(accelerometer.RunBefore(), 0);
        ForgetAll();
    }

    void ForgetAll()
    {
        chip.Forget();
        Kit::System::ForgetCalls();
    }

    static std::size_t Count(const char* function) { return Kit::System::CallsOf(function).size(); }

    Chip chip;
    Receiver receiver;
    AccDevice accelerometer{1, ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100};
};

}

#endif
