// The commands, each with everything that may become of it.

#include "tests/DriverId/DriverIdTest.h"

#include <array>
#include <cerrno>
#include <ostream>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace DriverIdTests
{

namespace
{

const std::string NO_FRAME = "[ERROR]DID: read buffer ==> error";
const std::string WRONG_CRC = "[ERROR]DID: CRC error";

std::string WithWrongCrc(std::string frame)
{
    char& high = frame[frame.size() - 4];
    high = static_cast<char>(~high);
    return frame;
}

// Commands that are acknowledged ------------------------------------------------------------------------

struct Command
{
    const char* name;
    bool (DriverId::*send)();
    unsigned char code;
    Texts before;         ///< file, before anything is sent
    bool beforeInConsole; ///< and in the console
    Texts refused;        ///< file, when the reply is another one
    const char* notSent;  ///< null when that is not looked at
    const char* notRead;
};

void PrintTo(const Command& command, std::ostream* out)
{
    *out << command.name;
}

class Commands : public DriverIdTest, public testing::WithParamInterface<Command>
{
protected:
    bool Send() { return (reader.*GetParam().send)(); }

    /// The lines of a command: those that it begins with, then `console` in the console alone, then `file` in
    /// the file alone, then `both`.
    void ExpectCommandLines(const Texts& console, const Texts& file, const Texts& both) const
    {
        Texts expected = GetParam().before;
        expected.insert(expected.end(), file.begin(), file.end());
        expected.insert(expected.end(), both.begin(), both.end());
        EXPECT_EQ(FileLines(), expected);
        expected = GetParam().beforeInConsole ? GetParam().before : Texts();
        expected.insert(expected.end(), console.begin(), console.end());
        expected.insert(expected.end(), both.begin(), both.end());
        EXPECT_EQ(ConsoleLines(), expected);
    }
};

TEST_P(Commands, SucceedWhenTheyAreAcknowledged)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    line.Send(ACKNOWLEDGE);
    EXPECT_TRUE(Send());
    EXPECT_EQ(Passed(), 0s);
    EXPECT_EQ(line.Received(), Frames::Command(GetParam().code));
    ExpectCommandLines({}, {}, {});
}

TEST_P(Commands, FailWithAnyOtherReply)
{
    struct Row
    {
        unsigned char type;
        const char* printed;
    };

    // A status, an identifier that is not wanted, errors of the reader, unknown types.
    for (const Row& row :
         {Row{0x06, ""}, Row{0x05, ""}, Row{0x60, "ERROR FROM DRIVER ID...96..."},
          Row{0x99, "ERROR FROM DRIVER ID...153..."}, Row{0x02, ""}, Row{0x00, ""}, Row{0xFF, ""}})
    {
        ASSERT_NO_FATAL_FAILURE(Find());
        line.Send(Frames::Short(row.type, 0x5A));
        testing::internal::CaptureStdout();
        const bool done = Send();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
        EXPECT_FALSE(done);
        EXPECT_EQ(Passed(), 0s);
        ExpectCommandLines({}, GetParam().refused, {});
    }
}

TEST_P(Commands, FailWhenTheyCannotBeSent)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    line.Send(ACKNOWLEDGE);
    System::Fail("write", EIO, 1, 3);
    const bool done = Send();
    EXPECT_EQ(Passed(), 600ms);
    EXPECT_EQ(line.Received(), "");
    EXPECT_EQ(System::FailuresDone(), 3);
    if (GetParam().notSent == nullptr)
    {
        EXPECT_TRUE(done) << "the reply tells";
        ExpectCommandLines({}, {}, {});
        return;
    }
    EXPECT_FALSE(done);
    EXPECT_THAT(Functions(), ElementsAre("write", "write", "write")) << "nothing is read";
    ExpectCommandLines({}, {}, {GetParam().notSent});
}

TEST_P(Commands, FailAfterThreeSecondsOfSilence)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    EXPECT_FALSE(Send());
    EXPECT_EQ(Passed(), 3s);
    EXPECT_EQ(SleepsOf(100ms), 30);
    ExpectCommandLines({NO_FRAME}, {}, {GetParam().notRead});
}

TEST_P(Commands, FailWhenTheReplyIsDamaged)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    line.Send(WithWrongCrc(ACKNOWLEDGE));
    EXPECT_FALSE(Send());
    EXPECT_EQ(Passed(), 0s);
    ExpectCommandLines({WRONG_CRC}, {}, {GetParam().notRead});
}

TEST_P(Commands, FailWhenTheReplyHasAnotherLength)
{
    for (const std::string& reply : {Frames::Long(0x01, "123456"), Frames::Framed("\xAA\x55\x01\x01\x01")})
    {
        ASSERT_NO_FATAL_FAILURE(Find());
        line.Send(reply);
        EXPECT_FALSE(Send());
        EXPECT_EQ(Passed(), 0s);
        ExpectCommandLines({NO_FRAME}, {}, {GetParam().notRead});
    }
}

TEST_P(Commands, FailWhenTheLineIsHungUp)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    line.HangUp();
    EXPECT_FALSE(Send());
    if (GetParam().notSent == nullptr)
    {
        EXPECT_EQ(Passed(), 600ms + 3s);
        ExpectCommandLines({NO_FRAME}, {}, {GetParam().notRead});
    }
    else
    {
        EXPECT_EQ(Passed(), 600ms);
        ExpectCommandLines({}, {}, {GetParam().notSent});
    }
}

TEST_P(Commands, OnAClosedLineFailAfterTheTriesToSend)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    reader.Dispose();
    System::ForgetCalls();
    EXPECT_FALSE(Send());
    EXPECT_THAT(Functions(), IsEmpty());
    if (GetParam().notSent == nullptr)
    {
        EXPECT_EQ(Passed(), 600ms + 3s);
        ExpectCommandLines({NO_FRAME}, {}, {GetParam().notRead});
    }
    else
    {
        EXPECT_EQ(Passed(), 600ms);
        ExpectCommandLines({}, {}, {GetParam().notSent});
    }
}

TEST_P(Commands, TakeAReplyThatComesLate)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    const Kit::Peer peer(line, {{2850ms, ACKNOWLEDGE}});
    EXPECT_TRUE(Send());
    EXPECT_EQ(Passed(), 2900ms);
    ExpectCommandLines({}, {}, {});
}

TEST_P(Commands, AreReadOnWhenOneReadFails)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    line.Send(ACKNOWLEDGE);
    System::Fail("read", EIO, 4);
    EXPECT_TRUE(Send());
    EXPECT_EQ(Passed(), 100ms);
    EXPECT_EQ(System::FailuresDone(), 1);
    ExpectCommandLines({}, {}, {});
}

INSTANTIATE_TEST_SUITE_P(
    All, Commands,
    testing::Values(Command{"CheckDevicePresence",
                            &DriverId::CheckDevicePresence,
                            0,
                            {"Send ACK command to identify driver id device"},
                            false,
                            {"ACK command, device not present"},
                            "[ERROR]ACK command execution failed: send error",
                            "[ERROR]ACK command execution failed: read error"},
                    Command{"StartAnnoying",
                            &DriverId::StartAnnoying,
                            1,
                            {},
                            false,
                            {},
                            nullptr,
                            "[ERROR]Annoying command execution failed: Read error"},
                    Command{"StopAnnoying",
                            &DriverId::StopAnnoying,
                            2,
                            {},
                            false,
                            {},
                            "[ERROR]Stop annoying failed: Send error",
                            "[ERROR]Stop annoying failed: Read error"},
                    Command{"RequestDriverIdReset",
                            &DriverId::RequestDriverIdReset,
                            9,
                            {"Send Driver ID reset"},
                            true,
                            {},
                            "[ERROR]Request driver id reset execution failed: send error",
                            "[ERROR]Request driver id reset execution failed: read error"}),
    [](const testing::TestParamInfo<Command>& row) { return std::string(row.param.name); });

// Before Init ------------------------------------------------------------------------------------------

TEST_F(DriverIdTest, BeforeInitAnnoyingIsRefusedAtOnce)
{
    System::ForgetCalls();
    EXPECT_FALSE(reader.StartAnnoying());
    EXPECT_FALSE(reader.StopAnnoying());
    EXPECT_EQ(Clock::Elapsed(), 0s);
    EXPECT_THAT(System::Calls(), IsEmpty());
    ExpectLines({});
}

TEST_F(DriverIdTest, BeforeInitTheOtherCommandsTryToSend)
{
    System::ForgetCalls();
    std::string id = UNTOUCHED;
    EXPECT_FALSE(reader.RequestDriverId(id));
    EXPECT_FALSE(reader.RequestDriverIdReset());
    EXPECT_FALSE(reader.CheckDevicePresence());
    EXPECT_EQ(id, UNTOUCHED);
    EXPECT_EQ(Clock::Elapsed(), 3 * 600ms);
    EXPECT_THAT(Functions(), IsEmpty());
    EXPECT_THAT(ConsoleLines(),
                ElementsAre("[ERROR]Request driver id execution failed: Send error", "Send Driver ID reset",
                            "[ERROR]Request driver id reset execution failed: send error",
                            "[ERROR]ACK command execution failed: send error"));
}

// The driver's key -------------------------------------------------------------------------------------

/// An identifier of the frame, from that of the application.
std::string Reversed(std::string_view identifier)
{
    return {identifier.rbegin(), identifier.rend()};
}

class RequestDriverIdTest : public DriverIdTest
{
protected:
    void SetUp() override { Find(); }

    /// The reply to the request that comes next.
    bool Request(const std::string& reply)
    {
        line.Send(reply);
        return reader.RequestDriverId(id);
    }

    /// The request failed, which both sinks tell.
    void ExpectFailure(const std::string& reason, const Texts& console) const
    {
        EXPECT_EQ(id, UNTOUCHED);
        const std::string failed = "[ERROR]Request driver id execution failed: " + reason;
        EXPECT_THAT(FileLines(), ElementsAre(failed));
        Texts expected = console;
        expected.push_back(failed);
        EXPECT_EQ(ConsoleLines(), expected);
    }

    std::string id = UNTOUCHED;
};

TEST_F(RequestDriverIdTest, GivesTheKeyAsTwelveUpperCaseDigits)
{
    EXPECT_TRUE(Request(Frames::Long(0x05, Reversed("\x05\xAB\0\0\0\x10"s))));
    EXPECT_EQ(id, "05AB00000010");
    EXPECT_EQ(line.Received(), Frames::Command(3));
    EXPECT_EQ(Passed(), 0s);
    ExpectLines({});
}

TEST_F(RequestDriverIdTest, ReadsTheKeyFromTheLastByteToTheFirst)
{
    EXPECT_TRUE(Request(Frames::Long(0x05, "\xE5\xD4\xC3\xB2\xA1\0"s)));
    EXPECT_EQ(id, "00A1B2C3D4E5");
}

TEST_F(RequestDriverIdTest, GivesEachByteTwoDigits)
{
    constexpr const char* DIGITS = "0123456789ABCDEF";
    for (unsigned int byte = 0; byte <= 0xFF; ++byte)
    {
        const char value = static_cast<char>(byte);
        const std::string identifier = {'\x01', value, '\x02', value, '\x03', value};
        EXPECT_TRUE(Request(Frames::Long(0x05, identifier)));
        const std::string digits = {DIGITS[byte >> 4], DIGITS[byte & 0xF]};
        EXPECT_EQ(id, digits + "03" + digits + "02" + digits + "01");
    }
    ExpectLines({});
}

TEST_F(RequestDriverIdTest, GivesAnEmptyIdWithoutAKey)
{
    for (const std::string& end : {"\0\0"s, "\x01\0"s, "\0\xFF"s, "\x12\x34"s})
    {
        id = UNTOUCHED;
        EXPECT_TRUE(Request(Frames::Long(0x05, "\0\0\0\0"s + end)));
        EXPECT_EQ(id, "");
    }
    ExpectLines({});
}

TEST_F(RequestDriverIdTest, FailsWithAnyOtherReply)
{
    struct Row
    {
        unsigned char type;
        const char* printed;
    };

    // An acknowledge, a status, errors of the reader, unknown types.
    for (const Row& row :
         {Row{0x01, ""}, Row{0x06, ""}, Row{0x60, "ERROR FROM DRIVER ID...96..."},
          Row{0x99, "ERROR FROM DRIVER ID...153..."}, Row{0x03, ""}, Row{0x00, ""}, Row{0xFF, ""}})
    {
        ForgetLog();
        testing::internal::CaptureStdout();
        const bool done = Request(Frames::Long(row.type, "abcdef"));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
        EXPECT_FALSE(done);
        EXPECT_EQ(id, UNTOUCHED);
        EXPECT_THAT(FileLines(), ElementsAre("[ERROR]Error, no driver Id found"));
        EXPECT_THAT(ConsoleLines(), IsEmpty());
    }
    EXPECT_EQ(Passed(), 0s);
}

TEST_F(RequestDriverIdTest, FailsWhenItCannotBeSent)
{
    System::Fail("write", EIO, 1, 3);
    EXPECT_FALSE(reader.RequestDriverId(id));
    ExpectFailure("Send error", {});
    EXPECT_EQ(Passed(), 600ms);
    EXPECT_THAT(Functions(), Not(Contains("read")));
}

TEST_F(RequestDriverIdTest, FailsAfterThreeSecondsOfSilence)
{
    EXPECT_FALSE(reader.RequestDriverId(id));
    ExpectFailure("Read driver key error", {NO_FRAME});
    EXPECT_EQ(Passed(), 3s);
}

TEST_F(RequestDriverIdTest, FailsWhenTheReplyIsDamaged)
{
    EXPECT_FALSE(Request(WithWrongCrc(Frames::Long(0x05, "abcdef"))));
    ExpectFailure("Read driver key error", {WRONG_CRC});
}

TEST_F(RequestDriverIdTest, FailsWithAShortReply)
{
    EXPECT_FALSE(Request(ACKNOWLEDGE));
    ExpectFailure("Read driver key error", {NO_FRAME});
    EXPECT_EQ(Passed(), 0s);
}

TEST_F(RequestDriverIdTest, FailsWithAReplyThatIsCutShort)
{
    EXPECT_FALSE(Request(Frames::Long(0x05, "abcdef").substr(0, 16)));
    ExpectFailure("Read driver key error", {NO_FRAME});
    EXPECT_EQ(Passed(), 3s);
}

TEST_F(RequestDriverIdTest, FailsWhenTheLineIsHungUp)
{
    line.HangUp();
    EXPECT_FALSE(reader.RequestDriverId(id));
    ExpectFailure("Send error", {});
    EXPECT_EQ(Passed(), 600ms);
}

TEST_F(RequestDriverIdTest, FailsOnAClosedLine)
{
    reader.Dispose();
    EXPECT_FALSE(reader.RequestDriverId(id));
    ExpectFailure("Send error", {});
}

TEST_F(RequestDriverIdTest, KeepsAnIdOfAnEarlierRequestWhenItFails)
{
    EXPECT_TRUE(Request(Frames::Long(0x05, "\xE5\xD4\xC3\xB2\xA1\0"s)));
    EXPECT_FALSE(Request(Frames::Long(0x01, "abcdef")));
    EXPECT_FALSE(reader.RequestDriverId(id));
    EXPECT_EQ(id, "00A1B2C3D4E5");
}

TEST_F(RequestDriverIdTest, TakesAReplyThatIsCutAnywhere)
{
    const std::string reply = Frames::Long(0x05, "\xE5\xD4\xC3\xB2\xA1\0"s);
    for (std::size_t cut = 0; cut < reply.size(); ++cut)
    {
        id = UNTOUCHED;
        const auto sent = Clock::Elapsed();
        line.Send(reply.substr(0, cut));
        const Kit::Peer peer(line, {{350ms, reply.substr(cut)}});
        EXPECT_TRUE(reader.RequestDriverId(id)) << cut;
        EXPECT_EQ(id, "00A1B2C3D4E5") << cut;
        EXPECT_EQ(Clock::Elapsed() - sent, 400ms) << cut;
    }
    ExpectLines({});
}

TEST_F(RequestDriverIdTest, TakesAReplyWithAPauseBehindEachByte)
{
    const std::string reply = Frames::Long(0x05, "\xE5\xD4\xC3\xB2\xA1\0"s);
    Kit::Peer::Script script;
    for (const char byte : reply)
    {
        script.emplace_back(static_cast<int>(script.size()) * 150ms + 50ms, std::string(1, byte));
    }
    const Kit::Peer peer(line, script);
    EXPECT_TRUE(reader.RequestDriverId(id));
    EXPECT_EQ(id, "00A1B2C3D4E5");
    EXPECT_EQ(Passed(), 2500ms);
}

TEST_F(RequestDriverIdTest, IsNotSpoiledByNoiseBeforeTheReply)
{
    for (const std::string& noise : {"\x55\x05"s, "\xEF\x0D"s, "\0\0"s, std::string(1000, '\xFF')})
    {
        EXPECT_TRUE(Request(noise + Frames::Long(0x05, "\xE5\xD4\xC3\xB2\xA1\0"s)));
        EXPECT_EQ(id, "00A1B2C3D4E5");
    }
    ExpectLines({});
}

TEST_F(RequestDriverIdTest, KeepsAStatusThatComesInstead)
{
    EXPECT_FALSE(Request(Frames::Long(0x06, "abcdef")));
    EXPECT_EQ(reader.GetLastStatus(), 0x01) << "the byte before the six";
}

// Replies that come too late -----------------------------------------------------------------------------

const std::string FIRST_KEY = Frames::Long(0x05, Reversed("first!"));
const std::string SECOND_KEY = Frames::Long(0x05, Reversed("second"));
const std::string THIRD_KEY = Frames::Long(0x05, Reversed("third!"));
constexpr const char* FIRST_ID = "666972737421";
constexpr const char* SECOND_ID = "7365636F6E64";
constexpr const char* THIRD_ID = "746869726421";

class LateReplyTest : public RequestDriverIdTest
{
protected:
    /// The ID that is told by a reply which comes 50 ms after the request; UNTOUCHED when that fails.
    std::string Ask(const std::string& reply)
    {
        id = UNTOUCHED;
        const Kit::Peer peer(line, {{50ms, reply}});
        reader.RequestDriverId(id);
        return id;
    }

    /// No reply within the time.
    void TimeOut()
    {
        EXPECT_FALSE(reader.RequestDriverId(id));
        ForgetLog();
        System::ForgetCalls();
    }
};

TEST_F(LateReplyTest, ThatHasComeBeforeTheNextCommandIsDropped)
{
    TimeOut();
    line.Send(FIRST_KEY);
    EXPECT_EQ(Ask(SECOND_KEY), SECOND_ID);
    EXPECT_EQ(Ask(THIRD_KEY), THIRD_ID);
    ExpectLines({});
}

TEST_F(LateReplyTest, ThatComesDuringTheNextCommandIsTakenForItsReplyAndSpoilsNoneAfterThat)
{
    TimeOut();
    EXPECT_EQ(Ask(FIRST_KEY), FIRST_ID) << "nobody can tell that it is an old one";
    line.Send(SECOND_KEY);
    EXPECT_EQ(Ask(THIRD_KEY), THIRD_ID);
    EXPECT_EQ(Ask(FIRST_KEY), FIRST_ID);
    ExpectLines({});
}

TEST_F(LateReplyTest, ThatIsFollowedByOthersSpoilsNone)
{
    TimeOut();
    for (int times = 0; times < 3; ++times)
    {
        EXPECT_EQ(Ask(FIRST_KEY), FIRST_ID);
        line.Send(SECOND_KEY);
    }
    EXPECT_EQ(Ask(THIRD_KEY), THIRD_ID);
}

TEST_F(LateReplyTest, ThatComesDuringInitSpoilsNoneAfterThat)
{
    TimeOut();
    {
        const Kit::Peer peer(line, {{50ms, ACKNOWLEDGE + ACKNOWLEDGE}, {150ms, ACKNOWLEDGE}});
        EXPECT_TRUE(reader.Init());
    }
    EXPECT_EQ(Ask(FIRST_KEY), FIRST_ID);
}

TEST_F(LateReplyTest, IsDroppedAfterEachKindOfFailedReading)
{
    for (const std::string& bad :
         {WithWrongCrc(FIRST_KEY), ACKNOWLEDGE + FIRST_KEY, "\xAA"s + FIRST_KEY, "\xAA\xEF\x0D"s + FIRST_KEY})
    {
        line.Send(bad + FIRST_KEY);
        EXPECT_FALSE(reader.RequestDriverId(id));
        EXPECT_EQ(Ask(SECOND_KEY), SECOND_ID);
    }
}

TEST_F(LateReplyTest, IsDroppedWithoutAWaitOrAnotherFrame)
{
    TimeOut();
    line.Received();
    line.Send(FIRST_KEY);
    const auto before = Passed();
    EXPECT_EQ(Ask(SECOND_KEY), SECOND_ID);
    EXPECT_EQ(line.Received(), Frames::Command(3));
    EXPECT_EQ(Passed() - before, 100ms) << "the look that finds the reply";
    const Texts calls = Functions();
    ASSERT_GE(calls.size(), 3U);
    EXPECT_THAT(Texts(calls.begin(), calls.begin() + 3), ElementsAre("read", "read", "write"));
}

TEST_F(LateReplyTest, CostsNoCallOnceTheLineIsKnownToBeClean)
{
    TimeOut();
    EXPECT_EQ(Ask(FIRST_KEY), FIRST_ID);
    EXPECT_EQ(Ask(SECOND_KEY), SECOND_ID) << "before it nothing was found";
    System::ForgetCalls();
    EXPECT_EQ(Ask(THIRD_KEY), THIRD_ID);
    EXPECT_EQ(Functions().front(), "write");
}

TEST_F(LateReplyTest, OfAnUndisturbedLineIsNotLookedFor)
{
    line.Send(FIRST_KEY + SECOND_KEY);
    EXPECT_TRUE(reader.RequestDriverId(id));
    EXPECT_EQ(id, FIRST_ID);
    EXPECT_TRUE(reader.RequestDriverId(id));
    EXPECT_EQ(id, SECOND_ID) << "nothing was read away";
    EXPECT_EQ(Functions().front(), "write");
}

TEST_F(LateReplyTest, OnALineThatIsNeverSilentHoldsNoCommand)
{
    TimeOut();
    line.Send(std::string(4000, '\x55'));
    // From now on every read finds 64 bytes.
    System::Fail("read", 0, 1, 100'000, 64);
    EXPECT_FALSE(reader.RequestDriverId(id));
    const Texts calls = Functions();
    const auto written = std::find(calls.begin(), calls.end(), "write");
    ASSERT_NE(written, calls.end());
    EXPECT_EQ(written - calls.begin(), 4096 / 64);
}

// Every call failing in turn -----------------------------------------------------------------------------

/// What failed in one session that uses everything.
Texts Session(Kit::Terminal& line, DriverId& reader)
{
    Texts failed;
    const auto note = [&failed](const char* step, bool done) {
        if (!done)
        {
            failed.emplace_back(step);
        }
    };
    {
        const Kit::Peer peer(line, {{50ms, ACKNOWLEDGE}, {250ms, ACKNOWLEDGE}});
        note("Init", reader.Init());
    }
    if (!failed.empty())
    {
        return failed;
    }
    line.Received();
    std::string id;
    line.Send(ACKNOWLEDGE);
    note("StartAnnoying", reader.StartAnnoying());
    line.Send(Frames::Long(0x05, "abcdef"));
    note("RequestDriverId", reader.RequestDriverId(id));
    reader.Dispose();
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

class DriverIdSweep : public Kit::DeviceTest, public testing::WithParamInterface<SweepRow>
{
};

TEST_P(DriverIdSweep, EachCallFailingInTurnHasItsResult)
{
    const SweepRow& row = GetParam();
    for (const int error : {EIO, EINTR, EAGAIN, ENXIO})
    {
        for (std::size_t nth = 1; nth <= row.failures.size(); ++nth)
        {
            System::Reset();
            const Card card;
            Kit::Terminal line(DEVICE);
            DriverId reader;
            System::Fail(row.function, error, static_cast<int>(nth));
            EXPECT_EQ(Session(line, reader), row.failures[nth - 1])
                << row.function << ' ' << nth << ", errno " << error;
            EXPECT_EQ(System::FailuresDone(), 1);
            line.Received();
            EXPECT_EQ(Session(line, reader), Texts()) << "it is as good as new";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, DriverIdSweep,
    testing::Values(SweepRow{"open", {{"Init"}}}, SweepRow{"tcgetattr", {{"Init"}}},
                    SweepRow{"tcsetattr", {{"Init"}}}, SweepRow{"tcflush", {{}}}, SweepRow{"tcdrain", {{}}},
                    SweepRow{"write", {{}, {}, {}, {}}},
                    SweepRow{"read", {{}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}}},
                    SweepRow{"close", {{}}}),
    [](const testing::TestParamInfo<SweepRow>& row) { return std::string(row.param.function); });

TEST_F(DriverIdTest, ADeadSystemIsSurvived)
{
    System::Fail("*", EIO, 1, 100'000);
    EXPECT_EQ(Session(line, reader), Texts{"Init"});
    std::string id = UNTOUCHED;
    EXPECT_FALSE(reader.StartAnnoying());
    EXPECT_FALSE(reader.RequestDriverId(id));
    EXPECT_FALSE(reader.LoadFromFile(id));
    reader.SaveToFile(id);
    reader.RemoveFile();
    EXPECT_EQ(id, UNTOUCHED);
}

}

}
