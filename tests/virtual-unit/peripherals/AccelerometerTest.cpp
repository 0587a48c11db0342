// Registers and samples.

#include "tests/virtual-unit/peripherals/AccelerometerBench.h"

#include <map>
#include <utility>

namespace
{

using testing::Each;
using testing::ElementsAre;

TEST_F(AccelerometerTest, ItBeginsWithTheValuesOfTheDataSheet)
{
    const std::map<unsigned char, unsigned char> others = {
        {WHO_AM_I, 0x1A}, {0x11, 0x80}, {0x13, 0x44}, {0x14, 0x84}};
    for (unsigned char reg = 0; reg <= 0x31; ++reg)
    {
        const auto found = others.find(reg);
        EXPECT_EQ(Read(reg), found == others.end() ? 0 : found->second) << int{reg};
    }
    EXPECT_EQ(chip.Address(), 0x1C);
}

TEST_F(AccelerometerTest, ItMayBeAnotherChip)
{
    chip.identity = 0x2A;
    EXPECT_EQ(Read(WHO_AM_I), 0x2A);
}

TEST_F(AccelerometerTest, InStandbyTheSettingsChange)
{
    for (const unsigned char reg :
         Bytes{0x09, 0x0A, 0x0E, 0x0F, 0x11, 0x12, 0x13, 0x14, 0x15, 0x17, 0x18, 0x1D, 0x1F, 0x20, 0x21,
               0x23, 0x24, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2A, 0x2B, 0x2C, 0x2D, 0x2E, 0x2F, 0x30, 0x31})
    {
        Write(reg, 0x14);
        EXPECT_EQ(Read(reg), 0x14) << int{reg};
    }
}

TEST_F(AccelerometerTest, WhatItMeasuresCannotBeWritten)
{
    for (const unsigned char reg : Bytes{0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x0B, 0x0C,
                                         0x0D, 0x10, 0x16, 0x19, 0x1E, 0x22, 0x32, 0xFF})
    {
        const unsigned char before = Read(reg);
        Write(reg, 0x14);
        EXPECT_EQ(Read(reg), before) << int{reg};
    }
}

TEST_F(AccelerometerTest, WhileActiveMostSettingsStayAsTheyAre)
{
    Activate();
    for (const unsigned char reg : Bytes{0x0A, 0x0E, 0x0F, 0x11, 0x13, 0x14, 0x15, 0x1D, 0x21, 0x26,
                                         0x27, 0x28, 0x29, 0x2B, 0x2C, 0x2D, 0x2E, 0x2F, 0x30, 0x31})
    {
        const unsigned char before = Read(reg);
        Write(reg, 0x15);
        EXPECT_EQ(Read(reg), before) << int{reg};
    }
    for (const unsigned char reg : Bytes{0x09, 0x12, 0x17, 0x18, 0x1F, 0x20, 0x23, 0x24, 0x25})
    {
        Write(reg, 0x15);
        EXPECT_EQ(Read(reg), 0x15) << int{reg};
    }
}

TEST_F(AccelerometerTest, OfTheFirstControlRegisterOnlyActiveChangesWhileActive)
{
    Activate(HZ_100);
    Write(CTRL_REG1, ACTIVE | F_READ);
    EXPECT_EQ(Read(CTRL_REG1), ACTIVE | HZ_100);
    EXPECT_EQ(Read(SYSMOD), 1);
    Write(CTRL_REG1, F_READ);
    EXPECT_EQ(Read(CTRL_REG1), HZ_100);
    EXPECT_EQ(Read(SYSMOD), 0);
    Write(CTRL_REG1, F_READ);
    EXPECT_EQ(Read(CTRL_REG1), F_READ);
}

TEST_F(AccelerometerTest, AResetBringsTheFirstValuesAndStandby)
{
    Write(TRANSIENT_CFG, 0x1E);
    Write(F_SETUP, CIRCULAR);
    Activate();
    TakeSamples(5);
    Write(CTRL_REG2, 0x40);
    for (const unsigned char reg :
         {STATUS, OUT_X_MSB, F_SETUP, SYSMOD, INT_SOURCE, TRANSIENT_CFG, CTRL_REG1, CTRL_REG2})
    {
        EXPECT_EQ(Read(reg), 0) << int{reg};
    }
    EXPECT_EQ(Read(0x11), 0x80);
    EXPECT_EQ(Read(WHO_AM_I), 0x1A);
}

TEST_F(AccelerometerTest, AWriteGoesOnFromRegisterToRegister)
{
    const std::array<unsigned char, 3> bytes = {1, 2, 3};
    EXPECT_TRUE(chip.Write(0x2B, bytes, now));
    EXPECT_THAT(ReadBlock(0x2B, 4), ElementsAre(1, 2, 3, 0));
}

TEST_F(AccelerometerTest, AtRestItFeelsGravity)
{
    Activate(HZ_100);
    TakeSamples(1);
    EXPECT_THAT(ReadBlock(STATUS, 7), ElementsAre(0x0F, 0, 0, 0, 0, 0x40, 0));
}

TEST_F(AccelerometerTest, AStepIsSmallerTheSmallerTheScale)
{
    const std::map<unsigned char, Bytes> expected = {
        // +1, -1, 1.5 g, each in two bytes
        {0, {0x40, 0x00, 0xC0, 0x00, 0x60, 0x00}},
        {1, {0x20, 0x00, 0xE0, 0x00, 0x30, 0x00}},
        {2, {0x10, 0x00, 0xF0, 0x00, 0x18, 0x00}},
    };
    chip.motion = Motion({1, -1, 1.5});
    for (const auto& [scale, bytes] : expected)
    {
        Write(CTRL_REG1, 0);
        Write(XYZ_DATA_CFG, scale);
        Activate(HZ_100);
        TakeSamples(1);
        EXPECT_EQ(ReadBlock(OUT_X_MSB, 6), bytes) << int{scale};
    }
}

TEST_F(AccelerometerTest, TheLowBytesHoldSixBits)
{
    chip.motion = Motion({1 / 4096.0, -1 / 4096.0, 63 / 4096.0});
    Activate(HZ_100);
    TakeSamples(1);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 6), ElementsAre(0x00, 0x04, 0xFF, 0xFC, 0x00, 0xFC));
}

TEST_F(AccelerometerTest, WhatIsBeyondFullScaleIsLimited)
{
    chip.motion = Motion({5, -5, 2});
    Activate(HZ_100);
    TakeSamples(1);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 6), ElementsAre(0x7F, 0xFC, 0x80, 0x00, 0x7F, 0xFC));
}

TEST_F(AccelerometerTest, TheFirstSampleComesAfterTheTurnOnTimeAndThenOneEachPeriod)
{
    const std::pair<unsigned char, std::chrono::microseconds> rates[] = {
        {0, 1250us}, {1, 2500us}, {2, 5ms}, {3, 10ms}, {4, 20ms}, {5, 80ms}, {6, 160ms}, {7, 640ms}};
    for (const auto& [rate, period] : rates)
    {
        Write(CTRL_REG1, 0);
        Write(CTRL_REG1, static_cast<unsigned char>(rate << 3 | ACTIVE));
        now += 2 * period + 1ms - 1us;
        EXPECT_EQ(Read(STATUS), 0) << int{rate};
        now += 1us;
        EXPECT_EQ(Read(STATUS), 0x0F) << int{rate};
        ReadBlock(OUT_X_MSB, 6);
        now += period - 1us;
        EXPECT_EQ(Read(STATUS), 0) << int{rate};
        now += 1us;
        EXPECT_EQ(Read(STATUS), 0x0F) << int{rate};
    }
}

TEST_F(AccelerometerTest, InStandbyNothingIsMeasured)
{
    Activate(HZ_100);
    TakeSamples(1);
    Write(CTRL_REG1, 0);
    chip.motion = Motion({1, 1, 1});
    now += 1h;
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 6), ElementsAre(0, 0, 0, 0, 0x40, 0));
    EXPECT_EQ(Read(STATUS), 0);
}

TEST_F(AccelerometerTest, TheStatusTellsWhatWasReadAndWhatWasLost)
{
    Activate(HZ_100);
    TakeSamples(1);
    EXPECT_EQ(Read(STATUS), 0x0F);
    Read(OUT_Y_MSB);
    EXPECT_EQ(Read(STATUS), 0x0D);
    TakeSamples(1);
    EXPECT_EQ(Read(STATUS), 0xDF);
    Read(OUT_X_MSB);
    Read(OUT_Y_MSB);
    EXPECT_EQ(Read(STATUS), 0xCC);
    Read(OUT_Z_MSB);
    EXPECT_EQ(Read(STATUS), 0);
}

TEST_F(AccelerometerTest, NewDataIsAnInterruptUntilAllAxesAreRead)
{
    Write(CTRL_REG4, DATA_READY);
    Activate(HZ_100);
    EXPECT_EQ(Read(INT_SOURCE), 0);
    TakeSamples(1);
    EXPECT_EQ(Read(INT_SOURCE), DATA_READY);
    ReadBlock(OUT_X_MSB, 4);
    EXPECT_EQ(Read(INT_SOURCE), DATA_READY);
    Read(OUT_Z_MSB);
    EXPECT_EQ(Read(INT_SOURCE), 0);
}

TEST_F(AccelerometerTest, WithoutFifoALongReadWrapsToTheStatus)
{
    chip.motion = Motion({0.5, -0.5, 1});
    Activate(HZ_100);
    TakeSamples(1);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 10),
                ElementsAre(0x20, 0, 0xE0, 0, 0x40, 0, /*STATUS*/ 0, 0x20, 0, 0xE0));
    Write(CTRL_REG1, 0);
    Activate(HZ_100 | F_READ);
    TakeSamples(1);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 8), ElementsAre(0x20, 0xE0, 0x40, /*STATUS*/ 0, 0x20, 0xE0, 0x40, 0));
}

TEST_F(AccelerometerTest, WhatPassesTheFilterMayBeTheOutput)
{
    Write(XYZ_DATA_CFG, 0x10);
    Write(HP_FILTER_CUTOFF, 0x03);
    Activate(HZ_100 | F_READ);
    TakeSamples(1);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 3), Each(0)); // settled at once: no gravity
    chip.motion = Motion({0, 0, 2});
    TakeSamples(1);
    const unsigned char first = ReadBlock(OUT_X_MSB, 3)[2];
    EXPECT_EQ(first, 0x3E); // 1 g / (1 + 2 pi 0.5 Hz 10 ms) = 0.97 g
    TakeSamples(20);
    EXPECT_EQ(ReadBlock(OUT_X_MSB, 3)[2], 0x21); // 0.97^21 = 0.52 g
    TakeSamples(1000);
    EXPECT_THAT(ReadBlock(OUT_X_MSB, 3), Each(0));
}

TEST_F(AccelerometerTest, AHigherCutOffLetsLessPass)
{
    Write(XYZ_DATA_CFG, 0x10);
    Write(HP_FILTER_CUTOFF, 0x00); // 4 Hz
    Activate(HZ_100 | F_READ);
    TakeSamples(1);
    ReadBlock(OUT_X_MSB, 3);
    chip.motion = Motion({0, 0, 2});
    TakeSamples(1);
    EXPECT_EQ(ReadBlock(OUT_X_MSB, 3)[2], 0x33); // 1 g / (1 + 2 pi 4 Hz 10 ms) = 0.8 g
}

}
