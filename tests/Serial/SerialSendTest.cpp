// Sending.

#include "tests/Serial/SerialTest.h"

#include <cerrno>
#include <cstdint>

using testing::IsEmpty;

namespace SerialTests
{

namespace
{

TEST_F(SerialTest, BytesGoOutAsTheyAreByOneCall)
{
    using namespace std::string_view_literals;
    ASSERT_TRUE(port.Open());
    EXPECT_TRUE(Send("$PMTK605*31\r\n\0\xFF"sv));
    EXPECT_EQ(line.Received(), "$PMTK605*31\r\n\0\xFF"sv) << "no new line is changed on its way out";
    const auto writes = Kit::System::CallsOf("write");
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].argument, 15);
}

TEST_F(SerialTest, NothingToSendIsRefusedWithoutTouchingTheDevice)
{
    unsigned char byte = 'x';
    TavubufferDynamic none;
    TavubufferDynamic empty(8);
    EXPECT_FALSE(port.Send(&byte, 1)) << "not open";
    ASSERT_TRUE(port.Open());
    Kit::System::ForgetCalls();
    EXPECT_FALSE(port.Send(nullptr, 1));
    EXPECT_FALSE(port.Send(&byte, 0));
    EXPECT_FALSE(port.Send(nullptr, 0));
    EXPECT_FALSE(port.Send(none));
    EXPECT_FALSE(port.Send(empty));
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_FALSE(port.HasError());
}

TEST_F(SerialTest, ABufferSendsItsLength)
{
    ASSERT_TRUE(port.Open());
    std::fill_n(buffer.data, 64, static_cast<unsigned char>('b'));
    buffer.length = 3;
    EXPECT_TRUE(port.Send(buffer));
    EXPECT_EQ(line.Received(), "bbb");
    EXPECT_EQ(buffer.length, 3u);
}

TEST_F(SerialTest, OfABuffersLengthTheLowThirtyTwoBitsCount)
{
    ASSERT_TRUE(port.Open());
    std::fill_n(buffer.data, 64, static_cast<unsigned char>('b'));
    buffer.length = (std::uint64_t{7} << 32) + 2;
    EXPECT_TRUE(port.Send(buffer));
    EXPECT_EQ(line.Received(), "bb");
    buffer.length = std::uint64_t{7} << 32;
    EXPECT_FALSE(port.Send(buffer));
    EXPECT_EQ(Count("write"), 1);
}

TEST_F(SerialTest, AShortWriteCountsAsSentAndIsNotRepeated)
{
    ASSERT_TRUE(port.Open());
    for (const long taken : {3L, 0L})
    {
        Kit::System::ForgetCalls();
        Kit::System::Fail("write", 0, 1, 1, taken);
        EXPECT_TRUE(Send("message"));
        EXPECT_EQ(Count("write"), 1);
    }
    EXPECT_FALSE(port.HasError());
}

TEST_F(SerialTest, AFailedWriteIsAFailureWithoutALine)
{
    ASSERT_TRUE(port.Open());
    const auto lines = log.Console();
    for (const int error : {EIO, EINTR, EAGAIN, ENXIO})
    {
        Kit::System::Fail("write", error);
        EXPECT_FALSE(Send("message"));
        EXPECT_EQ(port.GetErrorNumber(), error);
    }
    EXPECT_EQ(Count("write"), 4) << "nothing is tried again";
    EXPECT_EQ(log.Console(), lines);
    EXPECT_EQ(line.Received(), "");
}

}

}
