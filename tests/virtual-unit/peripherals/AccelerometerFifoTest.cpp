// The FIFO and its interrupt.

#include "tests/virtual-unit/peripherals/AccelerometerBench.h"

namespace
{

using testing::Each;
using testing::ElementsAre;

constexpr unsigned char F_STATUS = STATUS;
constexpr unsigned char F_OVF = 0x80;
constexpr unsigned char F_WMRK_FLAG = 0x40;
constexpr unsigned char TRIG_TRANS = 0x20;

class AccelerometerFifoTest : public AccelerometerTest
{
protected:
    void Start(unsigned char setup, unsigned char control1 = HZ_100 | F_READ)
    {
        Write(CTRL_REG4, FIFO);
        Write(F_SETUP, setup);
        Activate(control1);
        NumberSamples(100);
    }

    /// The X of the samples that are read, fast: as numbered, from 1.
    Bytes Numbers(std::size_t samples)
    {
        const Bytes bytes = ReadBlock(OUT_X_MSB, 3 * samples);
        Bytes numbers;
        for (std::size_t i = 0; i < bytes.size(); i += 3)
        {
            numbers.push_back(bytes[i]);
        }
        return numbers;
    }
};

TEST_F(AccelerometerFifoTest, ItFillsSampleBySample)
{
    Start(CIRCULAR);
    EXPECT_EQ(Read(F_STATUS), 0);
    for (unsigned char count = 1; count < 32; ++count)
    {
        TakeSamples(1);
        EXPECT_EQ(Read(F_STATUS), count);
    }
    TakeSamples(1);
    EXPECT_EQ(Read(F_STATUS), F_OVF | 32);
}

TEST_F(AccelerometerFifoTest, AReadGivesSamplesOldestFirstAndTakesThemOut)
{
    Start(CIRCULAR);
    TakeSamples(5);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 6), ElementsAre(1, 2, 3, 2, 3, 4));
    EXPECT_EQ(Read(F_STATUS), 3);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 9), ElementsAre(3, 4, 5, 4, 5, 6, 5, 6, 7));
    EXPECT_EQ(Read(F_STATUS), 0);
}

TEST_F(AccelerometerFifoTest, AnEmptyFifoGivesZeros)
{
    Start(CIRCULAR);
    TakeSamples(1);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 9), ElementsAre(1, 2, 3, 0, 0, 0, 0, 0, 0));
}

TEST_F(AccelerometerFifoTest, WithoutFastReadASampleIsSixBytes)
{
    Start(CIRCULAR, HZ_100);
    TakeSamples(2);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 12), ElementsAre(1, 0, 2, 0, 3, 0, 2, 0, 3, 0, 4, 0));
}

TEST_F(AccelerometerFifoTest, ASampleThatIsReadInPartIsLost)
{
    Start(CIRCULAR);
    TakeSamples(3);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 4), ElementsAre(1, 2, 3, 2));
    EXPECT_EQ(Read(F_STATUS), 1);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 3), ElementsAre(3, 4, 5));
}

TEST_F(AccelerometerFifoTest, AReadThatComesFromTheStatusStaysAtTheDoor)
{
    Start(CIRCULAR);
    TakeSamples(2);
    EXPECT_THAT(ReadBlock(F_STATUS, 7), ElementsAre(2, 1, 2, 3, 2, 3, 4));
}

TEST_F(AccelerometerFifoTest, TheOtherOutputRegistersAreZero)
{
    Start(CIRCULAR);
    TakeSamples(2);
    EXPECT_THAT(ReadBlock(0x02, 5), Each(0));
    EXPECT_EQ(Read(F_STATUS), 2);
}

TEST_F(AccelerometerFifoTest, ACircularOneDropsTheOldest)
{
    Start(CIRCULAR);
    TakeSamples(40);
    EXPECT_EQ(Read(F_STATUS), F_OVF | 32);
    EXPECT_THAT(Numbers(2), ElementsAre(9, 10));
    EXPECT_EQ(Read(F_STATUS), 30);
}

TEST_F(AccelerometerFifoTest, AFullOneInFillModeTakesNoMore)
{
    Start(FILL);
    TakeSamples(40);
    EXPECT_EQ(Read(F_STATUS), F_OVF | 32);
    EXPECT_THAT(Numbers(2), ElementsAre(1, 2));
    TakeSamples(1);
    EXPECT_EQ(Read(F_STATUS), 31);
    const Bytes numbers = Numbers(31);
    EXPECT_EQ(numbers[29], 32);
    EXPECT_EQ(numbers[30], 41);
}

TEST_F(AccelerometerFifoTest, TheWatermarkIsToldAsLongAsItIsReached)
{
    Start(CIRCULAR | 4);
    TakeSamples(3);
    EXPECT_EQ(Read(F_STATUS), 3);
    TakeSamples(1);
    EXPECT_EQ(Read(F_STATUS), F_WMRK_FLAG | 4);
    EXPECT_EQ(Read(F_STATUS), F_WMRK_FLAG | 4);
    TakeSamples(28);
    EXPECT_EQ(Read(F_STATUS), F_OVF | F_WMRK_FLAG | 32);
    Numbers(29);
    EXPECT_EQ(Read(F_STATUS), 3);
}

TEST_F(AccelerometerFifoTest, TheInterruptGoesWithTheStatusReadAndComesWithTheNextSample)
{
    Start(CIRCULAR | 4);
    TakeSamples(3);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    TakeSamples(1);
    EXPECT_EQ(Read(INT_SOURCE), FIFO);
    EXPECT_EQ(Read(INT_SOURCE), FIFO);
    Read(F_STATUS);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    TakeSamples(1);
    EXPECT_EQ(Read(INT_SOURCE), FIFO);
    Numbers(3); // below the watermark
    EXPECT_EQ(Read(INT_SOURCE), FIFO);
    Read(F_STATUS);
    TakeSamples(1);
    EXPECT_EQ(Read(INT_SOURCE), 0);
}

TEST_F(AccelerometerFifoTest, AWatermarkOfZeroIsNoneButAFullFifoIsAnInterrupt)
{
    Start(CIRCULAR);
    TakeSamples(31);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    TakeSamples(1);
    EXPECT_EQ(Read(INT_SOURCE), FIFO);
}

TEST_F(AccelerometerFifoTest, AFullOneInFillModeIsNoInterruptAgain)
{
    Start(FILL);
    TakeSamples(32);
    EXPECT_EQ(Read(INT_SOURCE), FIFO);
    Read(F_STATUS);
    TakeSamples(10);
    EXPECT_EQ(Read(INT_SOURCE), 0);
}

TEST_F(AccelerometerFifoTest, AnInterruptThatIsNotEnabledIsNotSeen)
{
    Write(F_SETUP, CIRCULAR);
    Activate();
    TakeSamples(40);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    EXPECT_EQ(Read(F_STATUS), F_OVF | 32);
}

TEST_F(AccelerometerFifoTest, SwitchedOffItForgetsEverything)
{
    Start(CIRCULAR | 4);
    TakeSamples(40);
    Write(F_SETUP, 0);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    Write(F_SETUP, CIRCULAR | 4);
    EXPECT_EQ(Read(F_STATUS), 0);
}

TEST_F(AccelerometerFifoTest, SwitchedOffItLeavesThePlainOutput)
{
    Start(CIRCULAR);
    TakeSamples(3);
    Write(F_SETUP, 0);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 3), ElementsAre(3, 4, 5));
    TakeSamples(1);
    EXPECT_EQ(Read(STATUS), 0x0F);
}

TEST_F(AccelerometerFifoTest, ActiveStartsWithAnEmptyFifo)
{
    Start(CIRCULAR);
    TakeSamples(32);
    Write(CTRL_REG1, 0);
    EXPECT_EQ(Read(F_STATUS), F_OVF | 32); // kept in standby
    TakeSamples(1);
    Write(CTRL_REG1, HZ_100 | ACTIVE);
    EXPECT_EQ(Read(F_STATUS), 0);
    EXPECT_EQ(Read(INT_SOURCE), 0);
}

TEST_F(AccelerometerFifoTest, WhileActiveAnotherModeNeedsItOffFirst)
{
    Start(TRIGGER | 16);
    TakeSamples(2);
    Write(F_SETUP, CIRCULAR);
    EXPECT_EQ(Read(F_SETUP), TRIGGER | 16);
    Write(F_SETUP, TRIGGER | 8);
    EXPECT_EQ(Read(F_SETUP), TRIGGER | 8);
    EXPECT_EQ(Read(F_STATUS), 2);
    Write(F_SETUP, 0);
    Write(F_SETUP, CIRCULAR);
    EXPECT_EQ(Read(F_SETUP), CIRCULAR);
    Write(CTRL_REG1, 0);
    Write(F_SETUP, FILL);
    EXPECT_EQ(Read(F_SETUP), FILL);
}

class AccelerometerTriggerTest : public AccelerometerFifoTest
{
protected:
    /// Numbered samples, the event is on another axis: a blow of 4 g downwards on Z, at that sample.
    void StartWithBlowAt(int sample, unsigned char trigger = TRIG_TRANS)
    {
        Write(TRIG_CFG, trigger);
        Write(TRANSIENT_CFG, 0x08);
        Write(TRANSIENT_THS, 32);
        Start(TRIGGER | 16);
        chip.motion.Add({now + sample * PERIOD - 2ms, 4ms, {0, 0, -4}});
    }
};

TEST_F(AccelerometerTriggerTest, WithoutTheEventItKeepsAsManyAsTheWatermarkSaysAndIsQuiet)
{
    StartWithBlowAt(1000);
    TakeSamples(100);
    EXPECT_EQ(Read(F_STATUS), 16);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    EXPECT_THAT(Numbers(1), ElementsAre(85));
}

TEST_F(AccelerometerTriggerTest, TheEventLetsItFillUpAndStop)
{
    StartWithBlowAt(50);
    TakeSamples(49);
    EXPECT_EQ(Read(F_STATUS), 16);
    TakeSamples(1);
    EXPECT_EQ(Read(F_STATUS), 17);
    TakeSamples(14);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    TakeSamples(1);
    EXPECT_EQ(Read(INT_SOURCE), FIFO);
    EXPECT_EQ(Read(F_STATUS), F_OVF | 32);
    TakeSamples(30);
    const Bytes numbers = Numbers(32);
    EXPECT_EQ(numbers.front(), 34);
    EXPECT_EQ(numbers.back(), 65);
    TakeSamples(5);
    EXPECT_EQ(Read(F_STATUS), 0);
}

TEST_F(AccelerometerTriggerTest, SwitchedOffAndOnItWaitsForTheNextEvent)
{
    StartWithBlowAt(50);
    TakeSamples(90);
    Write(F_SETUP, 0);
    Write(F_SETUP, TRIGGER | 16);
    TakeSamples(60);
    EXPECT_EQ(Read(F_STATUS), 16);
    EXPECT_EQ(Read(INT_SOURCE), 0);
}

TEST_F(AccelerometerTriggerTest, AnEventThatIsNoTriggerIsPassedOver)
{
    StartWithBlowAt(50, 0);
    TakeSamples(100);
    EXPECT_EQ(Read(F_STATUS), 16);
}

}
