// The reader's life without its commands: construction, looking for the reader, the line, the end.

#include "tests/DriverId/DriverIdTest.h"

#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"
#include "tests/kit/Interruptions.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <ostream>
#include <termios.h>
#include <type_traits>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace DriverIdTests
{

namespace
{

using SerialProtocol::ISerialComm;

const std::string PRESENCE = Frames::Command(0);
const std::string RESET = Frames::Command(9);
const std::string NO_ACKNOWLEDGE = Frames::Short(0x07);

const std::string OPENING = "[SERIAL] Try to open device /dev/ttymxc2";
const std::string FLUSHED = "[SERIAL] Serial port flashed";
const std::string ASKING = "Send ACK command to identify driver id device";
const std::string MODE = "Set serial mode to 1";
const std::string NO_FRAME_AT_INIT = "[ERROR]DID: read buffer ==> error";

// Shape ------------------------------------------------------------------------------------------------

TEST(DriverIdShapeTest, VirtualOperationsAreThoseOfTheProtocol)
{
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::OnSend), 2);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::OnRead), 3);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::SendCmdMsg), 4);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::ReadCmdMsg), 5);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::ParseRcvMsg), 6);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::Init), -1);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::CheckDevicePresence), -1);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::StartAnnoying), -1);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::StopAnnoying), -1);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::RequestDriverIdReset), -1);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::RequestDriverId), -1);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::Dispose), -1);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::LoadFromFile), -1);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::SaveToFile), -1);
    EXPECT_EQ(Tests::VirtualSlot(&DriverId::RemoveFile), -1);
    static_assert(std::is_convertible_v<DriverId*, ISerialComm*>, "a public base");
    static_assert(std::is_same_v<decltype(&DriverId::OnSend), bool (DriverId::*)(TavubufferDynamic&)>);
    static_assert(std::is_same_v<decltype(&DriverId::OnRead), bool (DriverId::*)(TavubufferDynamic&)>);
    static_assert(std::is_same_v<decltype(&DriverId::SendCmdMsg), bool (ISerialComm::*)(unsigned char)>);
    static_assert(std::is_same_v<decltype(&DriverId::ReadCmdMsg), bool (ISerialComm::*)(unsigned int)>);
    static_assert(std::is_same_v<decltype(&DriverId::ParseRcvMsg), int (ISerialComm::*)(unsigned char*)>);
    static_assert(std::is_nothrow_destructible_v<DriverId>);
}

TEST(DriverIdShapeTest, TheDevicesVersionIsAlwaysThere)
{
    EXPECT_TRUE(TavDevice::RequestDeviceVersion());
    EXPECT_FALSE(System::Reached());
}

// Construction -----------------------------------------------------------------------------------------

TEST_F(DriverIdTest, ANewOneHasMadeItsDirectoryAndNotTouchedTheLine)
{
    EXPECT_THAT(Functions(), IsEmpty());
    EXPECT_TRUE(std::filesystem::is_directory(card.Directory()));
    EXPECT_TRUE(std::filesystem::is_empty(card.Directory()));
    EXPECT_EQ(System::CallsOf("mkdir").at(0).path, DIRECTORY);
    ExpectLines({});
    EXPECT_EQ(reader.GetLastStatus(), 0);
}

TEST_F(DriverIdTest, ADirectoryThatIsThereIsLeftAsItIs)
{
    card.Write("kept");
    const DriverId another;
    EXPECT_EQ(card.Content(), "kept");
    ExpectLines({});
}

TEST_F(DriverIdLogTest, TheDirectorysParentsAreMadeToo)
{
    const std::string place = Kit::TempDir::Path() + "/parents";
    System::Redirect("/mnt/sdcard", place);
    const DriverId reader;
    EXPECT_TRUE(std::filesystem::is_directory(place + "/db"));
    ExpectLines({});
    std::filesystem::remove_all(place);
}

const std::string NO_DIRECTORY = "[ERROR]Driver Id error: Unable to create directory";

TEST_F(DriverIdLogTest, WithoutACardTheDirectoryCannotBeMade)
{
    const DriverId reader;
    ExpectLines({NO_DIRECTORY});
    for (const System::Call& call : System::Calls())
    {
        EXPECT_EQ(call.result, -1) << call.function;
        EXPECT_EQ(call.path.rfind("/mnt", 0), 0u) << call.path;
    }
}

TEST_F(DriverIdLogTest, AFileInTheWayIsTold)
{
    const Card card;
    std::ofstream(card.Directory()) << "in the way";
    const DriverId reader;
    ExpectLines({NO_DIRECTORY});
    EXPECT_FALSE(std::filesystem::is_directory(card.Directory()));
}

TEST_F(DriverIdLogTest, AReadOnlyCardIsTold)
{
    const Card card;
    System::Fail("mkdir", EROFS, 1, 10);
    const DriverId reader;
    ExpectLines({NO_DIRECTORY});
}

// Looking for the reader -------------------------------------------------------------------------------

TEST_F(DriverIdTest, AReaderThatAnswersIsFoundAndReset)
{
    const Kit::Peer peer(line, {{50ms, ACKNOWLEDGE}, {150ms, ACKNOWLEDGE}});
    EXPECT_TRUE(reader.Init());
    EXPECT_EQ(Clock::Elapsed(), 200ms);
    EXPECT_EQ(line.Received(), PRESENCE + RESET);
    EXPECT_THAT(FileLines(),
                ElementsAre(OPENING, FLUSHED, ASKING, "Driver id device present", "Send Driver ID reset"));
    EXPECT_THAT(ConsoleLines(),
                ElementsAre(OPENING, MODE, FLUSHED, "Driver id device present", "Send Driver ID reset"));
}

TEST_F(DriverIdTest, TheLineIsOpenedRawAt9600Baud)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    const struct termios asked = System::LastSettings();
    EXPECT_EQ(cfgetospeed(&asked), static_cast<speed_t>(B9600));
    EXPECT_EQ(cfgetispeed(&asked), static_cast<speed_t>(B9600));
    EXPECT_EQ(B9600, 13);
    EXPECT_EQ(asked.c_lflag, 0u);
    EXPECT_EQ(asked.c_oflag, 0u);
    EXPECT_EQ(asked.c_iflag & (ICRNL | INLCR | IGNCR | IXON | ISTRIP), 0u);
    EXPECT_EQ(asked.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), static_cast<tcflag_t>(CS8));
    EXPECT_EQ(asked.c_cc[VMIN], 0);
    EXPECT_EQ(asked.c_cc[VTIME], 0);
}

TEST_F(DriverIdTest, TheLineIsOpenedOnceAndReadByteByByte)
{
    const Kit::Peer peer(line, {{50ms, ACKNOWLEDGE}, {150ms, ACKNOWLEDGE}});
    EXPECT_TRUE(reader.Init());
    const auto opens = System::CallsOf("open");
    ASSERT_THAT(opens, Contains(testing::Field(&System::Call::path, DEVICE)).Times(1));
    for (const System::Call& call : opens)
    {
        EXPECT_TRUE(call.path != DEVICE || call.argument == (O_RDWR | O_NOCTTY)) << call.argument;
    }
    for (const System::Call& call : System::CallsOf("read"))
    {
        EXPECT_EQ(call.argument, 1);
    }
    EXPECT_THAT(Functions(), Not(Contains("select")));
}

TEST_F(DriverIdTest, AReaderThatAnswersTheFifthCheckIsFoundAfterFourPauses)
{
    const std::string fourRefusals = NO_ACKNOWLEDGE + NO_ACKNOWLEDGE + NO_ACKNOWLEDGE + NO_ACKNOWLEDGE;
    const Kit::Peer peer(line, {{50ms, fourRefusals + ACKNOWLEDGE}, {950ms, ACKNOWLEDGE}});
    EXPECT_TRUE(reader.Init());
    EXPECT_EQ(SleepsOf(200ms), 4);
    EXPECT_EQ(Clock::Elapsed(), 100ms + 800ms + 100ms) << "the last for the reset";
    EXPECT_EQ(line.Received(), PRESENCE + PRESENCE + PRESENCE + PRESENCE + PRESENCE + RESET);
    const std::string refused = "ACK command, device not present";
    EXPECT_THAT(FileLines(),
                ElementsAre(OPENING, FLUSHED, ASKING, refused, ASKING, refused, ASKING, refused, ASKING,
                            refused, ASKING, "Driver id device present", "Send Driver ID reset"));
    EXPECT_THAT(ConsoleLines(),
                ElementsAre(OPENING, MODE, FLUSHED, "Driver id device present", "Send Driver ID reset"));
}

TEST_F(DriverIdTest, AReaderThatIsSilentFourTimesIsFoundAtTheFifth)
{
    const Kit::Peer peer(line, {{12850ms, ACKNOWLEDGE}, {12950ms, ACKNOWLEDGE}});
    EXPECT_TRUE(reader.Init());
    EXPECT_EQ(SleepsOf(200ms), 4);
    EXPECT_EQ(Clock::Elapsed(), 4 * (3s + 200ms) + 200ms);
    EXPECT_EQ(line.Received(), PRESENCE + PRESENCE + PRESENCE + PRESENCE + PRESENCE + RESET);
}

TEST_F(DriverIdTest, AReaderThatIsSilentFiveTimesIsNotThere)
{
    EXPECT_FALSE(reader.Init());
    EXPECT_EQ(Clock::Elapsed(), 5 * 3s + 4 * 200ms);
    EXPECT_EQ(SleepsOf(200ms), 4) << "none after the last";
    EXPECT_EQ(line.Received(), PRESENCE + PRESENCE + PRESENCE + PRESENCE + PRESENCE);
    const std::string failed = "[ERROR]ACK command execution failed: read error";
    const std::string gone = "Driver Id device not present";
    EXPECT_THAT(FileLines(), ElementsAre(OPENING, FLUSHED, ASKING, failed, ASKING, failed, ASKING, failed,
                                         ASKING, failed, ASKING, failed, gone));
    EXPECT_THAT(ConsoleLines(), ElementsAre(OPENING, MODE, FLUSHED, NO_FRAME_AT_INIT, failed,
                                            NO_FRAME_AT_INIT, failed, NO_FRAME_AT_INIT, failed,
                                            NO_FRAME_AT_INIT, failed, NO_FRAME_AT_INIT, failed, gone));
    EXPECT_EQ(Last(Functions()), "close");
}

TEST_F(DriverIdTest, AReaderThatIsNotThereCannotAnnoy)
{
    EXPECT_FALSE(reader.Init());
    ForgetLog();
    System::ForgetCalls();
    EXPECT_FALSE(reader.StartAnnoying());
    EXPECT_FALSE(reader.StopAnnoying());
    EXPECT_THAT(System::Calls(), IsEmpty());
    ExpectLines({});
}

TEST_F(DriverIdTest, ALineThatTakesNothingIsGivenUpAfterFiveChecks)
{
    System::Fail("write", EIO, 1, 100);
    EXPECT_FALSE(reader.Init());
    EXPECT_EQ(Clock::Elapsed(), 5 * 600ms + 4 * 200ms);
    EXPECT_THAT(FileLines(), Contains("[ERROR]ACK command execution failed: send error").Times(5));
    EXPECT_EQ(Last(FileLines()), "Driver Id device not present");
    EXPECT_THAT(Functions(), Contains("write").Times(15));
    EXPECT_THAT(Functions(), Not(Contains("read")));
}

TEST_F(DriverIdTest, AReaderThatIsNotResetIsThereAllTheSame)
{
    const Kit::Peer peer(line, {{50ms, ACKNOWLEDGE}});
    EXPECT_TRUE(reader.Init());
    EXPECT_EQ(Clock::Elapsed(), 100ms + 3s);
    EXPECT_EQ(Last(FileLines()), "[ERROR]Request driver id reset execution failed: read error");
    const Kit::Peer later(line, {{50ms, ACKNOWLEDGE}});
    EXPECT_TRUE(reader.StartAnnoying());
}

TEST_F(DriverIdTest, WhatCameBeforeTheLineWasOpenedIsDropped)
{
    line.Send(ACKNOWLEDGE);
    EXPECT_FALSE(reader.Init());
}

// A line that cannot be opened -------------------------------------------------------------------------

struct OpenRow
{
    const char* function;
    const char* reason;
    Texts consoleOnly;
    Texts calls;
};

void PrintTo(const OpenRow& row, std::ostream* out)
{
    *out << row.function;
}

class OpenFailure : public DriverIdTest, public testing::WithParamInterface<OpenRow>
{
};

TEST_P(OpenFailure, EndsTheSearchAndIsTold)
{
    System::Fail(GetParam().function, EIO);
    EXPECT_FALSE(reader.Init());
    EXPECT_EQ(Clock::Elapsed(), 0s);
    EXPECT_THAT(FileLines(), ElementsAre(OPENING, GetParam().reason, "[ERROR]DID: could not open serial"));
    EXPECT_EQ(Last(ConsoleLines()), "[ERROR]DID: could not open serial");
    EXPECT_EQ(log.ConsoleOnly(), GetParam().consoleOnly);
    // A line that is left open has the settings that it was found with: a read might wait for ever.
    ASSERT_EQ(Functions(), GetParam().calls);

    ForgetLog();
    EXPECT_FALSE(reader.RequestDriverIdReset());
    EXPECT_EQ(Last(FileLines()), "[ERROR]Request driver id reset execution failed: send error")
        << "the line is closed";

    ASSERT_NO_FATAL_FAILURE(Find());
    EXPECT_EQ(System::FailuresDone(), 1) << "the next one finds the line in order";
}

INSTANTIATE_TEST_SUITE_P(
    All, OpenFailure,
    testing::Values(OpenRow{"open", "[ERROR][SERIAL] Unable to open serial port", {}, {"open"}},
                    OpenRow{"tcgetattr",
                            "[ERROR][SERIAL] Unable to get serial port config",
                            {},
                            {"open", "tcgetattr", "close"}},
                    OpenRow{"tcsetattr",
                            "[ERROR][SERIAL] Unable to set serial port config",
                            {"Set serial mode to 1"},
                            {"open", "tcgetattr", "tcsetattr", "close"}}),
    [](const testing::TestParamInfo<OpenRow>& row) { return std::string(row.param.function); });

TEST_F(DriverIdLogTest, AMissingLineIsTold)
{
    const Card card;
    DriverId reader;
    EXPECT_FALSE(reader.Init());
    ExpectLines({OPENING, "[ERROR][SERIAL] Unable to open serial port", "[ERROR]DID: could not open serial"});
}

TEST_F(DriverIdLogTest, WhatIsNoLineIsToldAndClosedWithTheReader)
{
    const Card card;
    System::Redirect(DEVICE, "/dev/null");
    {
        DriverId reader;
        EXPECT_FALSE(reader.Init());
        EXPECT_FALSE(reader.Init());
    }
    EXPECT_THAT(Functions(), ElementsAre("open", "tcgetattr", "close", "open", "tcgetattr", "close"));
}

// Again and the end ------------------------------------------------------------------------------------

TEST_F(DriverIdTest, ASecondSearchOpensTheLineAnew)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    ASSERT_NO_FATAL_FAILURE(Find());
    line.Send(ACKNOWLEDGE);
    EXPECT_TRUE(reader.CheckDevicePresence());
    reader.Dispose();
    EXPECT_EQ(Last(Functions()), "close");
    EXPECT_FALSE(reader.CheckDevicePresence()) << "no earlier descriptor is left";
}

TEST_F(DriverIdTest, AReaderThatWasFoundOnceCountsAsPresent)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    EXPECT_FALSE(reader.Init());
    ForgetLog();
    EXPECT_FALSE(reader.StopAnnoying());
    ExpectLines({"[ERROR]Stop annoying failed: Send error"});
}

TEST_F(DriverIdTest, DisposeClosesTheLineAndInitOpensItAgain)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    reader.Dispose();
    EXPECT_THAT(Functions(), ElementsAre("close"));
    reader.Dispose();
    EXPECT_THAT(Functions(), ElementsAre("close")) << "once";
    ExpectLines({});
    ASSERT_NO_FATAL_FAILURE(Find());
    line.Send(ACKNOWLEDGE);
    EXPECT_TRUE(reader.CheckDevicePresence());
}

TEST_F(DriverIdTest, DisposeBeforeInitDoesNothing)
{
    reader.Dispose();
    EXPECT_THAT(Functions(), IsEmpty());
    ExpectLines({});
}

TEST_F(DriverIdTest, AfterDisposeAnnoyingStillGoesToTheLineAndFailsThere)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    reader.Dispose();
    EXPECT_FALSE(reader.StartAnnoying());
    EXPECT_EQ(Passed(), 600ms + 3s) << "that nothing was sent is not looked at";
    const std::string failed = "[ERROR]Annoying command execution failed: Read error";
    EXPECT_THAT(FileLines(), ElementsAre(failed));
    EXPECT_THAT(ConsoleLines(), ElementsAre(NO_FRAME_AT_INIT, failed));
    EXPECT_THAT(Functions(), ElementsAre("close"));
}

TEST_F(DriverIdTest, DestroyingThroughTheProtocolClosesTheLine)
{
    const Kit::Peer peer(line, {{50ms, ACKNOWLEDGE}, {150ms, ACKNOWLEDGE}});
    auto another = std::make_unique<DriverId>();
    EXPECT_TRUE(another->Init());
    std::unique_ptr<SerialProtocol::ISerialCommInterface> protocol = std::move(another);
    System::ForgetCalls();
    protocol.reset();
    EXPECT_THAT(Functions(), ElementsAre("close"));
}

TEST_F(DriverIdTest, ALineThatCannotBeClosedIsNoHarmAtTheEnd)
{
    auto another = std::make_unique<DriverId>();
    {
        const Kit::Peer peer(line, {{50ms, ACKNOWLEDGE}, {150ms, ACKNOWLEDGE}});
        EXPECT_TRUE(another->Init());
    }
    System::ForgetCalls();
    System::Fail("close", EIO);
    another.reset();
    EXPECT_EQ(System::FailuresDone(), 1);
    EXPECT_THAT(Functions(), ElementsAre("close", "close")) << "the line itself tries again";
}

// The line ---------------------------------------------------------------------------------------------

/// A frame that the test made itself.
class Frame
{
public:
    explicit Frame(std::string_view bytes) : buffer(bytes.size())
    {
        std::copy(bytes.begin(), bytes.end(), buffer.data);
        buffer.length = bytes.size();
    }

    TavubufferDynamic buffer;
};

TEST_F(DriverIdTest, SendingTakesNoTime)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Frame frame("\x01\x02\x03");
    EXPECT_TRUE(reader.OnSend(frame.buffer));
    EXPECT_EQ(line.Received(), "\x01\x02\x03");
    EXPECT_EQ(Passed(), 0s);
    EXPECT_THAT(Functions(), ElementsAre("write"));
    ExpectLines({});
}

TEST_F(DriverIdTest, SendingIsTriedThreeTimes)
{
    for (int failures = 1; failures <= 2; ++failures)
    {
        ASSERT_NO_FATAL_FAILURE(Find());
        Frame frame("\x01\x02\x03");
        System::Fail("write", EIO, 1, failures);
        EXPECT_TRUE(reader.OnSend(frame.buffer));
        EXPECT_EQ(Passed(), failures * 200ms);
        EXPECT_EQ(line.Received(), "\x01\x02\x03") << "once";
        EXPECT_THAT(Functions(), SizeIs(failures + 1));
    }
}

TEST_F(DriverIdTest, ADeadLineIsGivenUpAfter600Milliseconds)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Frame frame("\x01\x02\x03");
    System::Fail("write", EIO, 1, 3);
    EXPECT_FALSE(reader.OnSend(frame.buffer));
    EXPECT_EQ(Passed(), 600ms);
    EXPECT_THAT(System::Sleeps(), ElementsAre(200ms, 200ms, 200ms)) << "after the last, too";
    EXPECT_THAT(Functions(), ElementsAre("write", "write", "write"));
    EXPECT_TRUE(reader.OnSend(frame.buffer));
}

TEST_F(DriverIdTest, ASignalDoesNotShortenThePauseBetweenTries)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Frame frame("\x01\x02\x03");
    System::Fail("write", EIO, 1, 3);
    const Kit::Interruptions interruptions({1ms, 150ms, 199ms, 350ms, 599ms});
    EXPECT_FALSE(reader.OnSend(frame.buffer));
    EXPECT_EQ(Passed(), 600ms);
    EXPECT_EQ(interruptions.Count(), 5);
}

TEST_F(DriverIdTest, AClosedLineIsTriedAsLong)
{
    Frame frame("\x01\x02\x03");
    EXPECT_FALSE(reader.OnSend(frame.buffer));
    EXPECT_EQ(Clock::Elapsed(), 600ms);
    EXPECT_THAT(Functions(), IsEmpty());
}

TEST_F(DriverIdTest, AReadIsDoneWhenItFillsTheBuffer)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    TavubufferDynamic one(1);
    TavubufferDynamic three(3);
    EXPECT_FALSE(reader.OnRead(one)) << "nothing there";
    line.Send("abcdef");
    EXPECT_TRUE(reader.OnRead(one));
    EXPECT_EQ(*one.data, 'a');
    EXPECT_TRUE(reader.OnRead(three));
    EXPECT_EQ(std::string(three.data, three.data + 3), "bcd");
    EXPECT_FALSE(reader.OnRead(three)) << "two are left";
    EXPECT_EQ(three.length, 2u);
    EXPECT_EQ(std::string(three.data, three.data + 2), "ef");
    EXPECT_FALSE(reader.OnRead(one)) << "nothing there again";
    EXPECT_EQ(one.length, 0u);
    EXPECT_EQ(Passed(), 0s) << "it does not wait";
    EXPECT_THAT(Functions(), ElementsAre("read", "read", "read", "read", "read"));
    ExpectLines({});
}

TEST_F(DriverIdTest, AReadThatFailsOrHasNoLineFindsNothing)
{
    TavubufferDynamic one(1);
    EXPECT_FALSE(reader.OnRead(one));
    ASSERT_NO_FATAL_FAILURE(Find());
    line.Send("a");
    System::Fail("read", EIO);
    EXPECT_FALSE(reader.OnRead(one));
    EXPECT_TRUE(reader.OnRead(one));
}

}

}
