// Every call that a bus makes fails in turn.

#include "I2C/I2c.h"

#include "tests/I2C/Adapter.h"
#include "tests/kit/DeviceTest.h"

using Tavdevice::I2C::I2c;
using testing::ElementsAreArray;

namespace I2cTests
{

namespace
{

/// The steps that failed in a session that uses everything.
Texts Session(I2c& bus)
{
    Texts failed;
    const auto note = [&failed](const char* step, bool done) {
        if (!done)
        {
            failed.emplace_back(step);
        }
    };
    TavubufferDynamic buffer(30);
    note("Open", bus.Open());
    note("Acquire", bus.Acquire(0x1C));
    note("WriteByte", bus.WriteByte(0x2A, 0x5A));
    note("ReadByte", bus.ReadByte(0x2A) >= 0);
    note("ReadBytes", bus.ReadBytes(0x01, buffer));
    note("Close", bus.Close());
    return failed;
}

struct SweepRow
{
    const char* function;
    std::vector<Texts> failures; ///< by the 1st, 2nd, ... call of the function
};

void PrintTo(const SweepRow& row, std::ostream* out)
{
    *out << row.function;
}

class I2cSweep : public testing::TestWithParam<SweepRow>
{
};

TEST_P(I2cSweep, EachCallFailingInTurnHasItsStatedResult)
{
    const SweepRow& row = GetParam();
    for (const int error : BUS_ERRORS)
    {
        for (std::size_t nth = 1; nth <= row.failures.size() + 1; ++nth)
        {
            Kit::System::Reset();
            Adapter adapter;
            I2c bus(1);
            Kit::System::Fail(row.function, error, static_cast<int>(nth));
            const Texts failed = Session(bus);
            if (nth > row.failures.size())
            {
                EXPECT_THAT(failed, ElementsAreArray(Texts{})) << "a call more than expected";
                EXPECT_EQ(Kit::System::FailuresDone(), 0) << nth;
                continue;
            }
            EXPECT_THAT(failed, ElementsAreArray(row.failures[nth - 1])) << nth << ", errno " << error;
            EXPECT_EQ(Kit::System::FailuresDone(), 1);
            bus.Close();
            EXPECT_THAT(Session(bus), ElementsAreArray(Texts{})) << "the bus is as good as new";
            EXPECT_FALSE(bus.HasError());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, I2cSweep,
                         testing::Values(SweepRow{"open", {{"Open"}}}, // Acquire() opens it then
                                         SweepRow{"ioctl",
                                                  {{"Acquire"}, {"WriteByte"}, {"ReadByte"}, {"ReadBytes"}}},
                                         SweepRow{"close", {{"Close"}}}),
                         [](const auto& row) { return std::string(row.param.function); });

TEST(I2cDeadSystemTest, ADeadSystemIsSurvived)
{
    const Adapter adapter;
    I2c bus(1);
    Kit::System::Fail("*", EIO, 1, 100'000);
    EXPECT_THAT(Session(bus),
                ElementsAreArray(Texts{"Open", "Acquire", "WriteByte", "ReadByte", "ReadBytes"}));
    EXPECT_EQ(bus.GetErrorPlace(), "Open");
}

}

}
