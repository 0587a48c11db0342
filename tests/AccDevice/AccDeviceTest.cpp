// Preparing the chip, and the steps of the thread called one by one.

#include "tests/AccDevice/AccTest.h"
#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"
#include "tests/kit/Interruptions.h"

#include <memory>
#include <type_traits>

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace AccTests
{

namespace
{

class AccErrors : public AccTest, public testing::WithParamInterface<int>
{
};

INSTANTIATE_TEST_SUITE_P(Errno, AccErrors, testing::ValuesIn(BUS_ERRORS));

void ExpectError(const AccDevice& device, const std::string& message, int number)
{
    const auto error = device.GetError();
    EXPECT_TRUE(device.HasError());
    EXPECT_EQ(error.message, message);
    EXPECT_EQ(error.where, "Prepare");
    EXPECT_EQ(error.errorNumber, number);
    EXPECT_EQ(error.nameSpace, "Tavdevice");
    EXPECT_EQ(error.className, "AccDevice");
}

// Preparing ----------------------------------------------------------------------------------------------

TEST_F(AccTest, ANewAccelerometerHasTouchedNothing)
{
    EXPECT_FALSE(accelerometer.IsChipFound());
    EXPECT_FALSE(accelerometer.HasError());
    EXPECT_EQ(accelerometer.GetNamespaceName(), "Tavdevice");
    EXPECT_EQ(accelerometer.GetClassName(), "AccDevice");
    EXPECT_FALSE(accelerometer.IsRunning());
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
}

TEST_F(AccTest, PrepareProgramsTheChipInOrder)
{
    chip.Set(CTRL_REG1, 0xFF);
    EXPECT_TRUE(Prepare());
    EXPECT_THAT(chip.Transfers(), ElementsAre("slave 1C", "read 0D",        // who are you
                                              "read 2A", "write 2A=FE",     // stand-by
                                              "read 2A", "write 2A=DE",     // 100 Hz
                                              "write 1F=20",                // 2 g
                                              "write 1D=1E",                // transients
                                              "write 20=01",                // one sample
                                              "write 0F=03",                // high-pass filter
                                              "read 2A", "write 2A=DE",     // 8 bits
                                              "write 09=D0", "write 0A=20", // FIFO and its trigger
                                              "write 2B=00", "write 2C=82", // control
                                              "write 2D=60", "write 2E=20", // interrupts
                                              "write 0E=00",                // scale
                                              "read 2A", "write 2A=DF"));   // awake
    EXPECT_TRUE(accelerometer.IsChipFound());
    EXPECT_FALSE(accelerometer.HasError());
    EXPECT_EQ(Count("open"), 1u);
    EXPECT_EQ(Count("close"), 1u) << "the thread opens it again";
    EXPECT_THAT(Kit::System::Sleeps(), IsEmpty());
    EXPECT_EQ(receiver.Count(), 0u);
}

TEST_F(AccTest, EachChangeOfTheControlRegisterBuildsOnTheOneBefore)
{
    EXPECT_TRUE(Prepare());
    Texts changes = chip.Transfers();
    std::erase_if(changes, [](const std::string& text) { return !text.starts_with("write 2A"); });
    EXPECT_THAT(changes, ElementsAre("write 2A=00", "write 2A=18", "write 2A=1A", "write 2A=1B"));
}

TEST_F(AccTest, RateAndScaleAreThoseOfTheConstructor)
{
    struct Row
    {
        int scale;
        int rate;
        const char* rateWrite;
        const char* scaleWrite; ///< null: none
    };

    for (const Row& row : {Row{2, 0, "write 2A=28", "write 0E=00"}, Row{4, 1, "write 2A=20", "write 0E=01"},
                           Row{8, 4, "write 2A=08", "write 0E=02"}, Row{8, 7, "write 2A=00", "write 0E=02"},
                           Row{16, 3, "write 2A=10", nullptr}})
    {
        AccDevice device(1, ADDRESS, static_cast<AccDevice::GForceScale>(row.scale),
                         static_cast<AccDevice::ODR>(row.rate));
        chip.Set(CTRL_REG1, 0);
        chip.Forget();
        EXPECT_TRUE(Prepare(device)) << row.scale;
        const Texts transfers = chip.Transfers();
        EXPECT_EQ(transfers.at(5), row.rateWrite);
        if (row.scaleWrite != nullptr)
        {
            EXPECT_EQ(transfers.at(transfers.size() - 3), row.scaleWrite);
        }
        else
        {
            EXPECT_THAT(transfers, Not(Contains(testing::StartsWith("write 0E"))));
        }
    }
}

TEST_F(AccTest, AdapterAndAddressAreThoseOfTheConstructor)
{
    Chip other("/dev/i2c-255");
    other.Set(WHO_AM_I, 0x1A);
    AccDevice device(255, 0x1D, AccDevice::GForceScale::Two, AccDevice::ODR::Hz50);
    EXPECT_TRUE(Prepare(device));
    EXPECT_EQ(other.Transfers().at(0), "slave 1D");
    EXPECT_EQ(Kit::System::CallsOf("open").at(0).path, "/dev/i2c-255");
    EXPECT_THAT(chip.Transfers(), IsEmpty());
}

TEST_F(AccTest, WithoutAReceiverNothingIsTouched)
{
    AccDevice::IThreadDelegate* none = nullptr;
    EXPECT_FALSE(accelerometer.Prepare(none));
    ExpectError(accelerometer, "callback function should not be null", 0);
    EXPECT_FALSE(accelerometer.IsChipFound());
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
}

TEST_F(AccTest, AMissingAdapterIsRecordedWithTheBusesMessage)
{
    AccDevice device(7, ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100);
    EXPECT_FALSE(Prepare(device));
    ExpectError(device, "Unable to open bus: No such file or directory", ENOENT);
    EXPECT_FALSE(device.IsChipFound());
}

TEST_P(AccErrors, AnAdapterThatCannotBeOpenedIsRecorded)
{
    Kit::System::Fail("open", GetParam());
    EXPECT_FALSE(Prepare());
    ExpectError(accelerometer, std::string("Unable to open bus: ") + std::strerror(GetParam()), GetParam());
    EXPECT_THAT(chip.Transfers(), IsEmpty());
    EXPECT_TRUE(Prepare()) << "and forgotten";
    EXPECT_FALSE(accelerometer.HasError());
    EXPECT_EQ(accelerometer.GetErrorNumber(), 0);
}

TEST_P(AccErrors, ASlaveThatCannotBeSelectedIsRecordedAndTheAdapterClosed)
{
    Kit::System::Fail("ioctl", GetParam());
    EXPECT_FALSE(Prepare());
    ExpectError(accelerometer, std::string("ioctl error: ") + std::strerror(GetParam()), GetParam());
    EXPECT_FALSE(accelerometer.IsChipFound());
    EXPECT_EQ(Count("ioctl"), 1u);
    EXPECT_EQ(Count("close"), 1u);
}

TEST_F(AccTest, AnotherChipIsRefusedAndNotProgrammed)
{
    for (const unsigned char identity : std::initializer_list<unsigned char>{0x2A, 0x00, 0x1B, 0x4A, 0xFF})
    {
        ForgetAll();
        chip.BecomeAnother(identity);
        EXPECT_FALSE(Prepare()) << int{identity};
        ExpectError(accelerometer, "Accelerometer not found", 0);
        EXPECT_FALSE(accelerometer.IsChipFound());
        EXPECT_THAT(chip.Transfers(), ElementsAre("slave 1C", "read 0D"));
        EXPECT_EQ(Count("close"), 1u);
    }
}

TEST_P(AccErrors, AChipThatDoesNotAnswerIsNotFound)
{
    chip.FailOn(WHO_AM_I, GetParam());
    EXPECT_FALSE(Prepare());
    ExpectError(accelerometer, "Accelerometer not found", 0);
    EXPECT_EQ(Count("close"), 1u);
}

TEST_F(AccTest, AChipThatWasFoundIsForgottenByThePrepareThatFails)
{
    ASSERT_TRUE(Prepare());
    chip.BecomeAnother(0x2A);
    EXPECT_FALSE(Prepare());
    EXPECT_FALSE(accelerometer.IsChipFound());
}

TEST_P(AccErrors, FailedWritesOfTheProgramAreNotLookedAt)
{
    constexpr int BEFORE = 2; // slave and identity
    constexpr int STEPS = 19; // fifteen writes, four of them behind a read
    for (int nth = 1; nth <= STEPS; ++nth)
    {
        ForgetAll();
        Kit::System::Fail("ioctl", GetParam(), BEFORE + nth);
        EXPECT_TRUE(Prepare()) << nth;
        EXPECT_EQ(Kit::System::FailuresDone(), nth);
        EXPECT_THAT(chip.Transfers(), SizeIs(BEFORE + STEPS - 1)) << "the others are made";
        EXPECT_FALSE(accelerometer.HasError());
    }
    Kit::System::Fail("ioctl", GetParam(), BEFORE + 1, STEPS);
    EXPECT_TRUE(Prepare());
    EXPECT_TRUE(accelerometer.IsChipFound());
}

TEST_F(AccTest, AControlRegisterThatCannotBeReadCountsAsFF)
{
    Kit::System::Fail("ioctl", EIO, 3); // the first read of CTRL_REG1
    EXPECT_TRUE(Prepare());
    EXPECT_EQ(chip.Transfers().at(2), "write 2A=FE");
}

// The steps of the thread --------------------------------------------------------------------------------

TEST_F(AccTest, RunBeforeOpensTheAdapterAgainAndResetsTheFifo)
{
    ASSERT_TRUE(Prepare());
    ForgetAll();
    testing::internal::CaptureStdout();
    EXPECT_NE(accelerometer.RunBefore(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(Count("open"), 1u);
    EXPECT_THAT(chip.Transfers(), ElementsAre("slave 1C", "write 09=00", "write 09=40", "read 00"));
    accelerometer.RunAfter();
    EXPECT_EQ(Count("close"), 1u);
}

TEST_P(AccErrors, RunBeforeTellsOnStandardOutputThatTheAdapterIsGone)
{
    ASSERT_TRUE(Prepare());
    ForgetAll();
    Kit::System::Fail("open", GetParam());
    testing::internal::CaptureStdout();
    EXPECT_EQ(accelerometer.RunBefore(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              std::string("ERROR: Unable to open bus: ") + std::strerror(GetParam()) + "\n");
    EXPECT_FALSE(accelerometer.HasError()) << "nothing is recorded";
    EXPECT_THAT(chip.Transfers(), IsEmpty());
}

TEST_P(AccErrors, RunBeforeTellsOnStandardOutputThatTheSlaveIsRefused)
{
    ASSERT_TRUE(Prepare());
    ForgetAll();
    Kit::System::Fail("ioctl", GetParam());
    testing::internal::CaptureStdout();
    EXPECT_EQ(accelerometer.RunBefore(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              std::string("ERROR: ioctl error: ") + std::strerror(GetParam()) + "\n");
    EXPECT_FALSE(accelerometer.HasError());
    EXPECT_THAT(chip.Transfers(), IsEmpty()) << "the FIFO is left alone";
    accelerometer.RunAfter();
    EXPECT_EQ(Count("close"), 1u);
}

TEST_F(AccTest, RunBeforeDoesNotLookWhetherTheFifoWasReset)
{
    ASSERT_TRUE(Prepare());
    ForgetAll();
    Kit::System::Fail("ioctl", EIO, 2, 3);
    EXPECT_NE(accelerometer.RunBefore(), 0);
    EXPECT_EQ(Count("ioctl"), 4u);
    accelerometer.RunAfter();
}

TEST_F(AccTest, ABatchIsFetchedAndHandedOnWithoutAPause)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    chip.Fill();
    accelerometer.Run();
    EXPECT_THAT(chip.Transfers(), ElementsAreArray(BATCH_STEP));
    ASSERT_EQ(receiver.Count(), 1u);
    std::vector<unsigned char> expected(30);
    for (std::size_t i = 1; i < expected.size(); ++i)
    {
        expected[i] = static_cast<unsigned char>(Adapter::FIRST_OF_BLOCK + i);
    }
    EXPECT_EQ(receiver.All()[0].bytes, expected);
    EXPECT_EQ(receiver.Buffer()->capacity, 30u);
    EXPECT_THAT(Kit::System::Sleeps(), IsEmpty());
    accelerometer.RunAfter();
}

TEST_F(AccTest, OnlyTheFifosFlagCounts)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    for (int source = 0; source <= 255; ++source)
    {
        ForgetAll();
        chip.Set(INT_SOURCE, static_cast<unsigned char>(source));
        const auto before = Clock::Elapsed();
        accelerometer.Run();
        const bool flagged = (source & 0x40) != 0;
        EXPECT_THAT(chip.Transfers(), ElementsAreArray(flagged ? BATCH_STEP : Texts{"read 0C"})) << source;
        EXPECT_EQ(Clock::Elapsed() - before, flagged ? 0ms : 20ms) << source;
    }
    EXPECT_EQ(receiver.Count(), 128u);
    accelerometer.RunAfter();
}

TEST_F(AccTest, WithoutABatchItSleepsOnceForTwentyMilliseconds)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    accelerometer.Run();
    EXPECT_THAT(Kit::System::Sleeps(), ElementsAre(20ms));
    EXPECT_STREQ(Kit::System::Calls().back().function, "nanosleep");
    EXPECT_EQ(receiver.Count(), 0u);
    accelerometer.RunAfter();
}

TEST_F(AccTest, SignalsDoNotShortenTheSleep)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    const Kit::Interruptions interruptions({5ms, 6ms, 19ms});
    const auto before = Clock::Elapsed();
    accelerometer.Run();
    EXPECT_EQ(Clock::Elapsed() - before, 20ms);
    EXPECT_EQ(Kit::Interruptions::Count(), 3);
    accelerometer.RunAfter();
}

TEST_P(AccErrors, AnInterruptSourceThatCannotBeReadHasTheBatchFetched)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    chip.FailOn(INT_SOURCE, GetParam());
    accelerometer.Run();
    EXPECT_THAT(chip.Transfers(), ElementsAreArray(BATCH_STEP));
    EXPECT_EQ(receiver.Count(), 1u);
    EXPECT_THAT(Kit::System::Sleeps(), IsEmpty());
    accelerometer.RunAfter();
}

TEST_P(AccErrors, AFailedBatchIsNotHandedOnAndTheStatusIsRead)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    chip.Fill();
    chip.FailOn(OUT_X_MSB, GetParam());
    accelerometer.Run();
    EXPECT_THAT(chip.Transfers(), ElementsAreArray(BATCH_STEP));
    EXPECT_EQ(receiver.Count(), 0u);
    EXPECT_THAT(Kit::System::Sleeps(), IsEmpty());
    EXPECT_FALSE(accelerometer.HasError());
    chip.FailOn(OUT_X_MSB, 0);
    accelerometer.Run();
    EXPECT_EQ(receiver.Count(), 1u) << "the next one is";
    accelerometer.RunAfter();
}

TEST_P(AccErrors, ABusThatRefusesEverythingIsAskedEveryTwentyMilliseconds)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    for (const unsigned char reg : {INT_SOURCE, OUT_X_MSB})
    {
        chip.FailOn(reg, GetParam());
    }
    for (int step = 0; step < 3; ++step)
    {
        ForgetAll();
        const auto before = Clock::Elapsed();
        accelerometer.Run();
        EXPECT_THAT(chip.Transfers(), ElementsAreArray(BATCH_STEP));
        EXPECT_EQ(Clock::Elapsed() - before, 20ms);
        EXPECT_THAT(Kit::System::Sleeps(), ElementsAre(20ms));
    }
    EXPECT_EQ(receiver.Count(), 0u);
    accelerometer.RunAfter();
}

TEST_F(AccTest, ABatchIsAsLongAsTheDriverSays)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    for (const auto& [count, length] : std::map<int, std::size_t>{
             {0, 0}, {1, 1}, {6, 6}, {29, 29}, {30, 30}, {32, 30}, {34, 30}, {255, 30}})
    {
        chip.Fill();
        chip.CountBlocksAs(count);
        const std::size_t before = receiver.Count();
        accelerometer.Run();
        ASSERT_EQ(receiver.Count(), before + 1) << count;
        EXPECT_THAT(receiver.All().back().bytes, SizeIs(length)) << count;
    }
    const std::size_t before = receiver.Count();
    chip.Fill();
    chip.CountBlocksAs(33);
    accelerometer.Run();
    EXPECT_EQ(receiver.Count(), before) << "a count of 33 is a failure";
    accelerometer.RunAfter();
}

TEST_F(AccTest, TheBufferIsTheSameForEachBatch)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    chip.Fill(2);
    accelerometer.Run();
    const TavubufferDynamic* const buffer = receiver.Buffer();
    const unsigned char* const data = buffer->data;
    accelerometer.Run();
    EXPECT_EQ(receiver.Buffer(), buffer);
    EXPECT_EQ(receiver.Buffer()->data, data);
    EXPECT_EQ(receiver.All()[1].bytes.at(0), 1) << "with other contents";
    accelerometer.RunAfter();
}

TEST_F(AccTest, RunAfterReleasesTheSamplesAndClosesTheAdapter)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    chip.Fill();
    accelerometer.Run();
    TavubufferDynamic* const buffer = receiver.Buffer();
    EXPECT_EQ(buffer->length, 30u);
    ForgetAll();
    accelerometer.RunAfter();
    EXPECT_EQ(buffer->data, nullptr);
    EXPECT_EQ(buffer->capacity, 0u);
    EXPECT_EQ(buffer->length, 0u);
    EXPECT_THAT(chip.Transfers(), IsEmpty()) << "the chip goes on sampling";
    EXPECT_EQ(Count("close"), 1u);
    accelerometer.RunAfter();
    EXPECT_EQ(Count("close"), 1u);
}

TEST_F(AccTest, ASecondPrepareProgramsAgainWithAnEmptyBufferAndAddsTheReceiverAgain)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    chip.Fill();
    accelerometer.Run();
    accelerometer.RunAfter();
    ForgetAll();
    ASSERT_TRUE(Prepare());
    EXPECT_THAT(chip.Transfers(), SizeIs(21));
    EXPECT_EQ(receiver.Buffer()->capacity, 30u);
    EXPECT_EQ(receiver.Buffer()->length, 0u);
    ASSERT_NE(accelerometer.RunBefore(), 0);
    chip.Fill();
    accelerometer.Run();
    EXPECT_EQ(receiver.Count(), 1u + 2u);
    accelerometer.RunAfter();
}

TEST_F(AccTest, TheReceiverOfAPrepareThatFailedIsRegisteredToo)
{
    chip.BecomeAnother(0x2A);
    EXPECT_FALSE(Prepare());
    chip.BecomeAnother(0x1A);
    ASSERT_NO_FATAL_FAILURE(Begin());
    chip.Fill();
    accelerometer.Run();
    EXPECT_EQ(receiver.Count(), 2u);
    accelerometer.RunAfter();
}

// Shape --------------------------------------------------------------------------------------------------

TEST(AccShapeTest, TheVirtualOperationsHaveTheirSlots)
{
    EXPECT_EQ(Tests::VirtualSlot(&AccDevice::RunBefore), 2);
    EXPECT_EQ(Tests::VirtualSlot(&AccDevice::Run), 3);
    EXPECT_EQ(Tests::VirtualSlot(&AccDevice::RunAfter), 4);
    EXPECT_EQ(Tests::VirtualSlot(&AccDevice::Stopping), 5);
    EXPECT_EQ(Tests::VirtualSlot(&AccDevice::Prepare), -1);
    static_assert(std::is_base_of_v<Tavbase::Interfaces::IThread, AccDevice>);
    static_assert(std::is_base_of_v<Tavbase::Interfaces::IError, AccDevice>);
}

TEST(AccShapeTest, TheThreadIsThePrimaryBase)
{
    AccDevice device(1, ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100);
    EXPECT_EQ(static_cast<void*>(static_cast<Tavbase::Interfaces::IThread*>(&device)),
              static_cast<void*>(&device));
    EXPECT_NE(static_cast<void*>(static_cast<Tavbase::Interfaces::IError*>(&device)),
              static_cast<void*>(&device));
}

TEST(AccShapeTest, IsDestroyedThroughEitherBase)
{
    const auto make = [] {
        return std::make_unique<AccDevice>(1, ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100);
    };
    const std::unique_ptr<Tavbase::Interfaces::IThread> thread = make();
    const std::unique_ptr<Tavbase::Interfaces::IError> record = make();
    EXPECT_EQ(record->GetClassName(), "AccDevice");
}

}

}
