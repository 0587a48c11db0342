#include "AccDevice/AccDevice.h"

#include "AccDevice/Mma8451q.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

namespace Tavdevice::ACC
{

namespace
{

using namespace Mma8451q;

constexpr double SHOCK_G = 2.0;
constexpr std::uint64_t SAMPLE_BYTES = 30; // ten samples of three axes
constexpr std::chrono::milliseconds POLL_INTERVAL{20};

}

struct AccDevice::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has bases, whose parts come first
    static_assert(offsetof(AccDevice, adapterNumber) < offsetof(AccDevice, slaveAddress));
    static_assert(offsetof(AccDevice, slaveAddress) < offsetof(AccDevice, scale));
    static_assert(offsetof(AccDevice, scale) < offsetof(AccDevice, dataRate));
    static_assert(offsetof(AccDevice, dataRate) < offsetof(AccDevice, chipFound));
    static_assert(offsetof(AccDevice, chipFound) < offsetof(AccDevice, bus));
    static_assert(offsetof(AccDevice, bus) < offsetof(AccDevice, samples));
#pragma GCC diagnostic pop
};

AccDevice::AccDevice(unsigned char adapter, unsigned char address, GForceScale fullScale, ODR rate)
    : adapterNumber(adapter), slaveAddress(address), scale(fullScale), dataRate(rate)
{
    name = "ACC-DEVICE";
    SetErrorSource("Tavdevice", "AccDevice");
}

AccDevice::~AccDevice()
{
    Stop();
}

bool AccDevice::Prepare(IThreadDelegate*& delegate)
{
    ResetError();
    chipFound = false;
    try
    {
        bus = I2C::I2c(adapterNumber);
        if (delegate == nullptr)
        {
            throw std::runtime_error("callback function should not be null");
        }
        AddCallback(delegate);
        if (!bus.Acquire(slaveAddress))
        {
            throw std::runtime_error(bus.GetErrorMessage());
        }
        if (bus.ReadByte(WHO_AM_I) != IDENTITY)
        {
            throw std::runtime_error("Accelerometer not found");
        }
        chipFound = true;
        Program();
        bus.Close(); // until the thread opens it again
        samples.Allocate(SAMPLE_BYTES);
        return true;
    }
    catch (const std::exception& e)
    {
        SetErrorNumber(bus.GetErrorNumber());
        SetError(e, "Prepare", true, true);
        bus.Close();
        return false;
    }
}

void AccDevice::Program()
{
    MMA_StandBy(bus);
    MMA_ODR(bus, dataRate);
    MMA_GForceThreshold(bus, SHOCK_G);
    bus.WriteByte(TRANSIENT_CFG, LATCHED_XYZ_FILTERED);
    bus.WriteByte(TRANSIENT_COUNT, ONE_SAMPLE);
    bus.WriteByte(HP_FILTER_CUTOFF, LOWEST_CUTOFF);
    MMA_8BitsMode(bus);
    bus.WriteByte(F_SETUP, FIFO_TRIGGERED_WATERMARK_16);
    bus.WriteByte(TRIG_CFG, TRIGGERED_BY_TRANSIENT);
    bus.WriteByte(CTRL_REG2, NORMAL_MODE);
    bus.WriteByte(CTRL_REG3, FIFO_GATE_PINS_ACTIVE_HIGH);
    bus.WriteByte(CTRL_REG4, FIFO_AND_TRANSIENT);
    bus.WriteByte(CTRL_REG5, TRANSIENT_ON_INT1);
    MMA_GForceScale(bus, scale);
    MMA_WakeUp(bus);
}

int AccDevice::RunBefore()
{
    if (!bus.Acquire(slaveAddress))
    {
        std::printf("ERROR: %s\n", bus.GetErrorMessage().c_str());
        return 0;
    }
    if (samples.data == nullptr)
    {
        samples.Allocate(SAMPLE_BYTES); // the thread ran before, and is started again
    }
    bus.WriteByte(F_SETUP, FIFO_OFF);
    bus.WriteByte(F_SETUP, FIFO_CIRCULAR);
    bus.ReadByte(F_STATUS); // clears pending flags
    return 1;
}

void AccDevice::Run()
{
    // A failed read has every bit set, and so asks for the samples too.
    const int source = bus.ReadByte(INT_SOURCE);
    if ((source & SOURCE_FIFO) != 0)
    {
        const bool fetched = bus.ReadBytes(OUT_X_MSB, samples);
        if (fetched)
        {
            DoCallback(&samples);
        }
        bus.ReadByte(F_STATUS);
        if (fetched || source >= 0)
        {
            return;
        }
        // A bus that refuses at once must not take the whole processor.
    }
    std::this_thread::sleep_for(POLL_INTERVAL);
}

void AccDevice::RunAfter()
{
    samples.Allocate(0);
    bus.Close();
}

}
