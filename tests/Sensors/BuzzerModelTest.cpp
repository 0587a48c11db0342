// From end to end: the library with an emulated buzzer board at the other end of its line.

#include "tests/Sensors/BuzzerTest.h"
#include "tests/virtual-unit/ports/EmulatedLine.h"
#include "virtual-unit/peripherals/BuzzerBoard.h"

#include <future>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using VirtualUnit::BuzzerBoard;

namespace SensorTests
{

namespace
{

class EmulatedBoard : public SensorTest
{
protected:
    EmulatedBoard()
    {
        Kit::System::Redirect(BOARD, line.Path());
        line.Start();
    }

    ~EmulatedBoard() override
    {
        line.Stop();
        Kit::System::Unredirect(BOARD);
    }

    /// Everything that was typed has arrived when the clock goes on.
    std::vector<BuzzerBoard::Buzz> Buzzes()
    {
        std::this_thread::sleep_for(1ms);
        return line.Locked([&] { return board.Buzzes(); });
    }

    BuzzerBoard board;
    EmulatedLine line{board};
    BuzzerSerial buzzer;
};

TEST_F(EmulatedBoard, ItIsPresentAndDoesNotBuzz)
{
    EXPECT_TRUE(buzzer.CheckPresence());
    EXPECT_THAT(Buzzes(), IsEmpty());
}

TEST_F(EmulatedBoard, EachLevelHasItsLength)
{
    for (const auto& [level, length] : {std::pair(1, 500ms), {2, 1000ms}, {3, 2000ms}, {0, 1000ms}})
    {
        buzzer.level = level;
        const std::size_t before = Buzzes().size();
        EXPECT_TRUE(buzzer.Alert());
        const auto buzzes = Buzzes();
        ASSERT_THAT(buzzes, SizeIs(before + 1)) << level;
        EXPECT_EQ(buzzes.back().count, 1U) << level;
        EXPECT_EQ(buzzes.back().duration, length) << level;
        std::this_thread::sleep_for(5s);
    }
}

TEST_F(EmulatedBoard, ItBuzzesOnWhileTheLibraryHasDoneWithIt)
{
    const auto begin = Kit::Clock::Elapsed();
    EXPECT_TRUE(buzzer.BuzzDevice(3, 400));
    EXPECT_LT(Kit::Clock::Elapsed() - begin, 100ms);
    const auto buzzes = Buzzes();
    ASSERT_THAT(buzzes, SizeIs(1));
    EXPECT_EQ(buzzes[0].end - buzzes[0].at, 5 * 400ms);
    std::this_thread::sleep_for(5s);
    EXPECT_EQ(Buzzes(), buzzes); // nothing has cut it short
}

// The handshake restarts the board.
TEST_F(EmulatedBoard, AnAlertCutsTheOneBeforeShort)
{
    EXPECT_TRUE(buzzer.BuzzDevice(1, 2000));
    std::this_thread::sleep_for(500ms);
    EXPECT_TRUE(buzzer.CheckPresence());
    const auto buzzes = Buzzes();
    ASSERT_THAT(buzzes, SizeIs(1));
    EXPECT_LT(buzzes[0].end - buzzes[0].at, 600ms);
}

TEST_F(EmulatedBoard, ABoardWithoutEchoIsTheSame)
{
    BuzzerBoard::Options options;
    options.echo = false;
    BuzzerBoard quiet(options);
    EmulatedLine quietLine(quiet);
    Kit::System::Redirect(BOARD, quietLine.Path());
    quietLine.Start();
    EXPECT_TRUE(buzzer.Alert());
    std::this_thread::sleep_for(1ms);
    EXPECT_THAT(quietLine.Locked([&] { return quiet.Buzzes(); }), SizeIs(1));
    quietLine.Stop();
}

TEST_F(EmulatedBoard, ALateAnswerIsWaitedFor)
{
    line.Locked([&] { board.faults.delay = 7s; });
    const auto begin = Kit::Clock::Elapsed();
    EXPECT_TRUE(buzzer.CheckPresence());
    EXPECT_GE(Kit::Clock::Elapsed() - begin, 7s);
    EXPECT_LT(Kit::Clock::Elapsed() - begin, 8s);
}

TEST_F(EmulatedBoard, RubbishWithTheEndMarkerIsAnAnswer)
{
    line.Locked([&] { board.faults.rubbish = "\xFF\xFEOMSGE\x01\r\n"; });
    EXPECT_TRUE(buzzer.CheckPresence());
}

TEST_F(EmulatedBoard, WhoNeverAnswersHoldsTheCallerUntilThePlugIsPulled)
{
    line.Locked([&] { board.faults.silent = true; });
    std::future<bool> open = std::async(std::launch::async, [&] { return buzzer.Open(); });
    std::this_thread::sleep_for(1h);
    EXPECT_EQ(open.wait_for(0s), std::future_status::timeout);
    line.Locked([&] { board.Unplug(); });
    EXPECT_TRUE(open.get());
    EXPECT_TRUE(line.HungUp());
}

// What became of the line is not looked at.
TEST_F(EmulatedBoard, ABoardThatIsPulledOutDuringAnAlertIsNotTold)
{
    line.Locked([&] { board.faults.delay = 1s; });
    std::future<bool> alert = std::async(std::launch::async, [&] { return buzzer.Alert(); });
    std::this_thread::sleep_for(500ms);
    line.Locked([&] { board.Unplug(); });
    EXPECT_TRUE(alert.get());
    EXPECT_THAT(Buzzes(), IsEmpty());
}

TEST_F(EmulatedBoard, WithoutTheAdapterThereIsNone)
{
    Kit::System::Unredirect(BOARD);
    EXPECT_FALSE(buzzer.Alert());
    EXPECT_FALSE(Alerter::isPresent);
    EXPECT_THAT(Buzzes(), IsEmpty());
    EXPECT_THAT(log.File(), Contains(testing::HasSubstr(ABSENT)));
}

}

}
