#include "SerialProtocol/Frame.h"

#include "tests/SerialProtocol/Frames.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <ostream>
#include <string>

namespace
{

using namespace SerialProtocol;
using namespace std::string_literals;
using Frames::Span;
using Result = Reply::Result;

// Commands ---------------------------------------------------------------------------------------------

TEST(CommandFrameTest, IsLaidOutAsTheReaderExpects)
{
    constexpr CommandFrame EXPECTED = {0xAA, 0x55, 0x02, 0x01, 0x01, 0x10, 0x06, 0xCC, 0xEF, 0x0D};
    EXPECT_EQ(BuildCommandFrame(0x10), EXPECTED);
}

TEST(CommandFrameTest, OfEveryCommandHasItsCrc)
{
    for (unsigned int command = 0; command <= 0xFF; ++command)
    {
        const CommandFrame frame = BuildCommandFrame(static_cast<unsigned char>(command));
        const std::string bytes(frame.begin(), frame.end());
        EXPECT_EQ(bytes, Frames::Command(static_cast<unsigned char>(command))) << command;
    }
}

// Acceptance -------------------------------------------------------------------------------------------

/// A frame whose CRC is 0x06CC: one whose high byte differs from its low one, and which is above 255.
const std::string FRONT = "\xAA\x55\x02\x01\x01\x10"s;
constexpr unsigned int HIGH = 0x06;
constexpr unsigned int LOW = 0xCC;

bool Accepted(const std::string& frame)
{
    return FrameIsAccepted(Span(frame));
}

TEST(FrameAcceptanceTest, ARightCrcIsAccepted)
{
    EXPECT_TRUE(Accepted(Frames::WithEnd(FRONT, HIGH, LOW)));
}

TEST(FrameAcceptanceTest, ARightHighByteIsEnough)
{
    for (unsigned int low = 0; low <= 0xFF; ++low)
    {
        EXPECT_TRUE(Accepted(Frames::WithEnd(FRONT, HIGH, low))) << low;
    }
}

TEST(FrameAcceptanceTest, ARightLowByteIsNotEnoughForACrcAbove255)
{
    for (unsigned int high = 0; high <= 0xFF; ++high)
    {
        EXPECT_EQ(Accepted(Frames::WithEnd(FRONT, high, LOW)), high == HIGH) << high;
    }
}

TEST(FrameAcceptanceTest, ARightLowByteIsEnoughForACrcBelow256)
{
    const std::string front = Frames::FrontWithASmallCrc();
    const unsigned int crc = Frames::Crc(front);
    ASSERT_GT(crc, 0u);
    ASSERT_LT(crc, 0x100u);
    for (unsigned int high = 0; high <= 0xFF; ++high)
    {
        EXPECT_TRUE(Accepted(Frames::WithEnd(front, high, crc))) << high;
        EXPECT_EQ(Accepted(Frames::WithEnd(front, high, crc ^ 1U)), high == 0) << high;
    }
}

TEST(FrameAcceptanceTest, BothBytesWrongAreRefused)
{
    for (unsigned int wrong = 1; wrong <= 0xFF; ++wrong)
    {
        EXPECT_FALSE(Accepted(Frames::WithEnd(FRONT, HIGH ^ wrong, LOW ^ wrong))) << wrong;
    }
    EXPECT_FALSE(Accepted(Frames::WithEnd(FRONT, LOW, HIGH))) << "low byte first";
}

TEST(FrameAcceptanceTest, EachByteBeforeTheCrcCounts)
{
    const std::string right = Frames::WithEnd(FRONT, HIGH, LOW);
    for (std::size_t i = 0; i < FRONT.size(); ++i)
    {
        std::string wrong = right;
        wrong[i] = static_cast<char>(wrong[i] ^ 0x40); // a bit that reaches the high byte of the CRC
        EXPECT_FALSE(Accepted(wrong)) << i;
    }
}

TEST(FrameAcceptanceTest, TheTrailerIsNotLookedAt)
{
    std::string frame = Frames::WithEnd(FRONT, HIGH, LOW);
    frame.replace(frame.size() - 2, 2, "xy");
    EXPECT_TRUE(Accepted(frame));
}

TEST(FrameAcceptanceTest, TheShortestFrameHasTheCrcOfNothing)
{
    EXPECT_TRUE(Accepted("\x00\x00\xEF\x0D"s));
    EXPECT_TRUE(Accepted("\xAA\x00\xEF\x0D"s)) << "the low byte";
    EXPECT_TRUE(Accepted("\x00\xAA\xEF\x0D"s)) << "the high byte";
    EXPECT_FALSE(Accepted("\xAA\x01\xEF\x0D"s));
}

TEST(FrameAcceptanceTest, LessThanCrcAndTrailerIsRefused)
{
    for (std::size_t bytes = 0; bytes < FRAME_END_BYTES; ++bytes)
    {
        const std::string zeros(bytes, '\0');
        EXPECT_FALSE(Accepted(zeros)) << bytes;
    }
}

// Replies ----------------------------------------------------------------------------------------------

using Bytes = std::array<unsigned char, REPLY_BYTES>;

struct ReplyRow
{
    const char* name;
    Bytes frame;
    Result result;
    int code;
};

void PrintTo(const ReplyRow& row, std::ostream* out)
{
    *out << row.name;
}

class ReplyRows : public testing::TestWithParam<ReplyRow>
{
};

TEST_P(ReplyRows, AreDecoded)
{
    const Reply reply = DecodeReply(GetParam().frame);
    EXPECT_EQ(reply.result, GetParam().result);
    EXPECT_EQ(static_cast<int>(reply.result), GetParam().code);
    EXPECT_EQ(reply.type, GetParam().frame[2]);
    EXPECT_EQ(reply.status, GetParam().frame[5]);
}

INSTANTIATE_TEST_SUITE_P(
    All, ReplyRows,
    testing::Values(ReplyRow{"Acknowledge", {0xAA, 0x55, 0x01}, Result::Acknowledged, 0},
                    ReplyRow{"Status", {0xAA, 0x55, 0x06, 1, 1, 0x5A}, Result::Status, 1},
                    ReplyRow{"NoIdentifier", {0xAA, 0x55, 0x05}, Result::NoIdentifier, 2},
                    ReplyRow{"NoIdentifierWithOddEnds",
                             {0xAA, 0x55, 0x05, 9, 9, 9, 0, 0, 0, 0, 0xFF, 0xFF},
                             Result::NoIdentifier,
                             2},
                    ReplyRow{"FirstByteSet", {0, 0, 5, 0, 0, 0, 1, 0, 0, 0, 0, 0}, Result::Identifier, 3},
                    ReplyRow{"SecondByteSet", {0, 0, 5, 0, 0, 0, 0, 1, 0, 0, 0, 0}, Result::Identifier, 3},
                    ReplyRow{"ThirdByteSet", {0, 0, 5, 0, 0, 0, 0, 0, 1, 0, 0, 0}, Result::Identifier, 3},
                    ReplyRow{"FourthByteSet", {0, 0, 5, 0, 0, 0, 0, 0, 0, 1, 0, 0}, Result::Identifier, 3},
                    ReplyRow{"Error60", {0xAA, 0x55, 0x60}, Result::Error, -1},
                    ReplyRow{"Error99", {0xAA, 0x55, 0x99}, Result::Error, -1}),
    [](const testing::TestParamInfo<ReplyRow>& row) { return row.param.name; });

TEST(ReplyTest, OfAnyOtherTypeIsUnknown)
{
    for (unsigned int type = 0; type <= 0xFF; ++type)
    {
        const std::array<unsigned int, 5> known = {0x01, 0x05, 0x06, 0x60, 0x99};
        const Reply reply = DecodeReply(Bytes{0xAA, 0x55, static_cast<unsigned char>(type)});
        EXPECT_EQ(reply.result == Result::Unknown, std::find(known.begin(), known.end(), type) == known.end())
            << type;
    }
    EXPECT_EQ(static_cast<int>(Result::Unknown), 5);
}

TEST(ReplyTest, GivesTheIdentifiersLastByteFirst)
{
    const Reply reply = DecodeReply(Bytes{0xAA, 0x55, 0x05, 1, 8, 1, 0x10, 0x20, 0x30, 0x40, 0x50, 0x60});
    constexpr std::array<unsigned char, IDENTIFIER_BYTES> EXPECTED = {0x60, 0x50, 0x40, 0x30, 0x20, 0x10};
    EXPECT_EQ(reply.identifier, EXPECTED);
}

}
