// One exchange: what it writes, how long it polls, what it takes for an answer.

#include "tests/Modem/ModemTest.h"
#include "tests/kit/OutputQueue.h"

#include <climits>
#include <fcntl.h>
#include <linux/serial.h>
#include <ostream>
#include <sys/ioctl.h>
#include <unistd.h>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace ModemTests
{

namespace
{

constexpr const char* COMMAND = "AT+CSQ\r\n";
constexpr const char* LINE = "+CSQ: 17,0";

/// Names of the calls made on an interface and of the sleeps, in order.
Texts Functions()
{
    Texts names;
    for (const Kit::System::Call& call : Kit::System::Calls())
    {
        const std::string_view name = call.function;
        if (call.path == MAIN_PORT)
        {
            names.emplace_back(name);
        }
        else if (name.ends_with("sleep"))
        {
            names.emplace_back("sleep");
        }
    }
    return names;
}

// Answers ------------------------------------------------------------------------------------------------

TEST_F(ModemTest, ACompleteReplyIsTakenInTheFirstPollingCycle)
{
    module.Accept(COMMAND, LINE);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Clock::Elapsed(), CYCLE) << "the module's first response time";
    EXPECT_EQ(module.Received(), COMMAND);
    EXPECT_EQ(Gathered(), "AT+CSQ\r\n\r\n+CSQ: 17,0\r\n\r\nOK\r\n") << "as received";
    EXPECT_THAT(Functions(),
                ElementsAre("open", "tcgetattr", "tcsetattr", "ioctl", "write", "sleep", "read", "close"));
    EXPECT_EQ(Kit::System::CallsOf("read").at(0).argument, 255);
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_TRUE(LockIsFree());
}

TEST_F(ModemTest, EachExchangeOpensAndClosesTheInterface)
{
    module.Accept(COMMAND, LINE);
    for (std::size_t exchange = 1; exchange <= 3; ++exchange)
    {
        EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
        EXPECT_EQ(Count("open"), exchange);
        ASSERT_EQ(Count("close"), exchange);
        EXPECT_EQ(Kit::System::CallsOf("close").back().fd, Kit::System::CallsOf("open").back().result);
    }
}

TEST_F(ModemTest, AReplyWithoutTheEchoIsNone)
{
    module.On(COMMAND, "\r\n+CSQ: 17,0\r\n\r\nOK\r\n");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -2);
    EXPECT_EQ(Clock::Elapsed(), SHORT_CYCLES * CYCLE) << "polling goes on";
    EXPECT_EQ(Gathered(), "\r\n+CSQ: 17,0\r\n\r\nOK\r\n");
    EXPECT_TRUE(LockIsFree());
}

TEST_F(ModemTest, TheEchoMayComeBehindTheOk)
{
    module.On(COMMAND, Answer{{0ms, "\r\nOK\r\n"}, {150ms, "AT+CSQ"}});
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Clock::Elapsed(), 2 * CYCLE);
}

TEST_F(ModemTest, AnErrorWithTheEchoEndsTheExchange)
{
    module.Refuse(COMMAND);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -1);
    EXPECT_EQ(Clock::Elapsed(), CYCLE);
    EXPECT_EQ(Gathered(), ErrorReply(COMMAND));
    EXPECT_EQ(Count("close"), 1u);
    EXPECT_TRUE(LockIsFree());
}

TEST_F(ModemTest, AnErrorWithoutTheEchoPollsOn)
{
    module.On(COMMAND, "\r\nERROR\r\n");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -2);
    EXPECT_EQ(Clock::Elapsed(), SHORT_CYCLES * CYCLE);
    EXPECT_EQ(Count("read"), 3u);
}

TEST_F(ModemTest, AnErrorWithoutTheEchoAndAnOkPollOn)
{
    module.On(COMMAND, "\r\nERROR\r\n\r\nOK\r\n");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -2);
    EXPECT_EQ(Clock::Elapsed(), SHORT_CYCLES * CYCLE);
}

TEST_F(ModemTest, AnErrorOutweighsAnOkWhicheverComesFirst)
{
    module.On(COMMAND, "AT+CSQ\r\n\r\nOK\r\n\r\nERROR\r\n");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -1);
    module.On(COMMAND, "AT+CSQ\r\n\r\nERROR\r\n\r\nOK\r\n");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -1);
    module.On(COMMAND, Answer{{0ms, "ERROR OK\r\n"}, {150ms, "AT+CSQ\r\n"}});
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -1) << "the echo may come later";
}

TEST_F(ModemTest, OkAndErrorAreFoundInsideOtherText)
{
    module.On(COMMAND, "xAT+CSQx BOOK");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    module.On(COMMAND, "xAT+CSQx +CME ERROR: 10");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -1);
    module.On(COMMAND, "AT+CSQ ok error O K");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -2) << "in capitals only";
}

TEST_F(ModemTest, TheEchoIsTheCommandWithoutAnyLineEnds)
{
    module.On("AT\n+X\r\n", "AT+X OK");
    EXPECT_EQ(Exchange("\rAT\n+X\r\n", SHORT_CYCLES), -2) << "the command came differently";
    EXPECT_EQ(module.Received(), "\rAT\n+X\r\n") << "sent as it is";
    module.On("\rAT\n+X\r\n", "AT+X OK");
    EXPECT_EQ(Exchange("\rAT\n+X\r\n", SHORT_CYCLES), 0);
}

TEST_F(ModemTest, AStrayOkOfAnEarlierExchangeIsNotTaken)
{
    module.On("AT+CIMI\r\n", Answer{{450ms, "\r\nOK\r\n"}});
    EXPECT_EQ(Exchange("AT+CIMI\r\n", SHORT_CYCLES), -2);
    std::this_thread::sleep_for(100ms);
    module.On(COMMAND, Answer{{150ms, Reply(COMMAND, LINE)}});
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Clock::Elapsed(), 500ms + 200ms) << "the answer of its own";
    EXPECT_EQ(Gathered(), "\r\nOK\r\n" + Reply(COMMAND, LINE));
}

TEST_F(ModemTest, TheBufferHoldsTheLatestReplyAlone)
{
    module.Accept("AT+CIMI\r\n", std::string(300, '1'));
    EXPECT_EQ(Exchange("AT+CIMI\r\n", SHORT_CYCLES), 0);
    module.Accept(COMMAND, LINE);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    const std::string all(Module3G::bufferAtCommands, REPLY_BYTES);
    EXPECT_EQ(all, Reply(COMMAND, LINE) + std::string(REPLY_BYTES - Reply(COMMAND, LINE).size(), '\0'));
}

// Replies in pieces --------------------------------------------------------------------------------------

TEST_F(ModemTest, AReplyMayComeInTwoPiecesCutAnywhere)
{
    const std::string reply = Reply(COMMAND, LINE);
    const std::size_t complete = reply.find("OK") + 2;
    for (std::size_t cut = 1; cut < reply.size(); ++cut)
    {
        module.DropUnread();
        module.On(COMMAND, Answer{{0ms, reply.substr(0, cut)}, {150ms, reply.substr(cut)}});
        const auto before = Clock::Elapsed();
        EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0) << "cut at " << cut;
        EXPECT_EQ(Clock::Elapsed() - before, cut < complete ? 2 * CYCLE : CYCLE) << "cut at " << cut;
        EXPECT_EQ(Gathered(), cut < complete ? reply : reply.substr(0, cut));
        std::this_thread::sleep_for(100ms);
    }
}

TEST_F(ModemTest, AReplyMayComeByteByByte)
{
    const std::string reply = Reply(COMMAND, LINE);
    Answer answer;
    for (std::size_t at = 0; at < reply.size(); ++at)
    {
        answer.push_back({50ms + at * CYCLE, reply.substr(at, 1)});
    }
    module.On(COMMAND, answer);
    EXPECT_EQ(Exchange(COMMAND, 100), 0);
    const std::size_t complete = reply.find("OK") + 2;
    EXPECT_EQ(Clock::Elapsed(), complete * CYCLE);
    EXPECT_EQ(Count("read"), complete);
}

TEST_F(ModemTest, ALongReplyIsReadInPartsOf255Bytes)
{
    const std::string reply = Reply(COMMAND, std::string(500, 'x'));
    module.On(COMMAND, reply);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Clock::Elapsed(), 3 * CYCLE);
    const auto reads = Kit::System::CallsOf("read");
    ASSERT_THAT(reads, SizeIs(3));
    EXPECT_EQ(reads[0].result, 255);
    EXPECT_EQ(reads[1].result, 255);
    for (const Kit::System::Call& call : reads)
    {
        EXPECT_EQ(call.argument, 255);
    }
    EXPECT_EQ(Gathered(), reply);
}

TEST_F(ModemTest, AZeroByteHidesWhatIsBehindIt)
{
    module.On(COMMAND, "AT+CSQ\r\nOK" + std::string(1, '\0') + "ERROR");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    module.On(COMMAND, "AT+CSQ\r\n" + std::string(1, '\0') + "OK");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -2);
    module.On(COMMAND, "ERROR" + std::string(1, '\0') + "AT+CSQ\r\n");
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -2);
    module.On(COMMAND, Answer{{0ms, "AT+CSQ" + std::string(1, '\0')}, {150ms, "OK"}});
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -2) << "also what comes later";
    EXPECT_EQ(std::string(Module3G::bufferAtCommands, 10), "AT+CSQ" + std::string(1, '\0') + "OK" + '\0');
}

TEST_F(ModemTest, EveryByteOfAReplyArrivesAsItIs)
{
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
    {
        all += static_cast<char>(byte);
    }
    module.Accept(COMMAND, all);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Gathered(), Reply(COMMAND, all));
}

// The limit ----------------------------------------------------------------------------------------------

/// A reply of which so many bytes are gathered by 16 reads: the first read gets `first`, the others 255.
Answer Gathering(std::size_t first, std::string end = {})
{
    constexpr std::size_t FURTHER_READS = 15;
    std::string text(first + (FURTHER_READS + 1) * 255, 'x');
    text.replace(0, 6, "AT+CSQ");
    text.replace(text.size() - end.size(), end.size(), end);
    return {{0ms, text.substr(0, first)}, {150ms, text.substr(first)}};
}

TEST_F(ModemTest, With3841BytesGatheredOneReadMoreFillsTheBuffer)
{
    module.On(COMMAND, Gathering(16));
    EXPECT_EQ(Exchange(COMMAND, 100), -2);
    EXPECT_EQ(Count("read"), 17u);
    EXPECT_EQ(Clock::Elapsed(), 18 * CYCLE);
    EXPECT_EQ(Gathered().size(), REPLY_BYTES) << "no zero byte among the 4096";
    EXPECT_EQ(Module3G::bufferAtCommands[REPLY_BYTES], '\0') << "the one behind them";
    EXPECT_EQ(Count("close"), 1u);
    EXPECT_TRUE(LockIsFree());
}

TEST_F(ModemTest, AnAnswerThatEndsWithTheLastByteOfTheBufferCounts)
{
    module.On(COMMAND, Gathering(16, "OK"));
    EXPECT_EQ(Exchange(COMMAND, 100), 0);
    EXPECT_EQ(Gathered().size(), REPLY_BYTES);
    module.On(COMMAND, Gathering(16, "ERROR"));
    EXPECT_EQ(Exchange(COMMAND, 100), -1);
    EXPECT_EQ(Module3G::bufferAtCommands[REPLY_BYTES], '\0');
}

TEST_F(ModemTest, With3842BytesGatheredThereIsNoFurtherRead)
{
    module.On(COMMAND, Gathering(17, "OK"));
    EXPECT_EQ(Exchange(COMMAND, 100), -2) << "the OK was not read any more";
    EXPECT_EQ(Count("read"), 16u);
    EXPECT_EQ(Clock::Elapsed(), 17 * CYCLE);
    EXPECT_EQ(Gathered().size(), 3842u);
    module.DropUnread();
}

TEST_F(ModemTest, AFullBufferIsNotCarriedIntoTheNextExchange)
{
    module.On(COMMAND, std::deque<Answer>{Gathering(16), {{0ms, Reply(COMMAND, LINE)}}});
    EXPECT_EQ(Exchange(COMMAND, 100), -2);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Gathered(), Reply(COMMAND, LINE));
}

TEST_F(ModemTest, AModuleThatKeepsSendingIsLeft)
{
    Answer answer;
    for (int cycle = 0; cycle < 30; ++cycle)
    {
        answer.push_back({cycle * CYCLE + 50ms, std::string(300, 'x')});
    }
    module.On(COMMAND, answer);
    EXPECT_EQ(Exchange(COMMAND, 1800), -2);
    EXPECT_EQ(Count("read"), 16u) << "15 x 255 bytes are below the limit, 16 x 255 above";
    EXPECT_EQ(Clock::Elapsed(), 17 * CYCLE);
}

TEST_F(ModemTest, ZeroBytesCountForTheLimit)
{
    module.On(COMMAND, Answer{{0ms, std::string(3990, '\0')}});
    EXPECT_EQ(Exchange(COMMAND, 100), -2);
    EXPECT_EQ(Count("read"), 16u);
    module.DropUnread();
}

// Time ---------------------------------------------------------------------------------------------------

class FewTries : public ModemTest, public testing::WithParamInterface<int>
{
};

TEST_P(FewTries, WriteAndWaitOnceWithoutReading)
{
    module.Accept(COMMAND, LINE);
    std::memset(Module3G::bufferAtCommands, 'x', REPLY_BYTES);
    EXPECT_EQ(Exchange(COMMAND, GetParam()), -2);
    EXPECT_EQ(module.Received(), COMMAND);
    EXPECT_EQ(Clock::Elapsed(), CYCLE);
    EXPECT_THAT(Functions(),
                ElementsAre("open", "tcgetattr", "tcsetattr", "ioctl", "write", "sleep", "close"));
    EXPECT_EQ(std::string(Module3G::bufferAtCommands, REPLY_BYTES), std::string(REPLY_BYTES, '\0'));
    EXPECT_TRUE(LockIsFree());
}

INSTANTIATE_TEST_SUITE_P(Tries, FewTries, testing::Values(1, 0, -1, INT_MIN));

class Budget : public ModemTest, public testing::WithParamInterface<int>
{
};

TEST_P(Budget, OfASilentModuleIsATenthOfASecondForEachTry)
{
    EXPECT_EQ(Exchange(COMMAND, GetParam()), -2);
    EXPECT_EQ(Clock::Elapsed(), GetParam() * CYCLE);
    EXPECT_EQ(Count("read"), static_cast<std::size_t>(GetParam() - 1));
    EXPECT_THAT(Kit::System::Sleeps(), Each(std::chrono::microseconds(CYCLE)));
}

TEST_P(Budget, StillTakesAnAnswerBeforeTheLastRead)
{
    const auto lastRead = (GetParam() - 1) * CYCLE;
    module.On(COMMAND, Answer{{lastRead - 50ms, Reply(COMMAND, LINE)}});
    EXPECT_EQ(Exchange(COMMAND, GetParam()), 0);
    EXPECT_EQ(Clock::Elapsed(), lastRead);
}

TEST_P(Budget, MissesAnAnswerBehindTheLastRead)
{
    module.On(COMMAND, Answer{{(GetParam() - 1) * CYCLE + 50ms, Reply(COMMAND, LINE)}});
    EXPECT_EQ(Exchange(COMMAND, GetParam()), -2);
    EXPECT_EQ(Clock::Elapsed(), GetParam() * CYCLE);
    EXPECT_EQ(Gathered(), "");
}

INSTANTIATE_TEST_SUITE_P(Tries, Budget, testing::Values(2, 4, 900, 1500, 1800));

// Reads that fail ----------------------------------------------------------------------------------------

TEST_F(ModemTest, AFailedReadIsASilentCycle)
{
    module.Accept(COMMAND, LINE);
    Kit::System::Fail("read", EIO, 1, 1);
    Kit::System::Fail("read", 0, 1, 1, 0);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Clock::Elapsed(), 3 * CYCLE);
    EXPECT_EQ(Kit::System::FailuresDone(), 2);
}

TEST_F(ModemTest, AModuleUnpluggedWhileItIsAskedGivesNoAnswer)
{
    module.Accept(COMMAND, LINE);
    Kit::System::Fail("read", EIO, 1, 1000);
    EXPECT_EQ(Exchange(COMMAND, 900), -2);
    EXPECT_EQ(Clock::Elapsed(), 900 * CYCLE);
    EXPECT_TRUE(LockIsFree());
}

TEST_F(ModemTest, AFailedCloseChangesNothing)
{
    module.Accept(COMMAND, LINE);
    Kit::System::Fail("close", EIO);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    AllowDescriptors(1); // the one that the order kept open
    EXPECT_TRUE(LockIsFree());
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
}

// The interface ------------------------------------------------------------------------------------------

TEST_F(ModemTest, TheGivenInterfaceIsUsedAndNoOther)
{
    ScriptedModule alternate(ALTERNATE_PORT);
    ScriptedModule other("/dev/ttyUSB2");
    alternate.Accept(COMMAND, "+CSQ: 1,0");
    other.Accept(COMMAND, "+CSQ: 2,0");
    EXPECT_EQ(ExchangeOn(ALTERNATE_PORT, COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Gathered(), Reply(COMMAND, "+CSQ: 1,0"));
    EXPECT_EQ(ExchangeOn("/dev/ttyUSB2", COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Gathered(), Reply(COMMAND, "+CSQ: 2,0"));
    EXPECT_EQ(module.Received(), "");
    module.Accept(COMMAND, "+CSQ: 3,0");
    EXPECT_EQ(ExchangeOn(MAIN_PORT, COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Gathered(), Reply(COMMAND, "+CSQ: 3,0"));
    EXPECT_EQ(alternate.Received(), COMMAND);
    EXPECT_EQ(other.Received(), COMMAND);
}

TEST_F(ModemTest, DescriptorZeroCountsAsNotOpenAndIsNotClosed)
{
    module.Accept(COMMAND, LINE);
    const int standardInput = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 100);
    ASSERT_GE(standardInput, 0);
    close(STDIN_FILENO);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Kit::System::CallsOf("open").at(0).result, 0);
    EXPECT_EQ(Count("close"), 0u);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFL) & O_NONBLOCK, O_NONBLOCK) << "the interface is still there";
    close(STDIN_FILENO);

    Kit::System::ForgetCalls();
    Kit::System::Fail("write", EIO, 1, 4);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -3);
    EXPECT_EQ(Kit::System::CallsOf("open").at(0).result, 0);
    EXPECT_EQ(Count("close"), 0u);
    close(STDIN_FILENO);
    dup2(standardInput, STDIN_FILENO);
    close(standardInput);
}

// A module that takes no output ---------------------------------------------------------------------------

class StuckModule : public ModemTest
{
protected:
    Kit::OutputQueue queue{MAIN_PORT, Kit::OutputQueue::NEVER};
};

TEST_F(StuckModule, HoldsTheCallerForTheTimeOfTheExchange)
{
    EXPECT_EQ(Exchange("AT", SHORT_CYCLES), -2);
    EXPECT_EQ(Clock::Elapsed(), SHORT_CYCLES * CYCLE);
    EXPECT_EQ(Exchange("AT", 1), -2);
    EXPECT_EQ(Clock::Elapsed(), (SHORT_CYCLES + 1) * CYCLE);
    EXPECT_EQ(Count("open"), Count("close"));
    EXPECT_TRUE(LockIsFree());
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(StuckModule, BehindADriverThatRefusesHoldsTheCallerForTheClosingWait)
{
    for (const unsigned long request : {TIOCSSERIAL, TIOCGSERIAL})
    {
        queue.Refuse(request, request == TIOCSSERIAL ? EPERM : ENOTTY);
        const auto before = Clock::Elapsed();
        EXPECT_EQ(Exchange("AT", SHORT_CYCLES), -2);
        EXPECT_EQ(Clock::Elapsed() - before, SHORT_CYCLES * CYCLE + 30s);
    }
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(StuckModule, IsNotLookedForByThePortOfTheApplication)
{
    std::string path = MAIN_PORT;
    const int fd = Module3G::OpenPort(path.data());
    ASSERT_GT(fd, 0);
    EXPECT_THAT(Functions(), ElementsAre("open", "tcgetattr", "tcsetattr"));
    close(fd);
}

TEST_F(StuckModule, ThatTakesItInTimeIsAskedAsEver)
{
    queue.TakeAfter(0ms);
    module.Accept(COMMAND, LINE);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_THAT(Functions(), ElementsAre("open", "tcgetattr", "tcsetattr", "ioctl", "ioctl", "write", "sleep",
                                         "read", "close"));
}

// The rest of the channel --------------------------------------------------------------------------------

TEST_F(ModemTest, TheTransmissionTimeIsNotedOnRequestOnly)
{
    module.Accept(COMMAND, LINE);
    Exchange(COMMAND, SHORT_CYCLES);
    EXPECT_EQ(Module3G::lastTransmitionTime, 0);
    Module3G::SetLastTransmissionTime();
    EXPECT_EQ(Module3G::lastTransmitionTime, Clock::START);
    std::this_thread::sleep_for(90s);
    EXPECT_EQ(Module3G::lastTransmitionTime, Clock::START);
    Module3G::SetLastTransmissionTime();
    EXPECT_EQ(Module3G::lastTransmitionTime, Clock::START + 90);
}

TEST_F(ModemStateTest, AnObjectClearsTheReplyBufferAndItsEndDoesNot)
{
    std::memset(Module3G::bufferAtCommands, 'x', REPLY_BYTES);
    {
        const Module3G object;
        EXPECT_EQ(object.label, "");
        EXPECT_EQ(object.counter, 0);
        EXPECT_EQ(std::string(Module3G::bufferAtCommands, REPLY_BYTES + 1),
                  std::string(REPLY_BYTES + 1, '\0'));
        std::memset(Module3G::bufferAtCommands, 'y', REPLY_BYTES);
        Module3G::m3gIMEI = "kept";
    }
    EXPECT_EQ(std::string(Module3G::bufferAtCommands, REPLY_BYTES), std::string(REPLY_BYTES, 'y'));
    EXPECT_EQ(Module3G::m3gIMEI, "kept");
}

// A reply that comes too late ----------------------------------------------------------------------------

TEST_F(ModemTest, ALateReplyCountsForTheNextExchangeOfTheSameCommand)
{
    module.On(COMMAND,
              {Answer{{450ms, Reply(COMMAND, "+CSQ: 11,0")}}, Answer{{150ms, Reply(COMMAND, "+CSQ: 22,0")}}});
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -2);
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Gathered(), Reply(COMMAND, "+CSQ: 11,0")) << "the answer to the first one";
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), 0);
    EXPECT_EQ(Gathered(), Reply(COMMAND, "+CSQ: 22,0")) << "and so on: one behind";
}

TEST_F(ModemTest, ALateReplyAndTheEchoOfTheNextCommandAreItsAnswer)
{
    module.On(COMMAND, Answer{{450ms, Reply(COMMAND, LINE)}});
    EXPECT_EQ(Exchange(COMMAND, SHORT_CYCLES), -2);
    std::this_thread::sleep_for(100ms);
    module.On("AT+CREG?\r\n", Answer{{50ms, "AT+CREG?\r\r\n"}, {250ms, "+CREG: 2,5\r\n\r\nOK\r\n"}});
    EXPECT_EQ(Exchange("AT+CREG?\r\n", SHORT_CYCLES), 0) << "before the state has come";
    EXPECT_EQ(Gathered(), Reply(COMMAND, LINE) + "AT+CREG?\r\r\n");
    std::this_thread::sleep_for(1s);
    module.DropUnread();
}

}

}
