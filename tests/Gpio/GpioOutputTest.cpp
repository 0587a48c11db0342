// The application defines its listener as it likes: this file is built once for each way.

#include "Gpio/GpioManager.h"
#include "tests/Gpio/GpioTest.h"

#include <cstdint>

namespace GpioTests
{

namespace
{

/// Something of the application's own, with data and a table of its own.
class Appliance
{
public:
    virtual ~Appliance() = default;

    virtual int Number() const { return number; }

private:
    int number = 4711;
};

using Delegate = Tavbase::Interfaces::ISignal::ISignalDelegate;

#if defined(DELEGATE_IS_SECOND)
class Listening : public Appliance, public Delegate
{
};
#elif defined(DELEGATE_IS_VIRTUAL)
class Relay : public Appliance, public virtual Delegate
{
};

class Sensor : public virtual Delegate
{
};

class Listening : public Relay, public Sensor // one delegate in all
{
};
#endif

}

}

namespace Tavdevice::Gpio
{

class GpioOutput : public GpioTests::Listening
{
public:
    void SignalCallback(void* value) override
    {
        codes.push_back(static_cast<GpioArgs*>(value)->code);
        self = this;
    }

    std::vector<std::int32_t> codes;
    GpioOutput* self = nullptr;
};

}

namespace GpioTests
{

namespace
{

using Tavdevice::Gpio::GpioManager;
using Tavdevice::Gpio::GpioOutput;

TEST_F(GpioTest, AListenerWhoseDelegateIsNotItsFirstPartIsCalledRight)
{
    GpioOutput first;
    GpioOutput second;
    ASSERT_NE(static_cast<void*>(static_cast<Delegate*>(&first)), static_cast<void*>(&first));
    GpioOutput* listeners[] = {nullptr, &first, nullptr, &second};
    {
        GpioManager manager(listeners, 4);
        manager.SignalFire(3);
        manager.RunIgnitionStart();
        driver.Trigger(4);
        LetOthersRun();
    }
    for (GpioOutput* listener : {&first, &second})
    {
        EXPECT_THAT(listener->codes, testing::ElementsAre(3, 4));
        EXPECT_EQ(listener->self, listener);
        EXPECT_EQ(listener->Number(), 4711);
    }
}

}

}
