// The transient event.

#include "tests/virtual-unit/peripherals/AccelerometerBench.h"

namespace
{

// TRANSIENT_CFG
constexpr unsigned char X = 0x02;
constexpr unsigned char Y = 0x04;
constexpr unsigned char Z = 0x08;
constexpr unsigned char LATCHED = 0x10;
constexpr unsigned char UNFILTERED = 0x01;

// TRANSIENT_SRC
constexpr unsigned char EVENT = 0x40;
constexpr unsigned char ON_X = 0x02;
constexpr unsigned char ON_Y = 0x08;
constexpr unsigned char ON_Z = 0x20;
constexpr unsigned char X_NEGATIVE = 0x01;

constexpr unsigned char CLEARING = 0x80; // TRANSIENT_THS: DBCNTM

class AccelerometerTransientTest : public AccelerometerTest
{
protected:
    /// Some samples at rest have been taken.
    void Start(unsigned char config, unsigned char threshold = 32, unsigned char count = 1)
    {
        Write(TRANSIENT_CFG, config);
        Write(TRANSIENT_THS, threshold);
        Write(TRANSIENT_COUNT, count);
        Write(HP_FILTER_CUTOFF, 0x03);
        Write(CTRL_REG4, TRANSIENT);
        Activate();
        TakeSamples(10);
    }

    /// The next sample feels that, on top of gravity.
    void Strike(double x, double y, double z)
    {
        chip.motion.Add({now + PERIOD - 2ms, 4ms, {x, y, z}});
        TakeSamples(1);
    }
};

TEST_F(AccelerometerTransientTest, GravityIsNone)
{
    Start(LATCHED | X | Y | Z, 8);
    TakeSamples(1000);
    EXPECT_EQ(Read(TRANSIENT_SRC), 0);
    EXPECT_EQ(Read(INT_SOURCE), 0);
}

TEST_F(AccelerometerTransientTest, AStrikeAboveTheThresholdIsAnEventAndAnInterrupt)
{
    Start(LATCHED | X | Y | Z);
    Strike(3, 0, 0);
    EXPECT_EQ(Read(INT_SOURCE), TRANSIENT);
    EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_X);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    EXPECT_EQ(Read(TRANSIENT_SRC), 0);
}

TEST_F(AccelerometerTransientTest, AxesAndSignsAreTold)
{
    Start(LATCHED | X | Y | Z);
    Strike(-3, 3, 0);
    EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_X | X_NEGATIVE | ON_Y);
    TakeSamples(1000);
    Read(TRANSIENT_SRC);
    Strike(0, 0, 3);
    EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_Z);
}

TEST_F(AccelerometerTransientTest, AnAxisThatIsNotEnabledIsPassedOver)
{
    Start(LATCHED | X | Z);
    Strike(0, 7, 0);
    EXPECT_EQ(Read(TRANSIENT_SRC), 0);
    Strike(3, 7, 0);
    EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_X);
}

TEST_F(AccelerometerTransientTest, TheThresholdIsInStepsOf63MilliG)
{
    // The filter lets 0.9695 of a jump pass: 1 / (1 + 2 pi 0.5 Hz 10 ms)
    constexpr double PASSED = 0.96954;
    for (const unsigned char threshold : Bytes{1, 16, 32, 120})
    {
        const double g = threshold * 0.063 / PASSED;
        Write(CTRL_REG1, 0);
        Start(LATCHED | X, threshold);
        Strike(g * 0.999, 0, 0);
        EXPECT_EQ(Read(TRANSIENT_SRC), 0) << int{threshold};
        TakeSamples(1000);
        Strike(g * 1.001, 0, 0);
        EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_X) << int{threshold};
    }
}

TEST_F(AccelerometerTransientTest, TheScaleDoesNotMatter)
{
    Start(LATCHED | X, 90); // 5.7 g, at a scale of 2 g
    Strike(7, 0, 0);
    EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_X);
}

TEST_F(AccelerometerTransientTest, InLowNoiseModeNothingAbove4GIsFelt)
{
    Write(TRANSIENT_CFG, LATCHED | X | UNFILTERED);
    Write(TRANSIENT_THS, 64); // 4.03 g
    Activate(HZ_100 | 0x04);
    TakeSamples(1);
    Strike(7, 0, 0);
    EXPECT_EQ(Read(TRANSIENT_SRC), 0);
}

TEST_F(AccelerometerTransientTest, ItMustLastAsManySamplesAsTheCountSays)
{
    Start(LATCHED | X | UNFILTERED, 32, 3);
    Strike(3, 0, 0);
    Strike(3, 0, 0);
    EXPECT_EQ(Read(TRANSIENT_SRC), 0);
    Strike(3, 0, 0);
    EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_X);
}

TEST_F(AccelerometerTransientTest, ASampleBelowTakesOneOffTheCountOrAll)
{
    for (const unsigned char mode : {static_cast<unsigned char>(0), CLEARING})
    {
        Write(CTRL_REG1, 0);
        Start(LATCHED | X | UNFILTERED, static_cast<unsigned char>(32 | mode), 3);
        Strike(3, 0, 0);
        Strike(3, 0, 0);
        Strike(0, 0, 0);
        Strike(3, 0, 0);
        EXPECT_EQ(Read(TRANSIENT_SRC), 0);
        Strike(3, 0, 0);
        EXPECT_EQ(Read(TRANSIENT_SRC), mode == CLEARING ? 0 : EVENT | ON_X);
    }
}

TEST_F(AccelerometerTransientTest, LatchedTheFirstEventStaysUntilItIsRead)
{
    Start(LATCHED | X | Y | UNFILTERED);
    Strike(3, 0, 0);
    Strike(0, 3, 0);
    TakeSamples(100);
    EXPECT_EQ(Read(INT_SOURCE), TRANSIENT);
    EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_X);
}

TEST_F(AccelerometerTransientTest, NotLatchedItTellsThePresentState)
{
    Start(X | UNFILTERED);
    Strike(3, 0, 0);
    EXPECT_EQ(Read(INT_SOURCE), TRANSIENT);
    TakeSamples(1);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    EXPECT_EQ(Read(TRANSIENT_SRC), 0);
}

TEST_F(AccelerometerTransientTest, UnfilteredGravityCountsToo)
{
    Start(LATCHED | Z | UNFILTERED, 8);
    EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_Z);
}

TEST_F(AccelerometerTransientTest, AnInterruptThatIsNotEnabledIsNotSeen)
{
    Write(TRANSIENT_CFG, LATCHED | X);
    Write(TRANSIENT_THS, 32);
    Activate();
    TakeSamples(10);
    Strike(3, 0, 0);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_X);
}

TEST_F(AccelerometerTransientTest, ActiveForgetsAnEventOfBefore)
{
    Start(LATCHED | X);
    Strike(3, 0, 0);
    Write(CTRL_REG1, 0);
    EXPECT_EQ(Read(INT_SOURCE), TRANSIENT);
    Activate();
    EXPECT_EQ(Read(INT_SOURCE), 0);
}

TEST_F(AccelerometerTransientTest, ABumpIsBelow2GAndACrashAbove)
{
    Start(LATCHED | X | Y | Z);
    chip.motion.Bump(now);
    TakeSamples(100);
    EXPECT_EQ(Read(TRANSIENT_SRC), 0);
    chip.motion.Crash(now);
    TakeSamples(100);
    EXPECT_EQ(Read(TRANSIENT_SRC), EVENT | ON_X | X_NEGATIVE);
}

}
