#include "virtual-unit/peripherals/BuzzerBoard.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace VirtualUnit;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Buzz = BuzzerBoard::Buzz;

std::string Call(std::string_view command)
{
    return "buzzer.processCMD(\"ICMDS:" + std::string(command) + ":ICMDE\")";
}

/// A board and the time.
class Bench
{
public:
    explicit Bench(const BuzzerBoard::Options& options = {}) : board(options) {}

    std::vector<std::string> Wait(std::chrono::milliseconds time)
    {
        now += time;
        board.Advance(now);
        return board.TakeOutput();
    }

    /// What comes at once.
    std::string Type(std::string_view bytes)
    {
        board.Receive(bytes, now);
        const std::vector<std::string> output = Wait(0ms);
        return std::accumulate(output.begin(), output.end(), std::string());
    }

    SerialPeripheral::TimePoint now{1h};
    BuzzerBoard board;
};

BuzzerBoard::Options WithoutEcho()
{
    BuzzerBoard::Options options;
    options.echo = false;
    return options;
}

TEST(BuzzerBoardTest, ItEchoesWhatIsTypedAndAnswersInOneLine)
{
    Bench bench;
    EXPECT_EQ(bench.Type(Call("0") + "\r"),
              "buzzer.processCMD(\"ICMDS:0:ICMDE\")\r\nOMSGS:READY:OMSGE\r\n>>> ");
}

TEST(BuzzerBoardTest, WithoutEchoOnlyTheOutputComes)
{
    Bench bench(WithoutEcho());
    EXPECT_EQ(bench.Type(Call("0") + "\r"), "OMSGS:READY:OMSGE\r\n>>> ");
}

TEST(BuzzerBoardTest, ALineEndsOnceHoweverItsEndIsWritten)
{
    for (const std::string end : {"\r", "\n", "\r\n"})
    {
        Bench bench(WithoutEcho());
        EXPECT_EQ(bench.Type(end), ">>> ");
        EXPECT_EQ(bench.Type(Call("0") + end), "OMSGS:READY:OMSGE\r\n>>> ");
        EXPECT_EQ(bench.Type(end + end), ">>> >>> ");
    }
    Bench bench(WithoutEcho());
    bench.Type("\r");
    EXPECT_EQ(bench.Type("\n"), "");
    EXPECT_EQ(bench.Type("\n"), ">>> ");
}

TEST(BuzzerBoardTest, ALineMayComeInPieces)
{
    const std::string typed = Call("1:2:30") + "\r\n";
    for (std::size_t cut = 0; cut <= typed.size(); ++cut)
    {
        Bench bench(WithoutEcho());
        std::string reply = bench.Type(typed.substr(0, cut));
        reply += bench.Type(typed.substr(cut));
        EXPECT_EQ(reply, "OMSGS:OK:OMSGE\r\n>>> ");
        EXPECT_THAT(bench.board.Buzzes(), SizeIs(1)) << cut;
    }
}

TEST(BuzzerBoardTest, ItTellsHowItBuzzed)
{
    Bench bench(WithoutEcho());
    EXPECT_EQ(bench.Type(Call("1:1:500") + "\r"), "OMSGS:OK:OMSGE\r\n>>> ");
    const auto first = bench.now;
    bench.Wait(10s);
    bench.Type(Call("1:3:100") + "\r");
    EXPECT_THAT(bench.board.Buzzes(), ElementsAre(Buzz{first, 1, 500ms, first + 500ms},
                                                  Buzz{bench.now, 3, 100ms, bench.now + 500ms}));
}

TEST(BuzzerBoardTest, ANewBuzzCutsTheOldOneShort)
{
    Bench bench;
    bench.Type(Call("1:1:500") + "\r");
    bench.Wait(200ms);
    bench.Type(Call("1:1:500") + "\r");
    EXPECT_EQ(bench.board.Buzzes()[0].end, bench.now);
    EXPECT_EQ(bench.board.Buzzes()[1].end, bench.now + 500ms);
}

TEST(BuzzerBoardTest, ARestartSilencesIt)
{
    Bench bench;
    bench.Type(Call("1:1:500") + "\r");
    bench.Wait(200ms);
    EXPECT_EQ(bench.Type("\x04"), "\r\nbuzzer board\r\n>>> ");
    EXPECT_EQ(bench.board.Buzzes()[0].end, bench.now);
    bench.Wait(1s);
    bench.Type("\x04");
    EXPECT_EQ(bench.board.Buzzes()[0].end, bench.now - 1s);
}

TEST(BuzzerBoardTest, OtherControlBytesGiveTheTypedLineUpAndBuzzOn)
{
    for (const std::string byte : {"\x02", "\x03"})
    {
        Bench bench(WithoutEcho());
        bench.Type(Call("1:1:500") + "\r" + "buzzer.pro");
        bench.Wait(100ms);
        EXPECT_EQ(bench.Type(byte), "\r\n>>> ");
        EXPECT_EQ(bench.Type(Call("0") + "\r"), "OMSGS:READY:OMSGE\r\n>>> ");
        EXPECT_EQ(bench.board.Buzzes()[0].end, bench.now + 400ms);
    }
}

TEST(BuzzerBoardTest, ALineFeedBehindAControlByteIsALineOfItsOwn)
{
    Bench bench(WithoutEcho());
    EXPECT_EQ(bench.Type("\r\x02\n"), ">>> \r\n>>> >>> ");
}

TEST(BuzzerBoardTest, CommandsThatItDoesNotKnowAreErrors)
{
    for (const std::string_view command : {"", "2", "00", "1", "1:", "1:1", "1::", "1:1:", "1::1", "1:x:1",
                                           "1:1:1:1", "1:-1:5", "1:0:5", "1:1:5 ", "1:4294967296:1"})
    {
        Bench bench(WithoutEcho());
        EXPECT_EQ(bench.Type(Call(command) + "\r"), "OMSGS:ERROR:OMSGE\r\n>>> ") << command;
        EXPECT_THAT(bench.board.Buzzes(), IsEmpty()) << command;
    }
}

TEST(BuzzerBoardTest, OtherLinesAreErrorsWithoutMarkers)
{
    const std::string call = Call("1:1:5");
    for (const std::string& typed :
         {"x"s, " " + call, call + " ", call.substr(1), call.substr(0, call.size() - 1),
          "buzzer.processCMD(\"ICMDS:ICMDE\")"s, std::string(1000, 'x')})
    {
        Bench bench(WithoutEcho());
        EXPECT_EQ(bench.Type(typed + "\r"), "ERROR\r\n>>> ") << typed;
        EXPECT_EQ(bench.Type(Call("0") + "\r"), "OMSGS:READY:OMSGE\r\n>>> ");
        EXPECT_THAT(bench.board.Buzzes(), IsEmpty()) << typed;
    }
}

TEST(BuzzerBoardTest, TheLongestBuzzDoesNotOverflow)
{
    Bench bench;
    bench.Type(Call("1:2:4294967295") + "\r");
    EXPECT_EQ(bench.board.Buzzes()[0].end - bench.now, 3 * 4294967295ms);
}

TEST(BuzzerBoardTest, ItMayNeverAnswerAndBuzzAllTheSame)
{
    Bench bench;
    bench.board.faults.silent = true;
    EXPECT_EQ(bench.Type(Call("1:1:5") + "\r"), "");
    EXPECT_THAT(bench.board.Buzzes(), SizeIs(1));
    bench.board.faults.silent = false;
    EXPECT_THAT(bench.Wait(10s), IsEmpty());
    EXPECT_THAT(bench.Type("\r"), HasSubstr(">>>"));
}

TEST(BuzzerBoardTest, ItMayAnswerRubbish)
{
    Bench bench(WithoutEcho());
    bench.board.faults.rubbish = "\xFFOMSG\n";
    EXPECT_EQ(bench.Type(Call("0") + "\r"), "\xFFOMSG\n>>> ");
    EXPECT_EQ(bench.Type("x\r"), "\xFFOMSG\n>>> ");
    EXPECT_EQ(bench.Type("\r"), ">>> ");
}

TEST(BuzzerBoardTest, ItMayAnswerLate)
{
    Bench bench;
    bench.board.faults.delay = 3s;
    EXPECT_THAT(bench.Type(Call("0") + "\r"), EndsWith("\")\r\n"));
    EXPECT_EQ(bench.board.NextDeadline(), bench.now + 3s);
    EXPECT_THAT(bench.Wait(2999ms), IsEmpty());
    EXPECT_THAT(bench.Wait(1ms), ElementsAre("OMSGS:READY:OMSGE\r\n>>> "));
    EXPECT_EQ(bench.board.NextDeadline(), std::nullopt);
}

TEST(BuzzerBoardTest, UnpluggedItIsGoneWithWhatWasUnderWay)
{
    Bench bench;
    int woken = 0;
    bench.board.Attach([&] { ++woken; });
    bench.board.faults.delay = 1s;
    bench.Type(Call("0") + "\r");
    EXPECT_TRUE(bench.board.IsConnected());
    bench.board.Unplug();
    EXPECT_FALSE(bench.board.IsConnected());
    EXPECT_EQ(woken, 1);
    EXPECT_THAT(bench.Wait(10s), IsEmpty());
    EXPECT_EQ(bench.Type("\r"), "");
}

TEST(BuzzerBoardTest, OutputCanBeCutIntoPieces)
{
    BuzzerBoard::Options options = WithoutEcho();
    options.line.pieceBytes = 2;
    Bench bench(options);
    bench.board.Receive(Call("0") + "\r", bench.now);
    const std::vector<std::string> pieces = bench.Wait(0ms);
    EXPECT_THAT(pieces, AllOf(SizeIs(12), Each(SizeIs(testing::Le(2U)))));
}

}
