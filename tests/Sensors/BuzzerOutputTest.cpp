// A board that is there and takes no output, or takes it slowly.

#include "tests/Sensors/BuzzerTest.h"
#include "tests/kit/OutputQueue.h"

#include <cerrno>
#include <linux/serial.h>
#include <sys/ioctl.h>

using testing::Contains;
using testing::Not;

namespace SensorTests
{

namespace
{

constexpr const char* NO_OUTPUT_TAKEN = "[ERROR]BUZZER TAKES NO OUTPUT";

class StuckBoard : public SensorTest
{
protected:
    Board board;
    Kit::OutputQueue queue{BOARD, Kit::OutputQueue::NEVER};
    BuzzerSerial buzzer;
};

TEST_F(StuckBoard, IsNotThere)
{
    EXPECT_FALSE(buzzer.Open());
    EXPECT_FALSE(Alerter::isPresent);
    EXPECT_LE(Kit::Clock::Elapsed(), 1s);
    EXPECT_EQ(Count("open"), Count("close"));
    EXPECT_EQ(log.File().back(), NO_OUTPUT_TAKEN);
    EXPECT_EQ(log.Console().back(), NO_OUTPUT_TAKEN);
    EXPECT_FALSE(buzzer.CheckPresence());
    EXPECT_FALSE(buzzer.Alert());
    EXPECT_LE(Kit::Clock::Elapsed(), 3s);
    EXPECT_EQ(Count("open"), Count("close"));
}

TEST_F(StuckBoard, ThatWorksAgainIsFoundAgain)
{
    EXPECT_FALSE(buzzer.Open());
    queue.TakeAfter(1ms);
    const Kit::Peer answer(board.line, {{30ms, "OMSGS ready OMSGE\n"}});
    EXPECT_TRUE(buzzer.Open());
    EXPECT_TRUE(Alerter::isPresent);
}

TEST_F(StuckBoard, ThatGetsStuckBehindTheResetIsNotThere)
{
    queue.TakeAfter(5ms);
    std::thread stuck([this] {
        std::this_thread::sleep_for(5ms);
        queue.TakeAfter(Kit::OutputQueue::NEVER);
    });
    EXPECT_FALSE(buzzer.Open());
    stuck.join();
    EXPECT_EQ(board.Received(), RESET);
    EXPECT_FALSE(Alerter::isPresent);
    EXPECT_LE(Kit::Clock::Elapsed(), 1s);
    EXPECT_EQ(log.File().back(), NO_OUTPUT_TAKEN);
    EXPECT_EQ(Count("read"), 0u);
}

TEST_F(StuckBoard, ThatGetsStuckBehindTheHandshakeHoldsTheAlertForHalfASecond)
{
    queue.TakeAfter(1ms);
    const Kit::Peer answer(board.line, {{30ms, "OMSGS ready OMSGE\n"}});
    ASSERT_TRUE(buzzer.Open());
    queue.TakeAfter(Kit::OutputQueue::NEVER);
    buzzer.SendSTX();
    const auto before = Kit::Clock::Elapsed();
    EXPECT_TRUE(buzzer.Close());
    EXPECT_EQ(Kit::Clock::Elapsed() - before, 500ms);
}

class SlowBoard : public StuckBoard, public testing::WithParamInterface<std::chrono::milliseconds>
{
};

TEST_P(SlowBoard, GetsEveryByte)
{
    queue.TakeAfter(GetParam());
    buzzer.level = 1;
    const Kit::Peer answer(board.line, {{3 * GetParam() + 30ms, "OMSGS ready OMSGE\n"}});
    EXPECT_TRUE(buzzer.Alert());
    EXPECT_EQ(board.Received(),
              std::string(RESET) + PRESENCE + "\r\nbuzzer.processCMD(\"ICMDS:1:1:500:ICMDE\")\r\n" + STX)
        << "the last command too";
    EXPECT_THAT(log.File(), Not(Contains(NO_OUTPUT_TAKEN)));
    EXPECT_EQ(Count("open"), Count("close"));
}

TEST_P(SlowBoard, GetsEveryByteBeforeItIsOpenedAgainAndBeforeTheEnd)
{
    queue.TakeAfter(GetParam());
    for (int times = 0; times < 2; ++times)
    {
        const Kit::Peer answer(board.line, {{3 * GetParam() + 30ms, "OMSGS ready OMSGE\n"}});
        BuzzerSerial other;
        ASSERT_TRUE(other.Open());
        board.Received();
        other.SendETX();
        if (times == 0)
        {
            const Kit::Peer again(board.line, {{4 * GetParam() + 30ms, "OMSGS ready OMSGE\n"}});
            ASSERT_TRUE(other.Open());
            EXPECT_EQ(board.Received(), "\x03" + std::string(RESET) + PRESENCE);
            continue;
        }
        Alerter::isPresent = false; // another alerter's search found nothing
    }
    EXPECT_EQ(board.Received(), "\x03");
}

INSTANTIATE_TEST_SUITE_P(Milliseconds, SlowBoard, testing::Values(0ms, 1ms, 20ms, 300ms));

class RefusingDriver : public StuckBoard, public testing::WithParamInterface<unsigned long>
{
};

TEST_P(RefusingDriver, IsAsBefore)
{
    queue.TakeAfter(20ms);
    queue.Refuse(GetParam(), GetParam() == TIOCSSERIAL ? EPERM : ENOTTY);
    buzzer.level = 1;
    const Kit::Peer answer(board.line, {{90ms, "OMSGS ready OMSGE\n"}});
    EXPECT_TRUE(buzzer.Alert());
    EXPECT_TRUE(Alerter::isPresent);
    EXPECT_THAT(log.File(), Not(Contains(NO_OUTPUT_TAKEN)));
}

// TIOCOUTQ is another matter: without it, and without a closing wait, the last bytes would be lost.
INSTANTIATE_TEST_SUITE_P(Requests, RefusingDriver, testing::Values(TIOCGSERIAL, TIOCSSERIAL, TIOCOUTQ));

}

}
