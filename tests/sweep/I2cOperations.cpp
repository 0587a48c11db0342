#include "AccDevice/AccDevice.h"
#include "I2C/HidI2C.h"
#include "I2C/I2c.h"
#include "Sensors/Alerter.h"
#include "Sensors/Beeper/Beeper.h"
#include "base/Tavbase/TavubufferDynamic.h"
#include "tests/AccDevice/AccTest.h"
#include "tests/I2C/Adapter.h"
#include "tests/I2C/Bridge.h"
#include "tests/sweep/Operation.h"

#include <string>

namespace
{

using Sweep::Text;
using Tavdevice::HidI2C;
using Tavdevice::ACC::AccDevice;
using Tavdevice::I2C::I2c;

constexpr int SLAVE = 0x1C;

struct Bus
{
    explicit Bus(bool opened = true)
    {
        if (opened)
        {
            i2c.Open();
            i2c.Acquire(SLAVE);
        }
    }

    ~Bus() { i2c.Close(); }

    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    I2cTests::Adapter adapter;
    I2c i2c{1};
};

SWEEP(I2c, Open)
{
    Bus bus(false);
    Sweep::Try([&] { return Text(bus.i2c.Open()); });
}

SWEEP(I2c, Close)
{
    Bus bus;
    Sweep::Try([&] { return Text(bus.i2c.Close()); });
}

SWEEP(I2c, Acquire)
{
    Bus bus(false);
    bus.i2c.Open();
    Sweep::Try([&] { return Text(bus.i2c.Acquire(SLAVE)); });
}

SWEEP(I2c, ReadByte)
{
    Bus bus;
    Sweep::Try([&] { return Text(bus.i2c.ReadByte(0x0D)); });
}

SWEEP(I2c, ReadBytes)
{
    Bus bus;
    TavubufferDynamic buffer(30);
    Sweep::Try(
        [&] { return Text(bus.i2c.ReadBytes(1, buffer)) + " " + Text(static_cast<int>(buffer.length)); });
}

SWEEP(I2c, WriteByte)
{
    Bus bus;
    Sweep::Try([&] { return Text(bus.i2c.WriteByte(0x2A, 1)); });
}

struct Accelerometer
{
    Accelerometer() { chip.Set(AccTests::WHO_AM_I, 0x1A); }

    bool Prepare()
    {
        AccDevice::IThreadDelegate* delegate = &receiver;
        return device.Prepare(delegate);
    }

    AccTests::Chip chip;
    AccTests::Receiver receiver;
    AccDevice device{1, AccTests::ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100};
};

SWEEP(AccDevice, Prepare)
{
    Accelerometer made;
    Sweep::Try([&] { return Text(made.Prepare()) + " " + Text(made.device.IsChipFound()); });
    made.device.RunAfter();
}

SWEEP(AccDevice, RunBefore)
{
    Accelerometer made;
    made.Prepare();
    Sweep::Try([&] { return Text(made.device.RunBefore()); });
    made.device.RunAfter();
}

SWEEP(AccDevice, Run)
{
    Accelerometer made;
    made.Prepare();
    made.device.RunBefore();
    made.chip.Fill();
    Sweep::Try([&] {
        made.device.Run();
        return Text(static_cast<int>(made.receiver.Count())) + " batches";
    });
    made.device.RunAfter();
}

SWEEP(AccDevice, RunAfter)
{
    Accelerometer made;
    made.Prepare();
    made.device.RunBefore();
    Sweep::Try([&] {
        made.device.RunAfter();
        return std::string("done");
    });
}

struct Bridged
{
    explicit Bridged(bool opened = true)
    {
        if (opened)
        {
            hid.Open(I2cTests::BRIDGE);
        }
    }

    ~Bridged() { hid.Close(); }

    Bridged(const Bridged&) = delete;
    Bridged& operator=(const Bridged&) = delete;

    I2cTests::Bridge bridge;
    HidI2C hid;
};

SWEEP(HidI2C, Open)
{
    Bridged made(false);
    Sweep::Try([&] { return Text(made.hid.Open(I2cTests::BRIDGE)); });
}

SWEEP(HidI2C, Close)
{
    Bridged made(false);
    made.hid.Open(I2cTests::BRIDGE);
    Sweep::Try([&] { return Text(made.hid.Close()); });
}

SWEEP(HidI2C, Write)
{
    Bridged made;
    unsigned char bytes[] = {1, 2, 3};
    int written = 7;
    Sweep::Try([&] {
        return Text(made.hid.I2C_Write(0x5A, Tavdevice::FT260_I2C_START_AND_STOP, bytes, sizeof bytes,
                                       &written)) +
               " " + Text(written);
    });
}

SWEEP(HidI2C, Read)
{
    Bridged made;
    made.bridge.Send(I2cTests::Bytes({0xD0, 2, 0x12, 0x34}));
    unsigned char bytes[8] = {};
    int count = 7;
    Sweep::Try([&] {
        return Text(made.hid.I2C_Read(0x5A, Tavdevice::FT260_I2C_START_AND_STOP, bytes, 2, &count)) + " " +
               Text(count);
    });
}

/// With the word for whether an alert device is there as a process begins with it.
struct Chips
{
    Chips() { Tavdevice::Alerter::isPresent = false; }

    ~Chips() { Tavdevice::Alerter::isPresent = false; }

    Chips(const Chips&) = delete;
    Chips& operator=(const Chips&) = delete;

    I2cTests::Bridge bridge;
    Tavdevice::Beeper beeper;
};

SWEEP(Beeper, Open)
{
    Chips made;
    Sweep::Try([&] { return Text(made.beeper.Open()); });
    made.beeper.Close();
}

SWEEP(Beeper, Close)
{
    Chips made;
    made.beeper.Open();
    Sweep::Try([&] { return Text(made.beeper.Close()); });
}

SWEEP(Beeper, CheckPresence)
{
    Chips made;
    Sweep::Try([&] { return Text(made.beeper.CheckPresence()); });
}

SWEEP(Beeper, Alert)
{
    Chips made;
    made.beeper.CheckPresence();
    Sweep::Try([&] { return Text(made.beeper.Alert()); });
}

}
