// From end to end: the library with an emulated chip on the bus.

#include "tests/AccDevice/AccTest.h"
#include "tests/virtual-unit/EmulatedDevice.h"
#include "virtual-unit/peripherals/Accelerometer.h"
#include "virtual-unit/peripherals/I2cAdapter.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <optional>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using VirtualUnit::Accelerometer;
using VirtualUnit::I2cAdapter;
using VirtualUnit::I2cSlave;
using VirtualUnit::Motion;

namespace AccTests
{

namespace
{

using Samples = std::vector<unsigned char>;

constexpr std::chrono::milliseconds PERIOD = 10ms; // at 100 Hz
constexpr std::chrono::milliseconds TURN_ON = 21ms;
constexpr std::size_t SAMPLES_PER_BATCH = 10;

unsigned char EightBits(double g)
{
    const long steps = std::clamp(std::lround(g * 4096), -8192L, 8191L); // 14 bits, at a scale of 2 g
    return static_cast<unsigned char>(steps >> 6);
}

class EmulatedChip : public Kit::DeviceTest
{
protected:
    EmulatedChip() { adapter.Add(chip); }

    ~EmulatedChip() override { accelerometer.Stop(); }

    bool Prepare()
    {
        AccDevice::IThreadDelegate* delegate = &receiver;
        prepared = std::chrono::steady_clock::now();
        return accelerometer.Prepare(delegate);
    }

    void Start()
    {
        ASSERT_TRUE(Prepare());
        ASSERT_TRUE(accelerometer.Start());
    }

    unsigned char Register(unsigned char reg)
    {
        return bus.Locked([&] { return chip.Read(reg, 1, std::chrono::steady_clock::now())->front(); });
    }

    /// The bytes of all batches, one behind the other.
    Samples Stream() const
    {
        Samples stream;
        for (const Batch& batch : receiver.All())
        {
            stream.insert(stream.end(), batch.bytes.begin(), batch.bytes.end());
        }
        return stream;
    }

    /// What the chip felt, sample by sample, since it was prepared.
    Samples Felt(std::size_t samples) const
    {
        Samples bytes;
        for (std::size_t i = 0; i < samples; ++i)
        {
            const Motion::Acceleration felt =
                chip.motion.At(prepared + TURN_ON + static_cast<int>(i) * PERIOD);
            bytes.insert(bytes.end(), {EightBits(felt.x), EightBits(felt.y), EightBits(felt.z)});
        }
        return bytes;
    }

    bool AwaitBatches(std::size_t count)
    {
        return Clock::WaitUntil([&] { return receiver.Count() >= count; });
    }

    Accelerometer chip;
    I2cAdapter adapter;
    EmulatedDevice bus{"/dev/i2c-1", adapter};
    Receiver receiver;
    AccDevice accelerometer{1, ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100};
    std::chrono::steady_clock::time_point prepared;
};

TEST_F(EmulatedChip, PreparedItHasTakenEverySetting)
{
    EXPECT_TRUE(Prepare());
    EXPECT_TRUE(accelerometer.IsChipFound());
    EXPECT_EQ(Register(0x09), 0xD0); // F_SETUP
    EXPECT_EQ(Register(0x0A), 0x20); // TRIG_CFG
    EXPECT_EQ(Register(0x0B), 0x01); // SYSMOD: awake
    EXPECT_EQ(Register(0x0E), 0x00); // XYZ_DATA_CFG
    EXPECT_EQ(Register(0x0F), 0x03); // HP_FILTER_CUTOFF
    EXPECT_EQ(Register(0x1D), 0x1E); // TRANSIENT_CFG
    EXPECT_EQ(Register(0x1F), 0x20); // TRANSIENT_THS
    EXPECT_EQ(Register(0x20), 0x01); // TRANSIENT_COUNT
    EXPECT_EQ(Register(0x2A), 0x1B); // CTRL_REG1: 100 Hz, fast, active
    EXPECT_EQ(Register(0x2B), 0x00);
    EXPECT_EQ(Register(0x2C), 0x82);
    EXPECT_EQ(Register(0x2D), 0x60);
    EXPECT_EQ(Register(0x2E), 0x20);
}

TEST_F(EmulatedChip, PreparedAgainWhileItMeasuresItTakesTheSettingsAnew)
{
    ASSERT_TRUE(Prepare());
    AccDevice other(1, ADDRESS, AccDevice::GForceScale::Eight, AccDevice::ODR::Hz12_5);
    AccDevice::IThreadDelegate* delegate = &receiver;
    EXPECT_TRUE(other.Prepare(delegate));
    EXPECT_EQ(Register(0x0E), 0x02);
    EXPECT_EQ(Register(0x2A), 0x2B);
}

TEST_F(EmulatedChip, TheThreadPutsTheFifoFromTriggeredToCircular)
{
    Start();
    EXPECT_TRUE(Clock::WaitUntil([&] { return Register(0x09) == 0x40; }));
}

// The circular FIFO asks for no event: it is read whenever it is full.
TEST_F(EmulatedChip, AtRestTheSamplesOfGravityAreHandedOnAsTheyCome)
{
    Start();
    ASSERT_TRUE(AwaitBatches(5));
    EXPECT_EQ(Stream(), Felt(5 * SAMPLES_PER_BATCH));
    const std::vector<Batch> batches = receiver.All();
    // The 32nd sample fills it, 10 of them make room; the poll is every 20 ms.
    for (std::size_t i = 0; i < batches.size(); ++i)
    {
        const auto filled = TURN_ON + 31 * PERIOD + static_cast<int>(i * SAMPLES_PER_BATCH) * PERIOD;
        EXPECT_GE(batches[i].at, filled) << i;
        EXPECT_LE(batches[i].at, filled + 20ms) << i;
        EXPECT_THAT(batches[i].bytes, SizeIs(3 * SAMPLES_PER_BATCH)) << i;
    }
}

TEST_F(EmulatedChip, ACrashIsHandedOnSampleBySample)
{
    chip.motion.Crash(std::chrono::steady_clock::now() + 500ms);
    Start();
    ASSERT_TRUE(AwaitBatches(10));
    const Samples stream = Stream();
    EXPECT_EQ(stream, Felt(10 * SAMPLES_PER_BATCH));
    EXPECT_THAT(stream, testing::Contains(0x80)); // backwards, at full scale
    EXPECT_NE(Register(0x0C) & 0x20, 0);          // the event is pending: nobody asks for it
}

TEST_F(EmulatedChip, ABumpIsNoEvent)
{
    chip.motion.Bump(std::chrono::steady_clock::now() + 500ms);
    Start();
    ASSERT_TRUE(AwaitBatches(10));
    EXPECT_EQ(Stream(), Felt(10 * SAMPLES_PER_BATCH));
    EXPECT_EQ(Register(0x0C) & 0x20, 0);
}

TEST_F(EmulatedChip, StoppedAndStartedAgainItBeginsWithAnEmptyFifo)
{
    Start();
    ASSERT_TRUE(AwaitBatches(2));
    accelerometer.Stop();
    const auto begin = Clock::Elapsed();
    ASSERT_TRUE(accelerometer.Start());
    ASSERT_TRUE(AwaitBatches(3));
    EXPECT_GE(receiver.All()[2].at - begin, 31 * PERIOD);
}

TEST_F(EmulatedChip, WithoutAChipAtTheAddressNoneIsFound)
{
    AccDevice elsewhere(1, 0x1D, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100);
    AccDevice::IThreadDelegate* delegate = &receiver;
    EXPECT_FALSE(elsewhere.Prepare(delegate));
    EXPECT_EQ(elsewhere.GetErrorMessage(), "Accelerometer not found");
}

TEST_F(EmulatedChip, AnotherChipIsNotTheAccelerometer)
{
    chip.identity = 0x2A;
    EXPECT_FALSE(Prepare());
    EXPECT_EQ(accelerometer.GetErrorMessage(), "Accelerometer not found");
    EXPECT_FALSE(accelerometer.IsChipFound());
}

TEST_F(EmulatedChip, AChipThatADriverHasIsRefused)
{
    adapter.faults.selection = EBUSY;
    EXPECT_FALSE(Prepare());
    EXPECT_EQ(accelerometer.GetErrorMessage(), "ioctl error: Device or resource busy");
}

// Bits that nobody writes again stay set: among them low noise, which limits what the chip feels to 4 g.
TEST_F(EmulatedChip, AControlRegisterThatCannotBeReadIsTakenForAllOnes)
{
    chip.faults = {.goodTransfers = 1, .naks = 1}; // after WHO_AM_I
    EXPECT_TRUE(Prepare());
    EXPECT_EQ(Register(0x2A), 0xDF);
}

TEST_F(EmulatedChip, WhileItMeasuresAControlRegisterThatCannotBeReadDoesNoHarm)
{
    ASSERT_TRUE(Prepare());
    chip.faults = {.goodTransfers = 1, .naks = 1};
    EXPECT_TRUE(Prepare());
    EXPECT_EQ(Register(0x2A), 0x1B);
}

TEST_F(EmulatedChip, SomeTransfersThatAreNotAcknowledgedCostNoSample)
{
    Start();
    ASSERT_TRUE(AwaitBatches(2));
    bus.Locked([&] { chip.faults.naks = 6; });
    ASSERT_TRUE(AwaitBatches(5));
    EXPECT_EQ(Stream(), Felt(5 * SAMPLES_PER_BATCH));
}

TEST_F(EmulatedChip, ABlockThatTellsTooManyBytesIsNotHandedOn)
{
    Start();
    ASSERT_TRUE(AwaitBatches(1));
    bus.Locked([&] { adapter.faults.blockCount = 33; });
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(receiver.Count(), 1U);
    bus.Locked([&] { adapter.faults.blockCount.reset(); });
    EXPECT_TRUE(AwaitBatches(2));
}

TEST_F(EmulatedChip, ABlockThatTellsFewerBytesIsAShorterBatch)
{
    adapter.faults.blockCount = 27;
    Start();
    ASSERT_TRUE(AwaitBatches(1));
    EXPECT_EQ(receiver.All().front().bytes, Felt(9));
}

}

}
