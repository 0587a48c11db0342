// Every call that the buzzer makes fails in turn, and the board goes away in the middle.

#include "tests/I2C/Adapter.h"
#include "tests/Sensors/BuzzerTest.h"

#include <cerrno>
#include <cstring>
#include <thread>

using testing::ElementsAre;

namespace SensorTests
{

namespace
{

class BuzzerFault : public SensorTest, public testing::WithParamInterface<int>
{
protected:
    /// An alert in which the nth call of the function fails. @return what the board received
    std::string Alert(const char* function, int nth)
    {
        Kit::System::Reset();
        Alerter::isPresent = false;
        Board board;
        BuzzerSerial buzzer;
        buzzer.level = 1;
        board.AnswerAt(30ms);
        Kit::System::Fail(function, GetParam(), nth);
        const auto before = Kit::Clock::Elapsed();
        result = buzzer.Alert();
        took = Kit::Clock::Elapsed() - before;
        struck = Kit::System::FailuresDone() == 1;
        return board.Received();
    }

    static std::string Whole()
    {
        return std::string(RESET) + PRESENCE + "\r\nbuzzer.processCMD(\"ICMDS:1:1:500:ICMDE\")\r\n" + STX;
    }

    bool result = false;
    bool struck = false;
    std::chrono::nanoseconds took{0};
};

INSTANTIATE_TEST_SUITE_P(Errno, BuzzerFault, testing::ValuesIn(I2cTests::BUS_ERRORS));

TEST_P(BuzzerFault, ABoardThatCannotBeLookedUpIsAbsent)
{
    EXPECT_EQ(Alert("access", 1), "");
    EXPECT_FALSE(result);
    EXPECT_FALSE(Alerter::isPresent);
    EXPECT_THAT(log.File(), ElementsAre(ABSENT));
}

TEST_P(BuzzerFault, APortThatCannotBeOpenedIsAbsent)
{
    EXPECT_EQ(Alert("open", 1), "");
    EXPECT_FALSE(result);
    EXPECT_FALSE(Alerter::isPresent);
    EXPECT_THAT(log.File(), ElementsAre(FOUND, TRYING, "[ERROR][SERIAL] Unable to open serial port"));
    EXPECT_EQ(took, 0s);
}

TEST_P(BuzzerFault, APortThatRefusesItsSettingsIsAbsentAndClosedByTheDestructor)
{
    for (const char* function : {"tcgetattr", "tcsetattr"})
    {
        EXPECT_EQ(Alert(function, 1), "") << function;
        EXPECT_FALSE(result);
        EXPECT_FALSE(Alerter::isPresent);
        EXPECT_EQ(took, 0s);
        EXPECT_EQ(Count("close"), 1u);
    }
    EXPECT_THAT(log.File(), ElementsAre(FOUND, TRYING, "[ERROR][SERIAL] Unable to get serial port config",
                                        FOUND, TRYING, "[ERROR][SERIAL] Unable to set serial port config"));
}

TEST_P(BuzzerFault, ThePortIsClosedBeforeItIsTriedAgain)
{
    Board board;
    BuzzerSerial buzzer;
    Kit::System::Fail("tcsetattr", GetParam());
    EXPECT_FALSE(buzzer.Open());
    EXPECT_TRUE(buzzer.Close()) << "nothing is present";
    EXPECT_EQ(Count("close"), 0u);
    board.AnswerAt(30ms);
    EXPECT_TRUE(buzzer.Open());
    EXPECT_EQ(Count("close"), 1u);
}

TEST_P(BuzzerFault, EachWriteFailingInTurnIsMissingAndNothingElse)
{
    constexpr int WRITES = 14;
    const std::string command = "\r\nbuzzer.processCMD(\"ICMDS:1:1:500:ICMDE\")\r\n";
    for (int nth = 1; nth <= WRITES; ++nth)
    {
        std::string expected = Whole();
        const auto at = static_cast<std::size_t>(nth - 1);
        switch (nth)
        {
        case 12:
            expected = std::string(RESET) + command + STX;
            break;
        case 13:
            expected = std::string(RESET) + PRESENCE + STX;
            break;
        case 14:
            expected.pop_back();
            break;
        default:
            expected.erase(at, 1);
            break;
        }
        EXPECT_EQ(Alert("write", nth), expected) << nth;
        EXPECT_TRUE(result);
        EXPECT_TRUE(struck);
        EXPECT_TRUE(Alerter::isPresent);
        EXPECT_EQ(took, 30ms + 500us);
    }
    EXPECT_EQ(Alert("write", WRITES + 1), Whole());
    EXPECT_FALSE(struck) << "a call more than expected";
}

TEST_P(BuzzerFault, AReadThatFailsEndsTheWaitForTheAnswer)
{
    for (int nth = 1; nth <= 17; ++nth) // as many as "OMSGS ready OMSGE" takes
    {
        EXPECT_EQ(Alert("read", nth), Whole()) << nth;
        EXPECT_TRUE(result);
        EXPECT_TRUE(struck);
        EXPECT_TRUE(Alerter::isPresent) << "reaching the prompt is enough";
        EXPECT_EQ(Count("read"), static_cast<std::size_t>(nth)) << "nothing is tried again";
    }
    EXPECT_EQ(Alert("read", 18), Whole());
    EXPECT_FALSE(struck) << "a call more than expected";
}

TEST_P(BuzzerFault, AFailedFlushIsPassedOver)
{
    for (const char* function : {"tcflush", "tcdrain"})
    {
        for (int nth = 1; nth <= 3; ++nth)
        {
            EXPECT_EQ(Alert(function, nth), Whole()) << function;
            EXPECT_TRUE(result);
            EXPECT_TRUE(struck);
        }
    }
}

TEST_P(BuzzerFault, AFailedCloseIsPassedOverAndTriedAgainByTheDestructor)
{
    EXPECT_EQ(Alert("close", 1), Whole());
    EXPECT_TRUE(result);
    EXPECT_TRUE(struck);
    EXPECT_EQ(Count("close"), 2u);
}

TEST_P(BuzzerFault, ADeadSystemIsAnAbsentBoard)
{
    const Board board;
    BuzzerSerial buzzer;
    Kit::System::Fail("*", GetParam(), 1, 100'000);
    EXPECT_FALSE(buzzer.Alert());
    EXPECT_FALSE(buzzer.CheckPresence());
    EXPECT_FALSE(Alerter::isPresent);
}

// The board goes away ------------------------------------------------------------------------------------

class BuzzerHangUp : public SensorTest, public testing::WithParamInterface<int>
{
};

TEST_P(BuzzerHangUp, AHangUpDuringTheHandshakeEndsIt)
{
    Board board;
    BuzzerSerial buzzer;
    std::thread unplug([&] {
        const std::chrono::milliseconds at(GetParam());
        std::this_thread::sleep_for(std::min(at, 28ms));
        board.line.Send("OMSGS rea\n");
        std::this_thread::sleep_for(at - std::min(at, 28ms));
        board.line.HangUp();
    });
    EXPECT_TRUE(buzzer.Alert()) << "reaching the prompt is enough";
    unplug.join();
    EXPECT_TRUE(Alerter::isPresent);
    EXPECT_LE(Kit::Clock::Elapsed(), 50ms);
    EXPECT_EQ(Count("open"), Count("close"));
    EXPECT_FALSE(buzzer.Close()) << "the alert has closed it";
}

// Behind the reset, behind the question, and while the answer is awaited.
INSTANTIATE_TEST_SUITE_P(Milliseconds, BuzzerHangUp, testing::Values(5, 15, 25, 28, 30, 40));

TEST_F(SensorTest, ABoardThatIsUnpluggedAndPluggedInAgainIsFoundAgain)
{
    BuzzerSerial buzzer;
    {
        Board board;
        board.AnswerAt(30ms);
        EXPECT_TRUE(buzzer.CheckPresence());
    }
    EXPECT_FALSE(buzzer.CheckPresence());
    EXPECT_FALSE(Alerter::isPresent);
    Board board;
    board.AnswerAt(30ms);
    EXPECT_TRUE(buzzer.CheckPresence());
    EXPECT_TRUE(Alerter::isPresent);
}

}

}
