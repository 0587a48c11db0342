#include "virtual-unit/recording/ReplayedSerial.h"

#include "tests/virtual-unit/recording/Notes.h"
#include "tests/virtual-unit/recording/Transcript.h"
#include "virtual-unit/recording/ObservedSerial.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::vector<std::string>;

class ReplayedSerialTest : public testing::Test
{
protected:
    void Play(const Texts& lines)
    {
        device =
            std::make_unique<ReplayedSerial>(Transcript(lines), begin, differences, [this] { return now; });
        device->Attach([] {});
    }

    void Send(const std::string& bytes) { device->Receive(bytes, now); }

    /// What is sent within `time`.
    Texts Wait(std::chrono::microseconds time)
    {
        now += time;
        device->Advance(now);
        return device->TakeOutput();
    }

    std::string Difference() const { return differences.First() ? differences.First()->Text() : "none"; }

    const SerialPeripheral::TimePoint begin{1h};
    SerialPeripheral::TimePoint now = begin;
    Differences differences;
    std::unique_ptr<ReplayedSerial> device;
};

const Texts DIALOGUE = {
    R"(0.500000 ! opened)",
    R"(0.510000 > "AT\r")",
    R"(0.512000 < "AT\r")",
    R"(0.520000 < "\r\nOK\r\n")",
    R"(1.000000 > hex AA 55 02 01 01 03 7F)",
    R"(1.100000 < hex 01)",
};

TEST_F(ReplayedSerialTest, TheSameProgramFindsTheSameDevice)
{
    Play(DIALOGUE);
    now += 3s; // opened later than then
    EXPECT_EQ(device->NextDeadline(), std::nullopt);
    EXPECT_THAT(Wait(0ms), IsEmpty());
    Send("AT\r");
    EXPECT_EQ(device->NextDeadline(), now + 2ms);
    EXPECT_THAT(Wait(1999us), IsEmpty());
    EXPECT_THAT(Wait(1us), ElementsAre("AT\r"));
    EXPECT_EQ(device->NextDeadline(), now + 8ms);
    EXPECT_THAT(Wait(8ms), ElementsAre("\r\nOK\r\n"));
    EXPECT_EQ(device->NextDeadline(), std::nullopt);
    EXPECT_THAT(Wait(1h), IsEmpty());
    Send("\xAA\x55\x02\x01\x01\x03\x7F");
    EXPECT_THAT(Wait(100ms), ElementsAre("\x01"));
    device->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedSerialTest, BytesMayBeCutOtherwise)
{
    Play({R"(0.000000 ! opened)", R"(0.100000 > "AB")", R"(0.200000 > "")", R"(0.200000 > "CD")",
          R"(0.300000 < "ok")", R"(0.400000 > "E")", R"(0.500000 < "end")"});
    Wait(0ms);
    Send("A");
    Send("BC");
    EXPECT_THAT(Wait(1s), IsEmpty());
    Send("DE");
    EXPECT_THAT(Wait(100ms), ElementsAre("ok", "end"));
    device->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedSerialTest, EachChangedByteIsToldWithItsPlace)
{
    const std::string expected = "\xAA\x55\x02\x01\x01\x03\x7F";
    for (std::size_t i = 0; i < expected.size(); ++i)
    {
        Differences own;
        ReplayedSerial replayed(Transcript(DIALOGUE), begin, own, [this] { return now; });
        std::string changed = expected;
        changed[i] = '\x04';
        replayed.Receive("AT\r" + changed, now);
        replayed.Finish();
        EXPECT_EQ(own.Count(), 1U);
        ASSERT_TRUE(own.First());
        EXPECT_EQ(own.First()->port, "/dev/port");
        EXPECT_EQ(own.First()->line, 7U);
        EXPECT_EQ(own.First()->byte, i + 1);
    }
}

TEST_F(ReplayedSerialTest, ADifferenceIsToldWithWhatIsAround)
{
    Play(DIALOGUE);
    Send("AT\r\xAA\x55\x02\x01\x01\x04");
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 7, byte 6: expected 0x03 in hex AA 55 02 01 01 03 .., the program "
              "sent 0x04 in hex AA 55 02 01 01 04");
}

TEST_F(ReplayedSerialTest, TextIsToldAsText)
{
    Play(DIALOGUE);
    Send("AX\r");
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 4, byte 2: expected 0x54 in \"AT\" .., the program sent 0x58 in "
              "\"AX\"");
}

TEST_F(ReplayedSerialTest, TheProgramGoesOnAfterADifference)
{
    Play(DIALOGUE);
    Wait(0ms);
    Send("BX\r");
    EXPECT_EQ(differences.Count(), 1U); // one for each line
    EXPECT_THAT(Wait(10ms), ElementsAre("AT\r", "\r\nOK\r\n"));
    Send("\xAA\x55\x02\x01\x01\x03\x7E");
    EXPECT_THAT(Wait(100ms), ElementsAre("\x01"));
    device->Finish();
    EXPECT_EQ(differences.Count(), 2U);
    EXPECT_THAT(Difference(), testing::HasSubstr("line 4, byte 1:"));
}

TEST_F(ReplayedSerialTest, BytesBehindTheEndAreADifference)
{
    Play({R"(0.000000 ! opened)", R"(0.100000 > "AT\r")"});
    Send("AT\rAT");
    Send("I\r");
    device->Finish();
    EXPECT_EQ(differences.Count(), 1U);
    EXPECT_EQ(Difference(), "/dev/port: the recording has nothing more, the program sent 0x41 in \"A\"");
}

TEST_F(ReplayedSerialTest, WhatWasNotSentIsADifference)
{
    Play(DIALOGUE);
    Send("AT\r\xAA\x55");
    device->Finish();
    EXPECT_EQ(differences.Count(), 1U);
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 7, byte 3: expected 0x02 in hex AA 55 02 .., the program ended "
              "before it sent that");
}

TEST_F(ReplayedSerialTest, APortThatIsNotUsedIsADifferenceWhenItWas)
{
    Play(DIALOGUE);
    device->Finish();
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 4, byte 1: expected 0x41 in \"A\" .., the program ended before it "
              "sent that");
}

TEST_F(ReplayedSerialTest, WhatIsReceivedDoesNotDrift)
{
    Play({R"(5.000000 ! opened)", R"(6.000000 < "1")", R"(7.000000 < "2")", R"(8.000000 < "3")"});
    now += 100s;
    Wait(0ms);
    EXPECT_THAT(Wait(999ms), IsEmpty());
    EXPECT_THAT(Wait(301ms), ElementsAre("1")); // late
    EXPECT_THAT(Wait(699ms), IsEmpty());
    EXPECT_THAT(Wait(1ms), ElementsAre("2"));
    EXPECT_THAT(Wait(5s), ElementsAre("3"));
    EXPECT_EQ(device->NextDeadline(), std::nullopt);
}

TEST_F(ReplayedSerialTest, WhatIsReceivedComesInOrder)
{
    Play({R"(0.000000 ! opened)", R"(1.000000 < "1")", R"(2.000000 > "go")", R"(2.100000 < "2")",
          R"(2.400000 < "3")"});
    Wait(0ms);
    Send("go"); // long before
    EXPECT_THAT(Wait(999ms), IsEmpty());
    EXPECT_THAT(Wait(1ms), ElementsAre("1", "2"));
    EXPECT_EQ(device->NextDeadline(), now + 300ms);
    EXPECT_THAT(Wait(300ms), ElementsAre("3"));
}

TEST_F(ReplayedSerialTest, WithoutAnOpeningTheFirstLineStandsForIt)
{
    Play({R"(5.000000 < "1")", R"(6.000000 < "2")"});
    EXPECT_THAT(Wait(0ms), ElementsAre("1"));
    EXPECT_THAT(Wait(1s), ElementsAre("2"));
}

TEST_F(ReplayedSerialTest, AnEmptyRecordingExpectsNothing)
{
    Play({});
    EXPECT_THAT(Wait(1s), IsEmpty());
    device->Finish();
    EXPECT_EQ(Difference(), "none");
    Send("x");
    EXPECT_EQ(differences.Count(), 1U);
}

const Texts UNPLUGGED = {
    R"(0.000000 ! opened)", R"(1.000000 < "1")",    R"(2.000000 ! unplugged)", R"(5.000000 ! plugged in)",
    R"(6.000000 ! opened)", R"(6.100000 > "AT\r")", R"(6.200000 < "2")",
};

TEST_F(ReplayedSerialTest, TheDeviceLeavesAtItsTime)
{
    Play(UNPLUGGED);
    now += 500ms;
    Wait(0ms); // opened half a second later than then
    EXPECT_EQ(device->NextDeadline(), begin + 1500ms);
    EXPECT_THAT(Wait(1s), ElementsAre("1"));
    EXPECT_EQ(device->NextDeadline(), begin + 2s);
    EXPECT_THAT(Wait(499ms), IsEmpty());
    EXPECT_TRUE(device->IsConnected());
    EXPECT_TRUE(device->IsPlugged());
    EXPECT_THAT(Wait(1ms), IsEmpty());
    EXPECT_FALSE(device->IsConnected());
    EXPECT_FALSE(device->IsPlugged());
    EXPECT_EQ(device->NextDeadline(), std::nullopt);
}

TEST_F(ReplayedSerialTest, TheDeviceComesBackForANewHost)
{
    Play(UNPLUGGED);
    Wait(0ms);
    Wait(4999ms);
    EXPECT_FALSE(device->IsPlugged());
    Wait(1ms);
    EXPECT_TRUE(device->IsPlugged());
    EXPECT_FALSE(device->IsConnected());

    now += 7s; // the program opens it later than then
    device->Attach({});
    EXPECT_FALSE(device->IsConnected());
    device->Attach([] {});
    EXPECT_TRUE(device->IsConnected());
    EXPECT_THAT(Wait(0ms), IsEmpty());
    Send("AT\r");
    EXPECT_THAT(Wait(99ms), IsEmpty());
    EXPECT_THAT(Wait(1ms), ElementsAre("2"));
    device->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedSerialTest, ANewHostDoesNotGetWhatTheFormerOneHasMissed)
{
    Play({R"(0.000000 ! opened)", R"(1.900000 < "1")", R"(2.000000 ! unplugged)", R"(3.000000 ! plugged in)",
          R"(4.000000 ! opened)", R"(4.500000 < "2")"});
    now += 1s;
    Wait(0ms);
    Wait(3s);
    device->Attach([] {});
    EXPECT_THAT(Wait(0ms), IsEmpty());
    EXPECT_THAT(Wait(500ms), ElementsAre("2"));
}

TEST_F(ReplayedSerialTest, ADeviceThatComesMayBeToldBehindTheOpening)
{
    Play({R"(0.000000 ! opened)", R"(1.000000 ! unplugged)", R"(2.000000 ! opened)",
          R"(2.000010 ! plugged in)", R"(2.100010 < "1")", R"(60.000000 ! opened)", R"(60.100000 < "2")"});
    Wait(0ms);
    Wait(3s);
    device->Attach([] {});
    EXPECT_THAT(Wait(0ms), IsEmpty());
    EXPECT_THAT(Wait(99999us), IsEmpty());
    EXPECT_THAT(Wait(1us), ElementsAre("1"));
    EXPECT_EQ(device->NextDeadline(), now + 57999990us);
}

const Texts SENT_TWICE = {
    R"(0.000000 ! opened)",     R"(1.000000 > "one")",  R"(2.000000 ! unplugged)",
    R"(3.000000 ! plugged in)", R"(4.000000 ! opened)", R"(4.100000 > "two")",
};

TEST_F(ReplayedSerialTest, WhatWasNotSentUntilTheDeviceLeftIsADifference)
{
    Play(SENT_TWICE);
    Send("on");
    Wait(3s);
    device->Attach([] {});
    Send("two");
    device->Finish();
    EXPECT_EQ(differences.Count(), 1U);
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 4, byte 3: expected 0x65 in \"one\", the program had not "
              "sent that when the device left");
}

TEST_F(ReplayedSerialTest, WhatIsSentBeforeTheDeviceLeavesIsNotWhatFollows)
{
    Play(SENT_TWICE);
    Send("onetwo");
    EXPECT_EQ(Difference(), "/dev/port: the recording has nothing more, the program sent 0x74 in \"t\"");
    Wait(3s);
    device->Attach([] {});
    Send("two");
    device->Finish();
    EXPECT_EQ(differences.Count(), 1U);
}

TEST_F(ReplayedSerialTest, ADeviceThatIsNotUsedAgainIsADifference)
{
    Play(SENT_TWICE);
    Send("one");
    device->Finish();
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 8, byte 1: expected 0x74 in \"t\" .., the program ended "
              "before it sent that");
}

TEST_F(ReplayedSerialTest, APortThatIsNotOpenGoesAndComesToo)
{
    Play(UNPLUGGED);
    EXPECT_TRUE(device->IsPlugged());
    now = begin + 2s;
    EXPECT_FALSE(device->IsPlugged());
    EXPECT_FALSE(device->IsConnected());
    now = begin + 5s;
    EXPECT_TRUE(device->IsPlugged());
    EXPECT_FALSE(device->IsConnected()); // for this host it has left
    device->Attach([] {});
    EXPECT_TRUE(device->IsConnected());
}

TEST_F(ReplayedSerialTest, ADeviceLeavesBehindWhatWasSentToItBefore)
{
    const Texts lines = {R"(0.000000 ! opened)", R"(1.000000 > "one")", R"(1.001000 ! unplugged)"};
    Play(lines);
    Wait(0s);
    Wait(1001ms);
    EXPECT_TRUE(device->IsConnected()) << "the program is a little later than it was";
    Send("one");
    EXPECT_FALSE(device->IsConnected());

    now = begin;
    Play(lines);
    Wait(0s);
    Wait(1001ms);
    EXPECT_EQ(device->NextDeadline(), now + ReplayedTraffic::PATIENCE);
    Wait(ReplayedTraffic::PATIENCE);
    EXPECT_FALSE(device->IsConnected()) << "it never sends it";
}

TEST_F(ReplayedSerialTest, ADeviceMayBeAbsentAtFirst)
{
    Play(
        {R"(0.000000 ! unplugged)", R"(1.000000 ! plugged in)", R"(1.100000 ! opened)", R"(1.200000 < "1")"});
    EXPECT_FALSE(device->IsPlugged());
    EXPECT_FALSE(device->IsConnected());
    now += 1s;
    EXPECT_TRUE(device->IsPlugged());
    device->Attach([] {});
    EXPECT_TRUE(device->IsConnected());
    EXPECT_THAT(Wait(0ms), IsEmpty());
    EXPECT_THAT(Wait(100ms), ElementsAre("1"));
}

TEST_F(ReplayedSerialTest, TheRecordingOfAReplayIsTheRecording)
{
    Notes notes(begin);
    Differences own;
    ObservedSerial observed(
        std::make_shared<ReplayedSerial>(Transcript(DIALOGUE), begin, own, [this] { return now; }), notes,
        begin);
    const auto wait = [&](std::chrono::milliseconds time) {
        now += time;
        observed.Advance(now);
        observed.TakeOutput();
    };
    wait(500ms);
    now += 10ms;
    observed.Receive("AT\r", now);
    wait(2ms);
    wait(8ms);
    now += 480ms;
    observed.Receive("\xAA\x55\x02\x01\x01\x03\x7F", now);
    wait(100ms);
    EXPECT_THAT(notes.lines, ElementsAre(R"(510 > "AT\r")", R"(512 < "AT\r")", R"(520 < "\r\nOK\r\n")",
                                         "1000 > hex AA 55 02 01 01 03 7F", "1100 < hex 01"));
    EXPECT_EQ(own.Count(), 0U);
}

/// From two seconds on nothing counts: the program that was recorded was stopped from outside soon after.
class UncomparedTest : public ReplayedSerialTest
{
protected:
    void PlayToTwoSeconds(const Texts& lines)
    {
        device = std::make_unique<ReplayedSerial>(Transcript(lines), begin, stopped, [this] { return now; });
        device->Attach([] {});
        device->Advance(now);
    }

    Differences stopped{2s};
};

const Texts STOPPED = {R"(0.000000 ! opened)",   R"(1.000000 > "key?\r")", R"(1.010000 < "none\r\n")",
                       R"(1.020000 < "OK\r\n")", R"(2.500000 > "stop\r")", R"(2.600000 < "stopped\r\n")"};

TEST_F(UncomparedTest, WhatWasAskedBeforeIsAnsweredAsBeforeAndTheRestGoesOn)
{
    PlayToTwoSeconds(STOPPED);
    Wait(1s);
    Send("key?\r");
    EXPECT_THAT(Wait(100ms), ElementsAre("none\r\n", "OK\r\n"));
    Wait(1s);
    Send("ke");
    Send("y?\r");
    EXPECT_THAT(Wait(0s), ElementsAre("none\r\n", "OK\r\n")) << "once more than it was recorded";
    Send("stop\r");
    EXPECT_THAT(Wait(100ms), ElementsAre("stopped\r\n"));
    device->Finish();
    EXPECT_EQ(stopped.Count(), 0U);
}

TEST_F(UncomparedTest, WhatWasNeverAskedIsPassedOver)
{
    PlayToTwoSeconds(STOPPED);
    Wait(1s);
    Send("key?\r");
    Wait(1s);
    Send("who?\rstop\r");
    EXPECT_THAT(Wait(100ms), ElementsAre("stopped\r\n"));
    EXPECT_EQ(stopped.Count(), 0U);
}

TEST_F(UncomparedTest, WhatComesNextButOneIsAnsweredAndTheRestLeftOut)
{
    Texts lines = STOPPED;
    lines.insert(lines.begin() + 4, {R"(2.300000 > "key?\r")", R"(2.310000 < "none\r\n")"});
    PlayToTwoSeconds(lines);
    Wait(1s);
    Send("key?\r");
    Wait(1s);
    Send("stop\r");
    EXPECT_THAT(Wait(100ms), ElementsAre("stopped\r\n"));
    EXPECT_EQ(stopped.Count(), 0U);
}

TEST_F(UncomparedTest, WhatIsMissingThereIsNoDifferenceAndBeforeThatItIs)
{
    PlayToTwoSeconds(STOPPED);
    Wait(1s);
    Send("key?\r");
    Wait(2s);
    device->Finish();
    EXPECT_EQ(stopped.Count(), 0U);

    PlayToTwoSeconds(STOPPED);
    Wait(2s);
    device->Finish();
    EXPECT_EQ(stopped.Count(), 1U);
    ASSERT_TRUE(stopped.First());
    EXPECT_EQ(stopped.First()->byte, 1U);
}

TEST_F(ReplayedSerialTest, ItTellsHowFarItHasCome)
{
    Play(DIALOGUE);
    Wait(0s);
    EXPECT_TRUE(device->HasReached(510ms));
    EXPECT_FALSE(device->HasReached(511ms));
    Send("AT\r");
    Wait(10ms);
    EXPECT_TRUE(device->HasReached(1s));
    EXPECT_FALSE(device->HasReached(1s + 1us));
    Send("\xAA\x55\x02\x01\x01\x03\x7F");
    EXPECT_FALSE(device->HasReached(1h));
    Wait(100ms);
    EXPECT_TRUE(device->HasReached(1h));
}

}
