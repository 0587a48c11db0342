// The adapter's file, the choice of the slave, single registers, the error record, copies.

#include "I2C/I2c.h"

#include "tests/I2C/Adapter.h"
#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"
#include "tests/kit/Child.h"
#include "tests/kit/ClosedStreams.h"
#include "tests/kit/DeviceTest.h"

#include <memory>
#include <type_traits>

using Tavdevice::I2C::I2c;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace I2cTests
{

namespace
{

/// Without virtual time, whose thread opens and closes descriptors too.
class I2cTest : public testing::Test
{
protected:
    ~I2cTest() override { bus.Close(); }

    /// The descriptor of the nth open, from 0.
    static int Descriptor(std::size_t nth = 0)
    {
        return static_cast<int>(Kit::System::CallsOf("open").at(nth).result);
    }

    Adapter adapter;
    I2c bus{1};
};

class I2cErrors : public I2cTest, public testing::WithParamInterface<int>
{
};

INSTANTIATE_TEST_SUITE_P(Errno, I2cErrors, testing::ValuesIn(BUS_ERRORS));

void ExpectError(const I2c& bus, const std::string& message, const std::string& where, int number)
{
    const auto error = bus.GetError();
    EXPECT_TRUE(bus.HasError());
    EXPECT_EQ(error.message, message);
    EXPECT_EQ(error.where, where);
    EXPECT_EQ(error.errorNumber, number);
    EXPECT_EQ(error.nameSpace, "Tavdevice");
    EXPECT_EQ(error.className, "I2C");
}

void ExpectNoError(const I2c& bus)
{
    EXPECT_FALSE(bus.HasError());
    EXPECT_EQ(bus.GetErrorMessage(), "");
    EXPECT_EQ(bus.GetErrorPlace(), "");
    EXPECT_EQ(bus.GetErrorNumber(), 0);
}

// Construction and opening -------------------------------------------------------------------------------

TEST_F(I2cTest, ANewBusHasTouchedNothing)
{
    ExpectNoError(bus);
    EXPECT_EQ(bus.GetNamespaceName(), "Tavdevice");
    EXPECT_EQ(bus.GetClassName(), "I2C");
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
}

TEST_F(I2cTest, OpensItsAdapterForReadingAndWritingWithoutBlocking)
{
    EXPECT_TRUE(bus.Open());
    const auto calls = Kit::System::Calls();
    ASSERT_THAT(calls, SizeIs(1));
    EXPECT_STREQ(calls[0].function, "open");
    EXPECT_EQ(calls[0].path, "/dev/i2c-1");
    EXPECT_EQ(calls[0].argument, O_RDWR | O_NONBLOCK | O_SYNC);
    ExpectNoError(bus);
}

TEST_F(I2cTest, TheAdaptersNumberIsPartOfThePathInDecimal)
{
    for (const auto& [number, path] : std::map<int, const char*>{{0, "/dev/i2c-0"},
                                                                 {2, "/dev/i2c-2"},
                                                                 {10, "/dev/i2c-10"},
                                                                 {255, "/dev/i2c-255"},
                                                                 {-1, "/dev/i2c--1"}})
    {
        Kit::System::ForgetCalls();
        EXPECT_FALSE(I2c(number).Open());
        EXPECT_EQ(Kit::System::CallsOf("open").at(0).path, path);
    }
}

TEST_F(I2cTest, AMissingAdapterIsRecordedWithTheSystemsReason)
{
    I2c other(7);
    EXPECT_FALSE(other.Open());
    ExpectError(other, "Unable to open bus: No such file or directory", "Open", ENOENT);
    EXPECT_TRUE(other.Close()) << "there is nothing to close";
    EXPECT_THAT(Kit::System::CallsOf("close"), IsEmpty());
}

TEST_P(I2cErrors, AnAdapterThatCannotBeOpenedIsRecorded)
{
    Kit::System::Fail("open", GetParam());
    EXPECT_FALSE(bus.Open());
    ExpectError(bus, std::string("Unable to open bus: ") + std::strerror(GetParam()), "Open", GetParam());
    EXPECT_TRUE(bus.Open());
    ExpectNoError(bus);
}

TEST_F(I2cTest, ABusWithoutAnAdapterCannotBeOpened)
{
    I2c nameless;
    EXPECT_EQ(nameless.GetNamespaceName(), "Tavdevice");
    EXPECT_EQ(nameless.GetClassName(), "I2C");
    EXPECT_FALSE(nameless.Open());
    ExpectError(nameless, "Invalid device length", "Open", 0);
    EXPECT_FALSE(nameless.Acquire(0x1C));
    ExpectError(nameless, "Invalid device length", "Open", 0);
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
}

TEST_F(I2cTest, OpeningTwiceLeavesTheFirstDescriptorOpen)
{
    ASSERT_TRUE(bus.Open());
    ASSERT_TRUE(bus.Open());
    EXPECT_TRUE(bus.Close());
    EXPECT_TRUE(IsOpen(Descriptor(0))) << "nobody owns it any more";
    EXPECT_FALSE(IsOpen(Descriptor(1)));
    close(Descriptor(0));
}

// Closing ------------------------------------------------------------------------------------------------

TEST_F(I2cTest, ClosingWhatIsNotOpenIsASuccessAndDoesNothing)
{
    EXPECT_TRUE(bus.Close());
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
}

TEST_F(I2cTest, ClosesOnce)
{
    ASSERT_TRUE(bus.Open());
    EXPECT_TRUE(bus.Close());
    EXPECT_FALSE(IsOpen(Descriptor()));
    EXPECT_TRUE(bus.Close());
    EXPECT_THAT(Kit::System::CallsOf("close"), SizeIs(1));
    EXPECT_EQ(bus.ReadByte(0x0D), -1);
}

TEST_P(I2cErrors, AFailedCloseKeepsTheAdapterOpenAndRecordsNothing)
{
    ASSERT_TRUE(bus.Open());
    Kit::System::Fail("close", GetParam());
    EXPECT_FALSE(bus.Close());
    ExpectNoError(bus);
    adapter.Set(0x0D, 0x1A);
    EXPECT_EQ(bus.ReadByte(0x0D), 0x1A);
    EXPECT_TRUE(bus.Close());
    EXPECT_FALSE(IsOpen(Descriptor()));
}

TEST_F(I2cTest, CanBeOpenedAgainAfterClosing)
{
    ASSERT_TRUE(bus.Open());
    ASSERT_TRUE(bus.Close());
    ASSERT_TRUE(bus.Open());
    EXPECT_EQ(bus.ReadByte(0x0D), 0);
}

TEST_F(I2cTest, TheDestructorDoesNotClose)
{
    {
        I2c other(1);
        ASSERT_TRUE(other.Open());
    }
    EXPECT_TRUE(IsOpen(Descriptor()));
    EXPECT_THAT(Kit::System::CallsOf("close"), IsEmpty());
    close(Descriptor());
}

TEST(I2cDescriptorTest, DescriptorZeroIsUsedButCountsAsClosed)
{
    const Kit::ChildResult child = Kit::RunInChild([] {
        Adapter adapter;
        adapter.Set(0x0D, 0x1A);
        close(STDIN_FILENO);
        I2c bus(1);
        EXPECT_TRUE(bus.Open());
        EXPECT_EQ(Kit::System::CallsOf("open").at(0).result, 0);
        EXPECT_TRUE(bus.Close());
        EXPECT_THAT(Kit::System::CallsOf("close"), IsEmpty());
        EXPECT_TRUE(IsOpen(STDIN_FILENO));
        EXPECT_EQ(bus.ReadByte(0x0D), 0x1A) << "it is still descriptor 0";
        EXPECT_TRUE(bus.Acquire(0x1C));
        EXPECT_THAT(Kit::System::CallsOf("open"), SizeIs(2)) << "opened again";
        EXPECT_TRUE(bus.Close());
        EXPECT_THAT(Kit::System::CallsOf("close"), SizeIs(1));
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.exitStatus, 0) << child.output;
}

TEST(I2cDescriptorTest, AClosedBusDoesNotUseDescriptorZero)
{
    const Kit::ChildResult child = Kit::RunInChild([] {
        Adapter adapter;
        I2c bus(1);
        EXPECT_TRUE(bus.Open());
        close(STDIN_FILENO);
        I2c another(1);
        EXPECT_TRUE(another.Open());
        EXPECT_EQ(Kit::System::CallsOf("open").at(1).result, 0);
        EXPECT_TRUE(bus.Close());
        EXPECT_EQ(bus.ReadByte(0x0D), -1);
        EXPECT_THAT(adapter.Transfers(), IsEmpty());
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.exitStatus, 0) << child.output;
}

// The slave ----------------------------------------------------------------------------------------------

TEST_F(I2cTest, AcquireOpensAClosedAdapterAndSelectsTheSlave)
{
    EXPECT_TRUE(bus.Acquire(0x1C));
    const auto calls = Kit::System::Calls();
    ASSERT_THAT(calls, SizeIs(2));
    EXPECT_STREQ(calls[0].function, "open");
    EXPECT_STREQ(calls[1].function, "ioctl");
    EXPECT_EQ(calls[1].argument, 0x0703);
    EXPECT_EQ(calls[1].fd, Descriptor());
    EXPECT_THAT(adapter.Transfers(), ElementsAre("slave 1C"));
    ExpectNoError(bus);
}

TEST_F(I2cTest, AcquireOfAnOpenAdapterOnlySelects)
{
    ASSERT_TRUE(bus.Open());
    EXPECT_TRUE(bus.Acquire(0x1C));
    EXPECT_TRUE(bus.Acquire(0x7F));
    EXPECT_TRUE(bus.Acquire(0));
    EXPECT_TRUE(bus.Acquire(0x3FF));
    EXPECT_THAT(Kit::System::CallsOf("open"), SizeIs(1));
    EXPECT_THAT(adapter.Transfers(), ElementsAre("slave 1C", "slave 7F", "slave 00", "slave 3FF"));
}

TEST_F(I2cTest, AcquireTakesAnyResultFromZeroOnForSuccess)
{
    adapter.Return(1);
    EXPECT_TRUE(bus.Acquire(0x1C));
}

TEST_P(I2cErrors, ARefusedSlaveIsRecordedAndTheAdapterStaysOpen)
{
    Kit::System::Fail("ioctl", GetParam());
    EXPECT_FALSE(bus.Acquire(0x1C));
    ExpectError(bus, std::string("ioctl error: ") + std::strerror(GetParam()), "Acquire", GetParam());
    EXPECT_TRUE(IsOpen(Descriptor()));
    EXPECT_TRUE(bus.Acquire(0x1C)) << "and the error is forgotten";
    ExpectNoError(bus);
    EXPECT_THAT(Kit::System::CallsOf("open"), SizeIs(1));
}

TEST_P(I2cErrors, AcquireOfAnAdapterThatCannotBeOpenedKeepsTheOpeningsError)
{
    Kit::System::Fail("open", GetParam());
    EXPECT_FALSE(bus.Acquire(0x1C));
    ExpectError(bus, std::string("Unable to open bus: ") + std::strerror(GetParam()), "Open", GetParam());
    EXPECT_THAT(Kit::System::CallsOf("ioctl"), IsEmpty());
}

// Single registers ---------------------------------------------------------------------------------------

TEST_F(I2cTest, ReadsEveryRegisterAndEveryValue)
{
    ASSERT_TRUE(bus.Open());
    for (int value = 0; value <= 255; ++value)
    {
        const auto reg = static_cast<unsigned char>(255 - value);
        adapter.Set(reg, static_cast<unsigned char>(value));
        EXPECT_EQ(bus.ReadByte(reg), value);
        EXPECT_EQ(adapter.Transfers().back(), Format("read %02X", reg));
    }
    EXPECT_THAT(adapter.Transfers(), SizeIs(256)) << "one transfer each";
    EXPECT_EQ(Kit::System::CallsOf("ioctl").at(0).argument, 0x0720);
}

TEST_F(I2cTest, WritesEveryRegisterAndEveryValue)
{
    ASSERT_TRUE(bus.Open());
    for (int value = 0; value <= 255; ++value)
    {
        const auto reg = static_cast<unsigned char>(255 - value);
        EXPECT_TRUE(bus.WriteByte(reg, static_cast<unsigned char>(value)));
        EXPECT_EQ(adapter.Get(reg), value);
        EXPECT_EQ(adapter.Transfers().back(), Format("write %02X=%02X", reg, value));
    }
    EXPECT_THAT(adapter.Transfers(), SizeIs(256)) << "one transfer each";
    EXPECT_EQ(Kit::System::CallsOf("ioctl").at(0).argument, 0x0720);
}

TEST_P(I2cErrors, FailedTransfersAreToldByTheResultAlone)
{
    ASSERT_TRUE(bus.Open());
    Kit::System::Fail("ioctl", GetParam(), 1, 2);
    adapter.Set(0x0D, 0x1A);
    EXPECT_EQ(bus.ReadByte(0x0D), -1);
    EXPECT_FALSE(bus.WriteByte(0x0D, 0x55));
    ExpectNoError(bus);
    EXPECT_EQ(bus.ReadByte(0x0D), 0x1A);
    EXPECT_TRUE(bus.WriteByte(0x0D, 0x55));
    EXPECT_THAT(Kit::System::CallsOf("ioctl"), SizeIs(4)) << "nothing is tried again";
}

TEST_F(I2cTest, TransfersLeaveAnErrorThatWasRecorded)
{
    Kit::System::Fail("ioctl", EBUSY);
    EXPECT_FALSE(bus.Acquire(0x1C));
    EXPECT_EQ(bus.ReadByte(0x0D), 0);
    EXPECT_TRUE(bus.WriteByte(0x0D, 1));
    EXPECT_EQ(bus.GetErrorPlace(), "Acquire");
    EXPECT_TRUE(bus.Close());
    EXPECT_EQ(bus.GetErrorPlace(), "Acquire");
}

TEST_F(I2cTest, AResultAboveZeroIsAFailedReadAndASuccessfulWrite)
{
    ASSERT_TRUE(bus.Open());
    adapter.Return(1);
    adapter.Set(0x0D, 0x1A);
    EXPECT_EQ(bus.ReadByte(0x0D), -1);
    EXPECT_TRUE(bus.WriteByte(0x0D, 0x55));
}

TEST_F(I2cTest, TransfersOnAClosedBusFail)
{
    EXPECT_EQ(bus.ReadByte(0x0D), -1);
    EXPECT_FALSE(bus.WriteByte(0x0D, 1));
    ExpectNoError(bus);
    EXPECT_THAT(adapter.Transfers(), IsEmpty());
    EXPECT_THAT(Kit::System::CallsOf("open"), IsEmpty());
}

// Copies and shape ---------------------------------------------------------------------------------------

TEST_F(I2cTest, ACopySharesTheDescriptor)
{
    ASSERT_TRUE(bus.Open());
    I2c copy(bus);
    adapter.Set(0x0D, 0x1A);
    EXPECT_EQ(copy.ReadByte(0x0D), 0x1A);
    EXPECT_TRUE(copy.Close());
    EXPECT_FALSE(IsOpen(Descriptor()));
    EXPECT_EQ(bus.ReadByte(0x0D), -1) << "closed for both";
    EXPECT_FALSE(bus.Close());
    I2c closed(1);
    bus = closed; // forgets the number, which is nobody's now
}

TEST_F(I2cTest, AssigningATemporaryTakesPathAndRecord)
{
    I2c target;
    {
        I2c source(9);
        EXPECT_FALSE(source.Open());
        target = source;
    }
    ExpectError(target, "Unable to open bus: No such file or directory", "Open", ENOENT);
    target = I2c(1);
    ExpectNoError(target);
    EXPECT_TRUE(target.Acquire(0x1C));
    EXPECT_EQ(Kit::System::CallsOf("open").back().path, ADAPTER);
    EXPECT_TRUE(target.Close());
}

TEST_F(I2cTest, AssigningOverAnOpenBusForgetsItsDescriptor)
{
    ASSERT_TRUE(bus.Open());
    bus = I2c(1);
    EXPECT_TRUE(IsOpen(Descriptor()));
    EXPECT_TRUE(bus.Close());
    EXPECT_TRUE(IsOpen(Descriptor())) << "it is nobody's";
    close(Descriptor());
}

TEST(I2cShapeTest, OnlyTheDestructorIsVirtual)
{
    static_assert(std::has_virtual_destructor_v<I2c>);
    static_assert(std::is_base_of_v<Tavbase::Interfaces::IError, I2c>);
    static_assert(std::is_copy_constructible_v<I2c> && std::is_copy_assignable_v<I2c>);
    EXPECT_EQ(Tests::VirtualSlot(&I2c::Open), -1);
    EXPECT_EQ(Tests::VirtualSlot(&I2c::Close), -1);
    EXPECT_EQ(Tests::VirtualSlot(&I2c::Acquire), -1);
    EXPECT_EQ(Tests::VirtualSlot(&I2c::ReadByte), -1);
    EXPECT_EQ(Tests::VirtualSlot(&I2c::ReadBytes), -1);
    EXPECT_EQ(Tests::VirtualSlot(&I2c::WriteByte), -1);
}

TEST(I2cShapeTest, IsDestroyedThroughItsErrorRecord)
{
    const std::unique_ptr<Tavbase::Interfaces::IError> record = std::make_unique<I2c>(1);
    EXPECT_EQ(record->GetClassName(), "I2C");
}

// Standard streams that are closed -----------------------------------------------------------------------

KIT_PROGRAM(I2cWithoutStreams)
{
    Kit::MessageDevice device(ADAPTER, [](unsigned long, void*) { return 0; });
    const Kit::ClosedStreams closed;
    I2c bus(1);
    KIT_REQUIRE(bus.Open());
    Kit::ClosedStreams::Print();
    KIT_REQUIRE(device.Received().empty());
    KIT_REQUIRE(bus.Acquire(0x1C));
    KIT_REQUIRE(bus.Close());
    KIT_REQUIRE(Kit::ClosedStreams::WereKept());
    return 0;
}

TEST(I2cDescriptorTest, NothingThatIsPrintedGetsToTheAdapterWhenAStandardStreamIsClosed)
{
    Kit::ClosedStreams::Run("I2cWithoutStreams");
}

}

}
