// Finding the board, the handshake, the alerts.

#include "tests/Sensors/BuzzerTest.h"
#include "tests/kit/Interruptions.h"

#include <atomic>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace SensorTests
{

namespace
{

/// What an alert sends, from the opening to the closing.
std::string AlertText(int count, int duration)
{
    return std::string(RESET) + PRESENCE + "\r\nbuzzer.processCMD(\"ICMDS:1:" + std::to_string(count) + ":" +
           std::to_string(duration) + ":ICMDE\")\r\n" + STX;
}

// No board -----------------------------------------------------------------------------------------------

using NoBoard = SensorTest;

TEST_F(NoBoard, NothingIsDoneButSaid)
{
    Alerter::isPresent = true;
    BuzzerSerial buzzer;
    EXPECT_FALSE(buzzer.Open());
    EXPECT_FALSE(Alerter::isPresent);
    EXPECT_THAT(log.File(), ElementsAre(ABSENT));
    EXPECT_THAT(log.Console(), ElementsAre(ABSENT));
    const auto calls = Kit::System::Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_STREQ(calls[0].function, "access");
    EXPECT_EQ(calls[0].path, BOARD);
    EXPECT_EQ(calls[0].argument, F_OK);
}

TEST_F(NoBoard, EveryOperationFailsAndSaysSo)
{
    BuzzerSerial buzzer;
    for (int level = -1; level <= 5; ++level)
    {
        buzzer.level = level;
        EXPECT_FALSE(buzzer.Alert()) << level;
    }
    EXPECT_FALSE(buzzer.BuzzDevice(1, 500));
    EXPECT_FALSE(buzzer.CheckPresence());
    EXPECT_EQ(log.File().size(), 9u) << "once for each attempt";
    EXPECT_THAT(log.File(), Each(ABSENT));
    EXPECT_TRUE(buzzer.Close()) << "nothing is present";
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
    EXPECT_EQ(Count("open"), 0u);
}

TEST_F(NoBoard, TheSingleBytesGoNowhere)
{
    BuzzerSerial buzzer;
    buzzer.SendSTX();
    buzzer.SendETX();
    buzzer.SendEOT();
    buzzer.ResetSequence();
    EXPECT_EQ(Count("write"), 0u);
    EXPECT_EQ(Kit::Clock::Elapsed(), 10ms) << "the pause behind the sequence";
}

// Opening ------------------------------------------------------------------------------------------------

TEST_F(BuzzerTest, OpenResetsAsksAndWaitsForTheAnswer)
{
    board.AnswerAt(50ms);
    EXPECT_TRUE(buzzer.Open());
    EXPECT_TRUE(Alerter::isPresent);
    EXPECT_EQ(board.Received(), std::string(RESET) + PRESENCE);
    EXPECT_EQ(Kit::Clock::Elapsed(), 50ms);
    EXPECT_THAT(log.File(), ElementsAre(FOUND, TRYING, FLASHED, FLASHED, FLASHED))
        << "opened, reset, answered";
    EXPECT_THAT(log.ConsoleOnly(), ElementsAre("Set serial mode to 0"));
    EXPECT_EQ(Count("close"), 0u) << "the port stays open";
}

TEST_F(BuzzerTest, TheCallsOfTheHandshakeAreInOrder)
{
    board.AnswerAt(50ms, "OMSGE\n");
    EXPECT_TRUE(buzzer.Open());
    Texts calls;
    for (const auto& call : Kit::System::Calls())
    {
        calls.push_back(std::string(call.function) + " " + std::to_string(call.argument));
    }
    std::erase_if(calls,
                  [](const std::string& text) { return text.starts_with("nanosleep 50000"); }); // the board's
    const std::string closingWait = "ioctl " + std::to_string(TIOCGSERIAL); // refused by this terminal
    const std::string outputQueue = "ioctl " + std::to_string(TIOCOUTQ);
    const Texts expected = {"access 0",        "open " + std::to_string(O_RDWR | O_NOCTTY),
                            "tcgetattr 0",     "tcsetattr 0",
                            "tcflush 0",       "tcdrain 0",
                            closingWait,       "write 1",
                            "write 1",         "write 1",
                            "write 1",         "write 1",
                            "write 1",         "write 1",
                            "write 1",         "write 1",
                            "write 1",         "write 1",
                            "nanosleep 10000", outputQueue,
                            "tcflush 0",       "tcdrain 0",
                            "write 38",        "nanosleep 10000",
                            outputQueue,       "read 1",
                            "read 1",          "read 1",
                            "read 1",          "read 1",
                            "tcflush 0",       "tcdrain 0"};
    EXPECT_EQ(calls, expected);
}

TEST_F(BuzzerTest, ThePortIsSetUpFor115200BaudAndWholeLines)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    const struct termios settings = Kit::System::LastSettings();
    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B115200));
    EXPECT_EQ(cfgetispeed(&settings), static_cast<speed_t>(B115200));
    EXPECT_EQ(settings.c_lflag, static_cast<tcflag_t>(ICANON));
    EXPECT_EQ(settings.c_cc[VMIN], 1);
    EXPECT_EQ(settings.c_cc[VTIME], 0);
}

TEST_F(BuzzerTest, WhatTheBoardSaidBeforeItWasAskedIsDiscarded)
{
    board.line.Send("OMSGS stale OMSGE\r\n");
    board.AnswerAt(5ms, "OMSGS stale OMSGE\r\n");
    board.AnswerAt(40ms);
    EXPECT_TRUE(buzzer.Open());
    EXPECT_EQ(Kit::Clock::Elapsed(), 40ms);
}

TEST_F(BuzzerTest, WhatFollowsTheAnswerIsDiscarded)
{
    board.AnswerAt(40ms, "OMSGS ready OMSGE>>> \r\nprompt\r\n");
    EXPECT_TRUE(buzzer.Open());
    const int nearEnd = ioctl(board.line.Descriptor(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(nearEnd, 0);
    char c = 0;
    EXPECT_EQ(read(nearEnd, &c, 1), -1) << "nothing is left to read";
    EXPECT_EQ(errno, EAGAIN);
    close(nearEnd);
}

TEST_F(BuzzerTest, TheAnswerIsFoundAmongRubbish)
{
    struct Row
    {
        const char* reply;
        std::size_t reads; ///< to the end of the marker
    };

    for (const Row& row : {Row{"OMSGE\r\n", 5}, Row{"xOMSGE\n", 6}, Row{"OMSOMSGE\n", 8}, Row{"OOMSGE\n", 6},
                           Row{"OMSGOMSGE\n", 9}, Row{"rubbish\r\n\r\nOMSGS OMSGS\nOMSGE", 0},
                           Row{"one\ntwo\nOMS\nGE\nOMSGE\n", 20}})
    {
        const bool wholeLines = row.reads != 0;
        const auto begin = Kit::Clock::Elapsed();
        Kit::System::ForgetCalls();
        board.AnswerAt(50ms, row.reply);
        if (!wholeLines)
        {
            board.AnswerAt(70ms, "\n");
        }
        EXPECT_TRUE(buzzer.Open());
        EXPECT_EQ(Kit::Clock::Elapsed() - begin, wholeLines ? 50ms : 70ms) << row.reply;
        if (wholeLines)
        {
            EXPECT_EQ(Count("read"), row.reads) << row.reply;
        }
        EXPECT_TRUE(buzzer.Close());
    }
}

TEST_F(BuzzerTest, AnAnswerInPiecesIsPutTogether)
{
    board.AnswerAt(50ms, "OMSGS\nready\nOM");
    board.AnswerAt(2000ms, "SGE");
    board.AnswerAt(3000ms, "\n");
    EXPECT_TRUE(buzzer.Open());
    EXPECT_EQ(Kit::Clock::Elapsed(), 3s) << "a line is read when it has ended";
}

TEST_F(BuzzerTest, AnAnswerWithoutALineEndHoldsTheCallerUntilTheLineEnds)
{
    board.AnswerAt(50ms, "OMSGS ready OMSGE");
    board.AnswerAt(10min, "\n");
    EXPECT_TRUE(buzzer.Open());
    EXPECT_EQ(Kit::Clock::Elapsed(), 10min);
}

TEST_F(BuzzerTest, ABoardThatChattersWithoutAnAnswerHoldsTheCaller)
{
    for (int minute = 1; minute < 60; ++minute)
    {
        board.AnswerAt(std::chrono::minutes(minute), "still starting\r\n");
    }
    board.AnswerAt(1h, "OMSGE\r\n");
    EXPECT_TRUE(buzzer.Open());
    EXPECT_EQ(Kit::Clock::Elapsed(), 1h);
}

TEST_F(BuzzerTest, AMegabyteOfChatterIsPassedOver)
{
    std::thread peer([this] {
        std::this_thread::sleep_for(50ms);
        for (int line = 0; line < 20'000; ++line)
        {
            board.line.Send("OMSGS OMSG GEOMS still starting, please wait......\n");
        }
        board.line.Send("OMSGE\n");
    });
    EXPECT_TRUE(buzzer.Open());
    EXPECT_TRUE(Alerter::isPresent);
    peer.join();
}

TEST_F(BuzzerTest, ASilentBoardHoldsTheCallerUntilItHangsUp)
{
    std::atomic<bool> opened{false};
    std::thread caller([&] {
        EXPECT_TRUE(buzzer.Open()) << "the prompt was reached";
        opened = true;
    });
    std::this_thread::sleep_for(1h);
    EXPECT_FALSE(opened);
    EXPECT_EQ(board.Received(), std::string(RESET) + PRESENCE);
    board.line.HangUp();
    caller.join();
    EXPECT_TRUE(Alerter::isPresent);
    EXPECT_THAT(log.File(), ElementsAre(FOUND, TRYING, FLASHED, FLASHED)) << "no answer to discard behind";
    EXPECT_TRUE(buzzer.Close());
}

TEST_F(BuzzerTest, AnEndOfFileCharacterEndsTheWait)
{
    board.AnswerAt(50ms, "OMSG\n\x04");
    EXPECT_TRUE(buzzer.Open());
    EXPECT_TRUE(Alerter::isPresent) << "whatever it answered";
    EXPECT_EQ(Kit::Clock::Elapsed(), 50ms);
}

TEST_F(BuzzerTest, OpeningAgainClosesThePortFirst)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    board.AnswerAt(50ms);
    EXPECT_TRUE(buzzer.Open());
    EXPECT_EQ(Count("close"), 1u);
    EXPECT_TRUE(buzzer.Close());
    EXPECT_EQ(Count("close"), 2u);
}

// Closing and presence -----------------------------------------------------------------------------------

TEST_F(BuzzerTest, CloseDoesNothingWhileNoDeviceIsPresent)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    Alerter::isPresent = false;
    EXPECT_TRUE(buzzer.Close());
    EXPECT_EQ(Count("close"), 0u);
    Alerter::isPresent = true;
    EXPECT_TRUE(buzzer.Close());
    EXPECT_EQ(Count("close"), 1u);
    EXPECT_FALSE(buzzer.Close()) << "the port's result";
    EXPECT_TRUE(Alerter::isPresent);
}

TEST_F(BuzzerTest, OpeningFindsABoardThatWasGone)
{
    Alerter::isPresent = false;
    ASSERT_NO_FATAL_FAILURE(Open());
    EXPECT_TRUE(Alerter::isPresent);
}

TEST_F(BuzzerTest, CheckPresenceClosesWhatItOpened)
{
    board.AnswerAt(50ms);
    EXPECT_TRUE(buzzer.CheckPresence());
    EXPECT_EQ(Count("open"), 1u);
    EXPECT_EQ(Count("close"), 1u);
    EXPECT_EQ(board.Received(), std::string(RESET) + PRESENCE);
}

TEST_F(BuzzerTest, TheDestructorClosesThePort)
{
    for (const bool present : {true, false})
    {
        {
            BuzzerSerial own;
            const Kit::Peer answer(board.line, {{50ms, "OMSGE\n"}});
            ASSERT_TRUE(own.Open());
            Kit::System::ForgetCalls();
            Alerter::isPresent = present;
        }
        EXPECT_EQ(Count("close"), 1u) << present;
    }
}

TEST_F(BuzzerTest, ThePathsOfOtherAdaptersAreNotLookedAt)
{
    const Kit::Terminal other("/dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port1");
    board.AnswerAt(50ms);
    EXPECT_TRUE(buzzer.CheckPresence());
    for (const auto& call : Kit::System::CallsOf("open"))
    {
        EXPECT_EQ(call.path, BOARD);
    }
}

// Control bytes ------------------------------------------------------------------------------------------

TEST_F(BuzzerTest, EachControlByteIsSentAlone)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    buzzer.SendSTX();
    EXPECT_EQ(board.Received(), "\x02");
    buzzer.SendETX();
    EXPECT_EQ(board.Received(), "\x03");
    buzzer.SendEOT();
    EXPECT_EQ(board.Received(), "\x04");
    EXPECT_EQ(Count("write"), 3u);
}

TEST_F(BuzzerTest, TheResetSequenceIsElevenWritesAndAPause)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    const auto before = Kit::Clock::Elapsed();
    buzzer.ResetSequence();
    EXPECT_EQ(board.Received(), RESET);
    EXPECT_EQ(Count("write"), 11u);
    EXPECT_EQ(Kit::Clock::Elapsed() - before, 10ms);
    EXPECT_STREQ(Kit::System::Calls().back().function, "nanosleep");
}

// Alerts -------------------------------------------------------------------------------------------------

struct LevelRow
{
    int level;
    int duration;
};

void PrintTo(const LevelRow& level, std::ostream* out)
{
    *out << level.level;
}

class BuzzerLevel : public BuzzerTest, public testing::WithParamInterface<LevelRow>
{
};

TEST_P(BuzzerLevel, HasItsDuration)
{
    buzzer.level = GetParam().level;
    board.AnswerAt(30ms);
    EXPECT_TRUE(buzzer.Alert());
    EXPECT_EQ(board.Received(), AlertText(1, GetParam().duration));
    EXPECT_EQ(Kit::Clock::Elapsed(), 30ms + std::chrono::microseconds(GetParam().duration));
    EXPECT_EQ(Count("close"), 1u);
    EXPECT_EQ(buzzer.level, GetParam().level);
}

INSTANTIATE_TEST_SUITE_P(Levels, BuzzerLevel,
                         testing::Values(LevelRow{-1, 1000}, LevelRow{0, 1000}, LevelRow{1, 500},
                                         LevelRow{2, 1000}, LevelRow{3, 2000}, LevelRow{4, 1000},
                                         LevelRow{5, 1000}, LevelRow{1000, 1000}));

TEST_F(BuzzerTest, CountAndDurationAreSentInDecimal)
{
    struct Row
    {
        int count;
        int duration;
    };

    for (const Row& row : {Row{1, 500}, Row{0, 0}, Row{12, 34'567}, Row{-1, -5}, Row{2'147'483'647, 1},
                           Row{-2'147'483'647 - 1, 2}})
    {
        const Kit::Peer answer(board.line, {{30ms, "OMSGE\n"}});
        const auto before = Kit::Clock::Elapsed();
        EXPECT_TRUE(buzzer.BuzzDevice(row.count, row.duration));
        EXPECT_EQ(board.Received(), AlertText(row.count, row.duration));
        EXPECT_EQ(Kit::Clock::Elapsed() - before, 30ms + std::chrono::microseconds(std::max(row.duration, 0)))
            << "microseconds for the host";
    }
}

TEST_F(BuzzerTest, TheCommandIsOneWriteAndNoReplyToItIsRead)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    board.AnswerAt(30ms);
    EXPECT_TRUE(buzzer.BuzzDevice(1, 500));
    const auto writes = Kit::System::CallsOf("write");
    ASSERT_EQ(writes.size(), 11u + 3u);
    EXPECT_EQ(writes[11].argument, 38) << "presence";
    EXPECT_EQ(writes[12].argument, 44);
    EXPECT_EQ(writes[13].argument, 1) << "STX";
    auto calls = Kit::System::Calls();
    EXPECT_STREQ(calls.back().function, "close");
    EXPECT_STREQ(calls[calls.size() - 2].function, "ioctl") << "a look whether all of it is taken";
    calls.erase(calls.end() - 2);
    EXPECT_STREQ(calls[calls.size() - 2].function, "write");
    EXPECT_STREQ(calls[calls.size() - 3].function, "nanosleep");
    EXPECT_EQ(calls[calls.size() - 3].argument, 500);
    EXPECT_STREQ(calls[calls.size() - 4].function, "write");
}

TEST_F(BuzzerTest, SeveralAlertsInARowAreWholeEach)
{
    for (int i = 0; i < 3; ++i)
    {
        const Kit::Peer answer(board.line, {{30ms, "OMSGS ready OMSGE\n"}});
        buzzer.level = 3;
        EXPECT_TRUE(buzzer.Alert());
        EXPECT_EQ(board.Received(), AlertText(1, 2000));
    }
}

TEST_F(BuzzerTest, SignalsDoNotShortenThePause)
{
    board.AnswerAt(30ms);
    const Kit::Interruptions interruptions({5ms, 15ms, 35ms});
    EXPECT_TRUE(buzzer.BuzzDevice(1, 10'000));
    EXPECT_EQ(Kit::Clock::Elapsed(), 40ms);
}

/// Looks at, and sets, whether an alert is being played.
class OpenBuzzer : public BuzzerSerial
{
public:
    bool IsBusy() const { return busy; }

    void SetBusy(bool value) { busy = value; }
};

TEST_F(BuzzerTest, WhileAnAlertIsPlayedAnotherIsRefused)
{
    OpenBuzzer own;
    EXPECT_FALSE(own.IsBusy());
    own.SetBusy(true);
    own.level = 3;
    EXPECT_FALSE(own.BuzzDevice(1, 500));
    EXPECT_FALSE(own.Alert());
    EXPECT_TRUE(own.IsBusy());
    EXPECT_EQ(board.Received(), "");
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
    EXPECT_THAT(log.File(), IsEmpty());
    own.SetBusy(false);
    board.AnswerAt(30ms);
    EXPECT_TRUE(own.Alert());
    EXPECT_FALSE(own.IsBusy()) << "afterwards";
}

TEST_F(BuzzerTest, TheBuzzerIsBusyFromItsCommandToTheEndOfThePause)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the mark has no lock: this looks at it while the thread of the alert changes it";
#endif
    OpenBuzzer own;
    board.AnswerAt(30ms);
    std::thread alert([&] { EXPECT_TRUE(own.BuzzDevice(1, 1'000'000)); }); // a second for the host
    std::this_thread::sleep_for(1029ms);
    EXPECT_TRUE(own.IsBusy());
    alert.join();
    EXPECT_FALSE(own.IsBusy());
    EXPECT_EQ(Kit::Clock::Elapsed(), 1030ms);
}

TEST_F(BuzzerTest, AnAlertThatDidNotFindItsBoardLeavesTheBuzzerFree)
{
    OpenBuzzer own;
    Kit::System::Fail("access", ENOENT);
    EXPECT_FALSE(own.Alert());
    EXPECT_FALSE(own.IsBusy());
    board.AnswerAt(30ms);
    EXPECT_TRUE(own.Alert());
}

}

}
