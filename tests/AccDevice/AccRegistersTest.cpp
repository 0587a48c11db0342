// The register operations, one by one.

#include "tests/AccDevice/AccTest.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>

using testing::ElementsAre;
using testing::IsEmpty;

namespace AccTests
{

namespace
{

class AccRegistersTest : public testing::Test
{
protected:
    AccRegistersTest() { EXPECT_TRUE(bus.Acquire(ADDRESS)); }

    ~AccRegistersTest() override { bus.Close(); }

    /// What an operation on CTRL_REG1 makes of each of its values.
    template <class Operation>
    void ExpectChange(int mask, int bits, Operation operation)
    {
        for (int before = 0; before <= 255; ++before)
        {
            const int after = (before & mask) | bits;
            chip.Set(CTRL_REG1, static_cast<unsigned char>(before));
            chip.Forget();
            EXPECT_TRUE(operation());
            EXPECT_THAT(chip.Transfers(), ElementsAre("read 2A", Format("write 2A=%02X", after)));
        }
        chip.FailOn(CTRL_REG1, EIO);
        chip.Forget();
        EXPECT_FALSE(operation()) << "the write's result";
        EXPECT_THAT(chip.Transfers(), ElementsAre("read 2A", Format("write 2A=%02X", (0xFF & mask) | bits)))
            << "a failed read counts as FF";
        Kit::System::Fail("ioctl", ETIMEDOUT);
        chip.FailOn(CTRL_REG1, 0);
        EXPECT_TRUE(operation()) << "the read's result is not looked at";
        EXPECT_EQ(chip.Get(CTRL_REG1), (0xFF & mask) | bits);
    }

    Texts ThresholdWrites(double g)
    {
        chip.Forget();
        EXPECT_TRUE(AccDevice::MMA_GForceThreshold(bus, g)) << g;
        return chip.Transfers();
    }

    Chip chip;
    I2c bus{1};
};

// CTRL_REG1 ----------------------------------------------------------------------------------------------

TEST_F(AccRegistersTest, StandByClearsActive)
{
    ExpectChange(0xFE, 0x00, [&] { return AccDevice::MMA_StandBy(bus); });
}

TEST_F(AccRegistersTest, WakeUpSetsActive)
{
    ExpectChange(0xFF, 0x01, [&] { return AccDevice::MMA_WakeUp(bus); });
}

TEST_F(AccRegistersTest, EightBitsModeSetsFastRead)
{
    ExpectChange(0xFF, 0x02, [&] { return AccDevice::MMA_8BitsMode(bus); });
}

struct Rate
{
    int number;
    int bits;
};

void PrintTo(const Rate& rate, std::ostream* out)
{
    *out << rate.number;
}

class AccRate : public AccRegistersTest, public testing::WithParamInterface<Rate>
{
};

TEST_P(AccRate, ChangesTheRateBitsAndKeepsTheOthers)
{
    ExpectChange(0xC7, GetParam().bits,
                 [&] { return AccDevice::MMA_ODR(bus, static_cast<AccDevice::ODR>(GetParam().number)); });
}

INSTANTIATE_TEST_SUITE_P(Numbers, AccRate,
                         testing::Values(Rate{0, 0x28}, Rate{1, 0x20}, Rate{2, 0x18}, Rate{3, 0x10},
                                         Rate{4, 0x08}, Rate{5, 0}, Rate{6, 0}, Rate{7, 0}, Rate{8, 0},
                                         Rate{0x28, 0}, Rate{-1, 0}, Rate{256, 0},
                                         Rate{std::numeric_limits<int>::max(), 0},
                                         Rate{std::numeric_limits<int>::min(), 0}));

TEST_F(AccRegistersTest, TheRatesHaveTheirNumbers)
{
    EXPECT_EQ(static_cast<int>(AccDevice::ODR::Hz12_5), 0);
    EXPECT_EQ(static_cast<int>(AccDevice::ODR::Hz50), 1);
    EXPECT_EQ(static_cast<int>(AccDevice::ODR::Hz100), 2);
    EXPECT_EQ(static_cast<int>(AccDevice::ODR::Hz200), 3);
    EXPECT_EQ(static_cast<int>(AccDevice::ODR::Hz400), 4);
}

// XYZ_DATA_CFG -------------------------------------------------------------------------------------------

TEST_F(AccRegistersTest, EachScaleHasItsValue)
{
    const std::map<int, const char*> writes = {{2, "write 0E=00"}, {4, "write 0E=01"}, {8, "write 0E=02"}};
    for (const auto& [scale, write] : writes)
    {
        chip.Forget();
        EXPECT_TRUE(AccDevice::MMA_GForceScale(bus, static_cast<AccDevice::GForceScale>(scale)));
        EXPECT_THAT(chip.Transfers(), ElementsAre(write));
        Kit::System::Fail("ioctl", EIO);
        EXPECT_FALSE(AccDevice::MMA_GForceScale(bus, static_cast<AccDevice::GForceScale>(scale)));
    }
}

TEST_F(AccRegistersTest, AnotherScaleWritesNothingAndFails)
{
    chip.Set(0x0E, 0x02);
    chip.Forget();
    for (const int scale : {0, 1, 3, 5, 6, 7, 9, 16, 258, -2, std::numeric_limits<int>::max()})
    {
        EXPECT_FALSE(AccDevice::MMA_GForceScale(bus, static_cast<AccDevice::GForceScale>(scale))) << scale;
    }
    EXPECT_THAT(chip.Transfers(), IsEmpty());
    EXPECT_EQ(chip.Get(0x0E), 0x02);
}

// TRANSIENT_THS ------------------------------------------------------------------------------------------

const std::map<int, int> THRESHOLDS = {{100, 2},   {200, 3},   {300, 5},   {400, 6},   {500, 8},
                                       {600, 9},   {700, 11},  {800, 13},  {900, 14},  {1000, 16},
                                       {1100, 18}, {1200, 19}, {1300, 21}, {1400, 22}, {1500, 24},
                                       {1600, 25}, {1700, 27}, {1800, 29}, {1900, 30}, {2000, 32}};

TEST_F(AccRegistersTest, EachTenthOfAGHasItsThreshold)
{
    for (int tenths = 1; tenths <= 20; ++tenths)
    {
        EXPECT_THAT(ThresholdWrites(tenths / 10.0),
                    ElementsAre(Format("write 1F=%02X", THRESHOLDS.at(tenths * 100))))
            << tenths;
    }
}

TEST_F(AccRegistersTest, EachMilliGIsCutToAWholeNumberAndLookedUp)
{
    for (int milliG = -3000; milliG <= 3000; ++milliG)
    {
        for (const double g : {milliG / 1000.0, milliG / 1000.0 + 0.0004, milliG / 1000.0 - 0.0004})
        {
            const auto found = THRESHOLDS.find(static_cast<std::int32_t>(g * 1000.0));
            EXPECT_THAT(ThresholdWrites(g),
                        ElementsAre(Format("write 1F=%02X", found == THRESHOLDS.end() ? 8 : found->second)))
                << g;
        }
    }
}

TEST_F(AccRegistersTest, WhatLiesBetweenOrBeyondIsEight)
{
    for (const double g : {0.0,
                           -0.0,
                           0.05,
                           0.099,
                           0.101,
                           0.15,
                           1.05,
                           1.099,
                           1.901,
                           1.999,
                           2.001,
                           2.1,
                           2.5,
                           3.0,
                           8.0,
                           -0.1,
                           -1.0,
                           -2.0,
                           1e-300,
                           2'147'483.647,
                           2'147'483.648,
                           4'294'967.396,
                           -4'294'967.196,
                           1e9,
                           1e300,
                           -1e300,
                           std::numeric_limits<double>::max(),
                           std::numeric_limits<double>::lowest(),
                           std::numeric_limits<double>::min(),
                           std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN(),
                           -std::numeric_limits<double>::quiet_NaN()})
    {
        EXPECT_THAT(ThresholdWrites(g), ElementsAre("write 1F=08")) << g;
    }
}

TEST_F(AccRegistersTest, AFractionOfAMilliGIsCutOff)
{
    EXPECT_THAT(ThresholdWrites(1.0009), ElementsAre("write 1F=10"));
    EXPECT_THAT(ThresholdWrites(std::nextafter(2.0, 3.0)), ElementsAre("write 1F=20"));
    EXPECT_THAT(ThresholdWrites(1.9999), ElementsAre("write 1F=08"));
}

TEST_F(AccRegistersTest, AThresholdThatIsNotTakenIsAFailure)
{
    for (const int error : BUS_ERRORS)
    {
        Kit::System::Fail("ioctl", error);
        EXPECT_FALSE(AccDevice::MMA_GForceThreshold(bus, 2.0)) << error;
    }
}

TEST_F(AccRegistersTest, ATenthOfAFloatOrOneThatWasCountedUpMayFallToTheDefault)
{
    std::vector<int> lostFloats;
    std::vector<int> lostSums;
    double sum = 0;
    for (int tenths = 1; tenths <= 20; ++tenths)
    {
        sum += 0.1;
        const Texts meant = ThresholdWrites(tenths / 10.0);
        if (ThresholdWrites(static_cast<double>(static_cast<float>(tenths) / 10.0F)) != meant)
        {
            lostFloats.push_back(tenths);
        }
        if (ThresholdWrites(sum) != meant)
        {
            lostSums.push_back(tenths);
        }
    }
    EXPECT_THAT(lostFloats, ElementsAre(7, 9, 13, 14, 18, 19));
    EXPECT_THAT(lostSums, ElementsAre(8, 9, 10, 11));
    EXPECT_THAT(ThresholdWrites(static_cast<double>(0.7F)), ElementsAre("write 1F=08"));
}

}

}
