// Block reads: what is asked for, and what becomes of the driver's answer.

#include "I2C/I2c.h"

#include "tests/I2C/Adapter.h"
#include "tests/kit/DeviceTest.h"

#include <algorithm>

using Tavdevice::I2C::I2c;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace I2cTests
{

namespace
{

constexpr unsigned char UNTOUCHED = 0x55;
constexpr std::size_t RECORD_BYTES = 33; ///< what the driver's record holds behind its count

using Bytes = std::vector<unsigned char>;

Bytes BlockBytes(std::size_t count)
{
    Bytes bytes(count);
    std::generate(bytes.begin(), bytes.end(), [next = Adapter::FIRST_OF_BLOCK]() mutable { return next++; });
    return bytes;
}

class I2cBlockTest : public testing::Test
{
protected:
    I2cBlockTest() { EXPECT_TRUE(bus.Open()); }

    ~I2cBlockTest() override { bus.Close(); }

    /// A buffer of exactly that size, all of it untouched.
    static TavubufferDynamic Buffer(std::uint64_t capacity)
    {
        TavubufferDynamic buffer(capacity);
        std::fill_n(buffer.data, capacity, UNTOUCHED);
        buffer.length = 7;
        return buffer;
    }

    Adapter adapter;
    I2c bus{1};
};

// What is asked for --------------------------------------------------------------------------------------

struct Request
{
    std::uint64_t capacity;
    int count;
    int type;
};

void PrintTo(const Request& request, std::ostream* out)
{
    *out << request.capacity;
}

class BlockRequest : public I2cBlockTest, public testing::WithParamInterface<Request>
{
};

TEST_P(BlockRequest, CountAndTypeFollowTheLowByteOfTheCapacity)
{
    const Request& row = GetParam();
    TavubufferDynamic buffer = Buffer(row.capacity);
    EXPECT_TRUE(bus.ReadBytes(0x01, buffer));
    EXPECT_THAT(adapter.Transfers(), ElementsAre(Format("block 01 type %d count %02X", row.type, row.count)));
    EXPECT_EQ(buffer.length, static_cast<std::uint64_t>(row.count));
    EXPECT_EQ(buffer.capacity, row.capacity);
    EXPECT_EQ(Bytes(buffer.data, buffer.data + row.count), BlockBytes(static_cast<std::size_t>(row.count)));
    EXPECT_THAT(Bytes(buffer.data + row.count, buffer.data + row.capacity), Each(UNTOUCHED));
}

INSTANTIATE_TEST_SUITE_P(Capacity, BlockRequest,
                         testing::Values(Request{1, 1, 8}, Request{2, 2, 8}, Request{30, 30, 8},
                                         Request{31, 31, 8}, Request{32, 32, 6}, Request{33, 32, 6},
                                         Request{40, 32, 6}, Request{128, 32, 6}, Request{255, 32, 6},
                                         Request{256, 0, 8}, Request{257, 1, 8}, Request{286, 30, 8},
                                         Request{287, 31, 8}, Request{288, 32, 6}, Request{300, 32, 6},
                                         Request{512, 0, 8}, Request{65'536, 0, 8}, Request{65'566, 30, 8}),
                         [](const auto& row) { return std::to_string(row.param.capacity); });

TEST_F(I2cBlockTest, StartsAtTheGivenRegister)
{
    for (const unsigned char reg : std::initializer_list<unsigned char>{0x00, 0x01, 0x7F, 0xFF})
    {
        TavubufferDynamic buffer = Buffer(6);
        EXPECT_TRUE(bus.ReadBytes(reg, buffer));
        EXPECT_EQ(adapter.Transfers().back(), Format("block %02X type 8 count 06", reg));
    }
}

TEST_F(I2cBlockTest, ABufferWithoutStorageIsLeftAsItIs)
{
    TavubufferDynamic buffer;
    buffer.length = 7;
    EXPECT_FALSE(bus.ReadBytes(0x01, buffer));
    buffer.capacity = 30;
    EXPECT_FALSE(bus.ReadBytes(0x01, buffer)) << "no array";
    EXPECT_EQ(buffer.capacity, 30u);
    EXPECT_EQ(buffer.length, 7u);

    TavubufferDynamic lowered = Buffer(30);
    lowered.capacity = 0;
    EXPECT_FALSE(bus.ReadBytes(0x01, lowered)) << "no capacity";
    EXPECT_EQ(lowered.length, 7u);
    EXPECT_THAT(adapter.Transfers(), IsEmpty());
}

// What comes back ----------------------------------------------------------------------------------------

TEST_F(I2cBlockTest, TheCountByteSaysHowManyBytesCame)
{
    for (const std::size_t count : {0u, 1u, 6u, 29u, 30u})
    {
        adapter.CountBlocksAs(static_cast<int>(count));
        TavubufferDynamic buffer = Buffer(30);
        EXPECT_TRUE(bus.ReadBytes(0x01, buffer)) << count;
        EXPECT_EQ(buffer.length, count);
        EXPECT_EQ(Bytes(buffer.data, buffer.data + count), BlockBytes(count));
        EXPECT_THAT(Bytes(buffer.data + count, buffer.data + 30), Each(UNTOUCHED)) << count;
    }
}

TEST_F(I2cBlockTest, ACountOfThirtyThreeIsAFailureAfterTheCopy)
{
    adapter.CountBlocksAs(33);
    TavubufferDynamic buffer = Buffer(40);
    EXPECT_FALSE(bus.ReadBytes(0x01, buffer));
    EXPECT_EQ(buffer.length, 0u);
    EXPECT_EQ(Bytes(buffer.data, buffer.data + RECORD_BYTES), BlockBytes(RECORD_BYTES));
    EXPECT_THAT(Bytes(buffer.data + RECORD_BYTES, buffer.data + 40), Each(UNTOUCHED));
}

TEST_F(I2cBlockTest, ACountBeyondTheRecordGivesWhatTheRecordHolds)
{
    for (const int count : {34, 35, 64, 128, 255})
    {
        adapter.CountBlocksAs(count);
        TavubufferDynamic buffer = Buffer(300);
        EXPECT_TRUE(bus.ReadBytes(0x01, buffer)) << count;
        EXPECT_EQ(buffer.length, RECORD_BYTES) << count;
        EXPECT_EQ(Bytes(buffer.data, buffer.data + RECORD_BYTES), BlockBytes(RECORD_BYTES));
        EXPECT_THAT(Bytes(buffer.data + RECORD_BYTES, buffer.data + 300), Each(UNTOUCHED)) << count;
    }
}

TEST_F(I2cBlockTest, ACountBeyondTheCapacityFillsTheBufferAndNoMore)
{
    for (const std::uint64_t capacity : {1u, 8u, 29u, 30u, 32u})
    {
        for (const int count : {31, 32, 33, 34, 255})
        {
            adapter.CountBlocksAs(count);
            TavubufferDynamic buffer = Buffer(capacity + 40); // what lies behind is the test's to look at
            buffer.capacity = capacity;
            const std::size_t taken = static_cast<std::size_t>(
                std::min<std::uint64_t>(capacity, static_cast<std::uint64_t>(count)));
            EXPECT_EQ(bus.ReadBytes(0x01, buffer), count != 33) << capacity << ", " << count;
            EXPECT_EQ(buffer.length, count == 33 ? 0 : taken) << capacity << ", " << count;
            EXPECT_EQ(Bytes(buffer.data, buffer.data + taken), BlockBytes(taken));
            EXPECT_THAT(Bytes(buffer.data + taken, buffer.data + capacity + 40), Each(UNTOUCHED))
                << capacity << ", " << count;

            TavubufferDynamic exact = Buffer(capacity); // and here the sanitizer's
            EXPECT_EQ(bus.ReadBytes(0x01, exact), count != 33);
        }
    }
}

TEST_F(I2cBlockTest, ACapacityOf256AsksForNothingAndTakesWhatComes)
{
    TavubufferDynamic buffer = Buffer(256);
    EXPECT_TRUE(bus.ReadBytes(0x01, buffer));
    EXPECT_EQ(buffer.length, 0u);
    adapter.CountBlocksAs(12);
    EXPECT_TRUE(bus.ReadBytes(0x01, buffer));
    EXPECT_EQ(buffer.length, 12u);
}

// Failures -----------------------------------------------------------------------------------------------

TEST_F(I2cBlockTest, AFailedTransferLeavesNoBytesAndNoRecord)
{
    for (const int error : BUS_ERRORS)
    {
        Kit::System::Fail("ioctl", error);
        TavubufferDynamic buffer = Buffer(30);
        EXPECT_FALSE(bus.ReadBytes(0x01, buffer)) << error;
        EXPECT_EQ(buffer.length, 0u);
        EXPECT_THAT(Bytes(buffer.data, buffer.data + 30), Each(UNTOUCHED));
        EXPECT_FALSE(bus.HasError());
        EXPECT_TRUE(bus.ReadBytes(0x01, buffer)) << "the next one succeeds";
    }
    EXPECT_EQ(Kit::System::CallsOf("ioctl").size(), 2 * BUS_ERRORS.size()) << "nothing is tried again";
}

TEST_F(I2cBlockTest, AnyResultButZeroIsAFailure)
{
    adapter.Return(1);
    TavubufferDynamic buffer = Buffer(30);
    EXPECT_FALSE(bus.ReadBytes(0x01, buffer));
    EXPECT_EQ(buffer.length, 0u);
}

TEST_F(I2cBlockTest, OnAClosedBusItFails)
{
    bus.Close();
    TavubufferDynamic buffer = Buffer(30);
    EXPECT_FALSE(bus.ReadBytes(0x01, buffer));
    EXPECT_EQ(buffer.length, 0u);
    EXPECT_THAT(adapter.Transfers(), IsEmpty());
}

}

}
