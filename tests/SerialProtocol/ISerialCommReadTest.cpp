// Receiving a frame, as ReadCmdMsg() does it.

#include "SerialProtocol/ISerialComm.h"

#include "base/Tavbase/IException.h"
#include "tests/SerialProtocol/Frames.h"
#include "tests/SerialProtocol/Peripheral.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Interruptions.h"

#include <array>
#include <limits>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace SerialProtocolTests
{

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using Kit::Clock;
using SerialProtocol::ISerialComm;

const std::string ACKNOWLEDGE = Frames::Short(0x01);
const std::string IDENTIFIER = Frames::Long(0x05, "\x10\x20\x30\x40\x50\x60");
const std::string NO_FRAME = "[ERROR]DID: read buffer ==> error";
const std::string WRONG_CRC = "[ERROR]DID: CRC error";
constexpr std::size_t LOOKS_IN_TIME = 30; // in three seconds, when nothing is found

/// The bytes of a response that is `length` long, trailer included, and whose CRC is right.
std::string FrameOf(std::size_t length)
{
    std::string front = "\xAA\x55\x01\x01\x01\x01\x01\x01\x01\x01\x01\x01\x01";
    front.resize(length - 4);
    return Frames::Framed(front);
}

class ReadCmdMsgTest : public Kit::DeviceTest
{
protected:
    /// The next read fails, and tells so on the console alone.
    void ExpectFailure(unsigned int expected, const std::string& line)
    {
        const std::size_t seen = log.Console().size();
        EXPECT_FALSE(peripheral.ReadCmdMsg(expected));
        const std::vector<std::string> lines = log.Console();
        EXPECT_EQ(lines.size(), seen + 1);
        EXPECT_EQ(lines.empty() ? "" : lines.back(), line);
        EXPECT_THAT(log.File(), IsEmpty());
    }

    void ExpectSuccess(unsigned int expected)
    {
        EXPECT_TRUE(peripheral.ReadCmdMsg(expected));
        EXPECT_THAT(log.Console(), IsEmpty());
        EXPECT_THAT(log.File(), IsEmpty());
    }

    int Parse() { return peripheral.ParseRcvMsg(identifier.data()); }

    Peripheral peripheral;
    std::array<unsigned char, 6> identifier{};
};

// Frames -----------------------------------------------------------------------------------------------

TEST_F(ReadCmdMsgTest, AFrameIsReceivedAtOnce)
{
    peripheral.Hear(IDENTIFIER);
    ExpectSuccess(17);
    EXPECT_EQ(peripheral.looks, 17u);
    EXPECT_EQ(Clock::Elapsed(), 0s);
    EXPECT_EQ(Parse(), 3);
    EXPECT_THAT(identifier, ElementsAre(0x60, 0x50, 0x40, 0x30, 0x20, 0x10));
}

TEST_F(ReadCmdMsgTest, FramesOfAllLengthsAreReceived)
{
    for (unsigned int length = 5; length <= 17; ++length)
    {
        peripheral.Hear(FrameOf(length));
        EXPECT_TRUE(peripheral.ReadCmdMsg(length)) << length;
    }
    EXPECT_EQ(Clock::Elapsed(), 0s);
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(ReadCmdMsgTest, AFrameOfFourBytesHasTheCrcOfNothing)
{
    peripheral.Hear("\xAA\x00\xEF\x0D"s);
    ExpectSuccess(4);
    EXPECT_EQ(Parse(), 5);
    peripheral.Hear("\xAA\x01\xEF\x0D"s);
    ExpectFailure(4, WRONG_CRC);
}

TEST_F(ReadCmdMsgTest, AFrameShorterThanCrcAndTrailerIsNone)
{
    const std::string texts[] = {"", "\xAA", "\xAA\x55", "\xAA\xEF\x0D"};
    for (unsigned int expected = 0; expected <= 3; ++expected)
    {
        peripheral.Hear(texts[expected]);
        ExpectFailure(expected, NO_FRAME);
        EXPECT_THAT(peripheral.line, IsEmpty());
    }
}

TEST_F(ReadCmdMsgTest, OneByteIsTooManyForNone)
{
    peripheral.Hear(ACKNOWLEDGE);
    ExpectFailure(0, NO_FRAME);
    EXPECT_EQ(peripheral.taken, "\xAA");
    EXPECT_EQ(Clock::Elapsed(), 0s);
}

TEST_F(ReadCmdMsgTest, MoreThanSeventeenBytesAreRefusedWithoutAWord)
{
    peripheral.Hear(FrameOf(17));
    for (const unsigned int expected : {18U, 20U, 21U, 256U, std::numeric_limits<unsigned int>::max()})
    {
        EXPECT_FALSE(peripheral.ReadCmdMsg(expected));
    }
    EXPECT_EQ(peripheral.looks, 0u);
    EXPECT_EQ(Clock::Elapsed(), 0s);
    EXPECT_THAT(Kit::System::Sleeps(), IsEmpty());
    EXPECT_THAT(log.Console(), IsEmpty());
    EXPECT_THAT(log.File(), IsEmpty());
}

TEST_F(ReadCmdMsgTest, NoiseBeforeTheFrameIsDropped)
{
    const std::string noises[] = {"\x55"s, "\xEF\x0D"s, "\0\0\xFF"s, std::string(5000, '\xEF')};
    for (const std::string& noise : noises)
    {
        peripheral.Hear(noise + IDENTIFIER);
        EXPECT_TRUE(peripheral.ReadCmdMsg(17));
        EXPECT_EQ(Parse(), 3);
    }
    EXPECT_EQ(Clock::Elapsed(), 0s);
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(ReadCmdMsgTest, AFurtherFirstByteIsData)
{
    peripheral.Hear(Frames::Framed("\xAA\xAA\x05\xAA\x01\x01\xAA\xAA\xAA\xAA\xAA\xBB\xAA"));
    ExpectSuccess(17);
    EXPECT_EQ(Parse(), 3);
    EXPECT_THAT(identifier, ElementsAre(0xBB, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA));
}

TEST_F(ReadCmdMsgTest, AFirstByteInTheNoiseMakesTheFrameTooLong)
{
    peripheral.Hear("\xAA" + ACKNOWLEDGE);
    ExpectFailure(10, NO_FRAME);
    EXPECT_EQ(peripheral.taken.size(), 11u);
}

TEST_F(ReadCmdMsgTest, ATrailerInsideEndsTheFrame)
{
    const std::string frame = Frames::Long(0x05, "\x10\xEF\x0D\x40\x50\x60");
    peripheral.Hear(frame);
    ExpectFailure(17, NO_FRAME);
    EXPECT_EQ(peripheral.taken, frame.substr(0, 9));
    EXPECT_EQ(Clock::Elapsed(), 0s);
    EXPECT_EQ(peripheral.line.size(), 8u) << "the rest stays on the line";
}

TEST_F(ReadCmdMsgTest, ACrcThatLooksLikeTheTrailerEndsTheFrameToo)
{
    const std::string frame = Frames::Long(0x02, "123456");
    ASSERT_TRUE(frame.ends_with("\xEF\x0D\xEF\x0D"));
    peripheral.Hear(frame);
    ExpectFailure(17, NO_FRAME);
    EXPECT_EQ(peripheral.line.size(), 2u);
}

TEST_F(ReadCmdMsgTest, ATrailerOneByteEarlyOrLateIsAWrongLength)
{
    peripheral.Hear(FrameOf(9));
    ExpectFailure(10, NO_FRAME);
    peripheral.Hear(FrameOf(11));
    ExpectFailure(10, NO_FRAME);
    EXPECT_THAT(peripheral.line, IsEmpty());
    EXPECT_EQ(Clock::Elapsed(), 0s);
}

TEST_F(ReadCmdMsgTest, OneByteTooManyEndsTheFrame)
{
    for (unsigned int expected = 0; expected <= 17; ++expected)
    {
        peripheral.taken.clear();
        peripheral.line.clear();
        peripheral.Hear(std::string(40, '\xAA'));
        ExpectFailure(expected, NO_FRAME);
        EXPECT_EQ(peripheral.taken.size(), expected + 1);
    }
    EXPECT_EQ(Clock::Elapsed(), 0s);
}

TEST_F(ReadCmdMsgTest, AFrameWithoutTrailerIsJudgedByItsCrcWhenTheTimeIsOver)
{
    std::string frame = ACKNOWLEDGE;
    frame.replace(8, 2, "\xEF\x0C");
    peripheral.Hear(frame);
    ExpectSuccess(10);
    EXPECT_EQ(Clock::Elapsed(), 3s);
    EXPECT_EQ(Parse(), 0);

    frame[6] = static_cast<char>(~frame[6]);
    peripheral.Hear(frame);
    ExpectFailure(10, WRONG_CRC);
    EXPECT_EQ(Clock::Elapsed(), 6s);
}

TEST_F(ReadCmdMsgTest, WhatFollowsAFrameIsLeftForTheNextRead)
{
    peripheral.Hear(ACKNOWLEDGE + IDENTIFIER);
    ExpectSuccess(10);
    EXPECT_EQ(Parse(), 0);
    ExpectSuccess(17);
    EXPECT_EQ(Parse(), 3);
}

TEST_F(ReadCmdMsgTest, AShortFrameLeavesNoTraceOfTheLongOneBefore)
{
    peripheral.Hear(IDENTIFIER);
    ExpectSuccess(17);
    peripheral.Hear(Frames::Short(0x06, 0x77));
    ExpectSuccess(10);
    EXPECT_EQ(Parse(), 1);
    EXPECT_EQ(peripheral.GetLastStatus(), 0x77);
    EXPECT_EQ(Parse(), 5);
}

// The check --------------------------------------------------------------------------------------------

TEST_F(ReadCmdMsgTest, AWrongLowByteOfTheCrcIsLetPass)
{
    std::string frame = ACKNOWLEDGE;
    frame[7] = static_cast<char>(~frame[7]);
    peripheral.Hear(frame);
    ExpectSuccess(10);
    EXPECT_EQ(Parse(), 0);
}

TEST_F(ReadCmdMsgTest, AWrongHighByteIsLetPassWhenTheWholeCrcIsTheLowOne)
{
    const std::string front = Frames::FrontWithASmallCrc();
    peripheral.Hear(Frames::WithEnd(front, 0x77, Frames::Crc(front)));
    ExpectSuccess(10);
    EXPECT_EQ(Parse(), 0);
}

TEST_F(ReadCmdMsgTest, AWrongHighByteIsRefusedOtherwise)
{
    std::string frame = ACKNOWLEDGE;
    frame[6] = static_cast<char>(~frame[6]);
    peripheral.Hear(frame);
    ExpectFailure(10, WRONG_CRC);
    EXPECT_EQ(Clock::Elapsed(), 0s);
}

TEST_F(ReadCmdMsgTest, BothBytesWrongAreRefused)
{
    std::string frame = ACKNOWLEDGE;
    frame[6] = static_cast<char>(~frame[6]);
    frame[7] = static_cast<char>(~frame[7]);
    peripheral.Hear(frame);
    ExpectFailure(10, WRONG_CRC);
    const std::string front = Frames::FrontWithASmallCrc();
    peripheral.Hear(Frames::WithEnd(front, 0x77, Frames::Crc(front) ^ 1U));
    ExpectFailure(10, WRONG_CRC);
}

// Time -------------------------------------------------------------------------------------------------

TEST_F(ReadCmdMsgTest, SilenceEndsAfterThreeSecondsOfShortSleeps)
{
    ExpectFailure(10, NO_FRAME);
    EXPECT_EQ(Clock::Elapsed(), 3s);
    EXPECT_EQ(peripheral.looks, LOOKS_IN_TIME);
    EXPECT_THAT(Kit::System::Sleeps(), SizeIs(LOOKS_IN_TIME));
    EXPECT_THAT(Kit::System::Sleeps(), Each(100ms));
}

TEST_F(ReadCmdMsgTest, WithoutALineTheTimePassesInTheSameWay)
{
    ISerialComm protocol;
    EXPECT_FALSE(protocol.ReadCmdMsg(10));
    EXPECT_EQ(Clock::Elapsed(), 3s);
    EXPECT_THAT(Kit::System::Sleeps(), SizeIs(LOOKS_IN_TIME));
    EXPECT_THAT(Kit::System::Sleeps(), Each(100ms));
    EXPECT_THAT(log.Console(), ElementsAre(NO_FRAME));
    EXPECT_THAT(log.File(), IsEmpty());
}

TEST_F(ReadCmdMsgTest, SilenceAfterAFrameIsATimeOutAsWell)
{
    peripheral.Hear(ACKNOWLEDGE);
    ExpectSuccess(10);
    ExpectFailure(10, NO_FRAME);
    EXPECT_EQ(Clock::Elapsed(), 3s);
    EXPECT_EQ(Parse(), 5);
}

TEST_F(ReadCmdMsgTest, AFrameAtTheLastLookIsReceived)
{
    peripheral.Pause(LOOKS_IN_TIME - 1);
    peripheral.Hear(ACKNOWLEDGE);
    ExpectSuccess(10);
    EXPECT_EQ(Clock::Elapsed(), 2900ms);
}

TEST_F(ReadCmdMsgTest, AFrameAfterTheLastLookIsTooLate)
{
    peripheral.Pause(LOOKS_IN_TIME);
    peripheral.Hear(ACKNOWLEDGE);
    ExpectFailure(10, NO_FRAME);
    EXPECT_EQ(Clock::Elapsed(), 3s);
    EXPECT_EQ(peripheral.taken, "");
    ExpectFailure(17, NO_FRAME);
    EXPECT_EQ(Clock::Elapsed(), 3s) << "found by the next read, and too short for it";
}

TEST_F(ReadCmdMsgTest, AnIncompleteFrameIsATimeOut)
{
    for (std::size_t bytes = 1; bytes < ACKNOWLEDGE.size(); ++bytes)
    {
        const auto begin = Clock::Elapsed();
        peripheral.Hear(ACKNOWLEDGE.substr(0, bytes));
        ExpectFailure(10, NO_FRAME);
        EXPECT_EQ(Clock::Elapsed() - begin, 3s) << bytes;
    }
}

TEST_F(ReadCmdMsgTest, ASlowFrameHasThreeSecondsAsAWhole)
{
    for (const char byte : ACKNOWLEDGE)
    {
        peripheral.Pause(2);
        peripheral.Hear(std::string(1, byte));
    }
    ExpectSuccess(10);
    EXPECT_EQ(Clock::Elapsed(), 2s);
    for (const char byte : ACKNOWLEDGE)
    {
        peripheral.Pause(3);
        peripheral.Hear(std::string(1, byte));
    }
    ExpectFailure(10, NO_FRAME);
    EXPECT_EQ(Clock::Elapsed(), 5s);
    EXPECT_EQ(peripheral.line.size(), 1u) << "the last byte would have come at the end of the time";
}

TEST_F(ReadCmdMsgTest, EndlessNoiseEndsInTheTimeOut)
{
    peripheral.Hear(std::string(5000, '\x55'));
    peripheral.beforeLook = [](std::size_t) { std::this_thread::sleep_for(1ms); };
    ExpectFailure(10, NO_FRAME);
    EXPECT_EQ(Clock::Elapsed(), 3s);
    EXPECT_EQ(peripheral.looks, 3000u);
}

TEST_F(ReadCmdMsgTest, AFrameInTwoPiecesIsTheSameAsInOne)
{
    for (const std::string& frame : {ACKNOWLEDGE, IDENTIFIER, Frames::Short(0x06, 0x77)})
    {
        peripheral.Hear(frame);
        EXPECT_TRUE(peripheral.ReadCmdMsg(static_cast<unsigned int>(frame.size())));
        const int whole = Parse();
        const std::array<unsigned char, 6> wholeIdentifier = identifier;
        for (std::size_t cut = 0; cut <= frame.size(); ++cut)
        {
            const auto begin = Clock::Elapsed();
            identifier = {};
            peripheral.Hear(frame.substr(0, cut));
            peripheral.Pause(7);
            peripheral.Hear(frame.substr(cut));
            EXPECT_TRUE(peripheral.ReadCmdMsg(static_cast<unsigned int>(frame.size()))) << cut;
            EXPECT_EQ(Parse(), whole) << cut;
            EXPECT_EQ(identifier, whole == 3 ? wholeIdentifier : (std::array<unsigned char, 6>{})) << cut;
            EXPECT_EQ(Clock::Elapsed() - begin, cut < frame.size() ? 700ms : 0ms) << cut;
            peripheral.line.clear();
        }
    }
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(ReadCmdMsgTest, APauseBehindEachByteDoesNoHarm)
{
    for (const char byte : IDENTIFIER)
    {
        peripheral.Hear(std::string(1, byte));
        peripheral.Pause();
    }
    ExpectSuccess(17);
    EXPECT_EQ(Clock::Elapsed(), 1600ms);
    EXPECT_EQ(Parse(), 3);
}

TEST_F(ReadCmdMsgTest, SettingTheWallClockNeitherEndsNorProlongsTheRead)
{
    for (const std::time_t set : {Clock::START + 60, Clock::START - 60})
    {
        const auto begin = Clock::Elapsed();
        const std::size_t looksBefore = peripheral.looks;
        peripheral.beforeLook = [&](std::size_t look) {
            if (look == looksBefore + 5)
            {
                Clock::SetWallClock(set);
            }
        };
        ExpectFailure(10, NO_FRAME);
        EXPECT_EQ(Clock::Elapsed() - begin, 3s) << set;
        EXPECT_EQ(peripheral.looks - looksBefore, LOOKS_IN_TIME);
    }
}

TEST_F(ReadCmdMsgTest, AFrameAfterTheWallClockWasSetIsReceived)
{
    peripheral.beforeLook = [](std::size_t look) {
        if (look == 5)
        {
            Clock::SetWallClock(Clock::START + 86400);
        }
    };
    peripheral.Pause(20);
    peripheral.Hear(ACKNOWLEDGE);
    ExpectSuccess(10);
    EXPECT_EQ(Clock::Elapsed(), 2s);
}

TEST_F(ReadCmdMsgTest, ASignalDoesNotShortenTheSleep)
{
    peripheral.Pause(3);
    peripheral.Hear(ACKNOWLEDGE);
    const Kit::Interruptions interruptions({30ms, 70ms, 150ms, 199ms, 201ms});
    ExpectSuccess(10);
    EXPECT_EQ(Clock::Elapsed(), 300ms);
    EXPECT_EQ(peripheral.looks, 13u) << "three that found nothing and one for each byte";
    EXPECT_EQ(interruptions.Count(), 5);
}

// Exceptions of the line ---------------------------------------------------------------------------------

TEST_F(ReadCmdMsgTest, AnExceptionOfTheLineEndsTheReadAndIsTold)
{
    peripheral.Hear("\xAA\x55\x01");
    peripheral.beforeLook = [](std::size_t look) {
        if (look == 3)
        {
            throw Tavbase::IException("the line is cut", 7);
        }
    };
    ExpectFailure(10, "[ERROR]DID: the line is cut");
    EXPECT_EQ(peripheral.looks, 3u);
    EXPECT_EQ(Clock::Elapsed(), 0s);
}

TEST_F(ReadCmdMsgTest, AStandardExceptionIsToldInTheSameWay)
{
    peripheral.beforeLook = [](std::size_t) { throw std::runtime_error("no such line"); };
    ExpectFailure(10, "[ERROR]DID: no such line");
}

TEST_F(ReadCmdMsgTest, AnythingElseThatIsThrownStaysInsideToo)
{
    peripheral.beforeLook = [](std::size_t) { throw 42; };
    ExpectFailure(10, "[ERROR]DID: unknown exception");
}

TEST_F(ReadCmdMsgTest, AnExceptionAfterATimeOfSilenceIsToldWithoutDelay)
{
    peripheral.beforeLook = [](std::size_t look) {
        if (look == 10)
        {
            throw Tavbase::IException("");
        }
    };
    ExpectFailure(10, "[ERROR]DID: ");
    EXPECT_EQ(Clock::Elapsed(), 900ms);
}

TEST_F(ReadCmdMsgTest, AfterAnExceptionTheNextReadIsAsGoodAsNew)
{
    peripheral.Hear(ACKNOWLEDGE.substr(0, 5));
    peripheral.beforeLook = [](std::size_t look) {
        if (look == 5)
        {
            throw std::runtime_error("once");
        }
    };
    ExpectFailure(10, "[ERROR]DID: once");
    peripheral.line.clear();
    peripheral.Hear(ACKNOWLEDGE);
    EXPECT_TRUE(peripheral.ReadCmdMsg(10));
    EXPECT_EQ(Parse(), 0);
}

// A thread that ends unwinds without an exception object. The undefined-behaviour sanitizer, which comes with
// the address sanitizer in this project, takes the handler that lets it pass for a null reference.
#if !defined(__SANITIZE_ADDRESS__)

TEST_F(ReadCmdMsgTest, AThreadThatEndsInTheReadEndsWithoutHarm)
{
    static int exitValue = 0;
    peripheral.beforeLook = [](std::size_t) { pthread_exit(&exitValue); };
    pthread_t thread = {};
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void* argument) -> void* {
                      static_cast<Peripheral*>(argument)->ReadCmdMsg(10);
                      return nullptr;
                  },
                  &peripheral),
              0);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, &exitValue);
    EXPECT_THAT(log.Console(), IsEmpty()) << "it is no failure of the line";
}

#endif

}

}
