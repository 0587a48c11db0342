// How an emulated cellular module is spoken to: lines, its two interfaces, time, faults, its leaving.

#include "tests/virtual-unit/peripherals/CellularBench.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Faults = CellularModule::Faults;
using Port = CellularModule::Port;
using Registration = CellularState::Registration;

const std::string ASK_SIGNAL = "AT+CSQ\r\n";
const std::string ECHO = "AT+CSQ\r";
const std::string SIGNAL = "\r\n+CSQ: 20,99\r\n";
const std::string RESULT = "\r\nOK\r\n";
const std::string ERROR = "\r\nERROR\r\n";
const std::string REPLY = ECHO + SIGNAL + RESULT;
const std::string POWERED_DOWN = "\r\nPOWERED DOWN\r\n";

TEST(CellularModuleTest, ACommandEndsWithACarriageReturnAndLineFeedsArePassedOver)
{
    CellularBench bench;
    EXPECT_EQ(bench.Ask("AT+CSQ"), "");
    EXPECT_EQ(bench.Ask("\n"), "");
    EXPECT_EQ(bench.Ask("\r"), REPLY);
    EXPECT_EQ(bench.Ask("\n"), "");
    EXPECT_EQ(bench.Ask("\r\n\r\n"), "");
    EXPECT_EQ(bench.Ask(ASK_SIGNAL + ASK_SIGNAL), REPLY + REPLY);
}

TEST(CellularModuleTest, ACommandMayComeInAnyPieces)
{
    const std::vector<std::string> commands = {
        "AT\r\n",           "ATI\r\n",        "AT+CGSN\r\n",
        "AT+CIMI\r\n",      "AT+QCCID\r\n",   "AT+CBC\r\n",
        "AT+QLTS\r\n",      "AT+CSQ\r\n",     "AT+CREG?\r\n",
        "AT+CREG=2\r\n",    "AT+CGREG=2\r\n", "AT+COPS=?\r\n",
        "AT+COPS?\r\n",     "AT+COPS=0\r\n",  "AT+COPS=1,2,\"99902\",2\r\n",
        "AT+QSCLK?\r\n",    "ATH\r\n",        "AT+QCFG=\"vbatt\",-2,3300,1\r\n",
        "AT+CGACT=0,1\r\n", "AT+CGATT=0\r\n", "AT+QPOWD=1\r\n",
        "ATE0\r\n",         "AT+NOSUCH\r\n"};
    for (const std::string& command : commands)
    {
        CellularBench whole;
        std::string expected = whole.Ask(command);
        expected += whole.WaitForText(10s);
        for (std::size_t cut = 1; cut < command.size(); ++cut)
        {
            CellularBench bench;
            std::string reply = bench.Ask(command.substr(0, cut));
            reply += bench.Ask(command.substr(cut));
            EXPECT_EQ(reply + bench.WaitForText(10s), expected) << command << cut;
        }
        CellularBench bytewise;
        std::string reply;
        for (const char c : command)
        {
            reply += bytewise.Ask(std::string(1, c));
        }
        EXPECT_EQ(reply + bytewise.WaitForText(10s), expected) << command;
    }
}

TEST(CellularModuleTest, ALineThatIsNoCommandIsOnlyEchoed)
{
    CellularBench bench;
    EXPECT_EQ(bench.Ask("+++\r\nA\r\n"), "+++\rA\r");
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), REPLY);
}

TEST(CellularModuleTest, ALineWithoutEndIsForgotten)
{
    CellularBench bench;
    EXPECT_EQ(bench.Ask(std::string(3000, 'x')), "");
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), REPLY);
}

TEST(CellularModuleTest, TheEchoIsSwitchedOffAndOnForEachInterface)
{
    CellularBench bench;
    EXPECT_EQ(bench.Ask("ATE0\r\n"), "ATE0\r" + RESULT);
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), SIGNAL + RESULT);
    EXPECT_EQ(bench.Ask("+++\r\n"), "");
    EXPECT_EQ(bench.Ask(ASK_SIGNAL, Port::Alternate), REPLY);
    EXPECT_EQ(bench.Ask("ate1\r\n"), RESULT);
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), REPLY);
}

TEST(CellularModuleTest, NothingComesBeforeItIsSpokenTo)
{
    CellularModule module;
    EXPECT_EQ(module.At(Port::Main).NextDeadline(), std::nullopt);
    EXPECT_THAT(module.At(Port::Main).TakeOutput(), IsEmpty());
    EXPECT_TRUE(module.At(Port::Main).IsConnected());
}

TEST(CellularModuleTest, BothInterfacesHaveOneState)
{
    CellularBench bench;
    bench.Ask("AT+CREG=2\r\n");
    EXPECT_THAT(bench.Ask("AT+CREG?\r\n", Port::Alternate), HasSubstr("+CREG: 2,1,\"D509\""));
    bench.module.Change([](CellularState& state) { state.rssi = 3; });
    EXPECT_THAT(bench.Ask(ASK_SIGNAL), HasSubstr("+CSQ: 3,99"));
    EXPECT_THAT(bench.Ask(ASK_SIGNAL, Port::Alternate), HasSubstr("+CSQ: 3,99"));
}

TEST(CellularModuleTest, OneInterfaceAnswersWhileTheOtherIsBusy)
{
    CellularBench bench;
    EXPECT_EQ(bench.Ask("AT+COPS=?\r\n"), "AT+COPS=?\r");
    EXPECT_EQ(bench.Ask(ASK_SIGNAL, Port::Alternate), REPLY);
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), "") << "it waits";
    EXPECT_THAT(bench.WaitForText(5s), EndsWith("(0,1,2)\r\n" + RESULT + REPLY));
}

TEST(CellularModuleTest, AReportComesOnBothInterfacesBehindAResult)
{
    CellularBench bench;
    bench.module.Change([](CellularState& state) { state.registration = Registration::Searching; });
    bench.Ask("AT+CREG=1\r\nAT+COPS=0\r\n");
    EXPECT_EQ(bench.WaitForText(2s), RESULT + "\r\n+CREG: 1\r\n");
    EXPECT_EQ(bench.WaitForText(0ms, Port::Alternate), "\r\n+CREG: 1\r\n");
}

TEST(CellularModuleTest, AnAnswerMayComeLate)
{
    CellularBench bench;
    bench.module.Spoil([](Faults& faults) { faults.delay = 700ms; });
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), ECHO);
    EXPECT_EQ(bench.module.At(Port::Main).NextDeadline(), bench.now + 700ms);
    EXPECT_EQ(bench.WaitForText(699ms), "");
    EXPECT_EQ(bench.WaitForText(1ms), SIGNAL + RESULT);
    EXPECT_EQ(bench.Ask(ASK_SIGNAL, Port::Alternate), REPLY) << "the other interface is sound";

    bench.module.Spoil([](Faults& faults) { faults.lateEcho = true; });
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), "");
    EXPECT_EQ(bench.WaitForText(700ms), REPLY);

    bench.module.Spoil([](Faults& faults) { faults = {}; });
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), REPLY);
}

TEST(CellularModuleTest, ADelayIsAddedToWhatACommandTakes)
{
    CellularBench bench;
    bench.module.Spoil([](Faults& faults) { faults.delay = 700ms; });
    bench.Ask("AT+COPS=?\r\n");
    EXPECT_EQ(bench.module.At(Port::Main).NextDeadline(), bench.now + 5700ms);
}

TEST(CellularModuleTest, RepliesComeInPiecesOfAnySize)
{
    for (std::size_t bytes = 1; bytes <= REPLY.size(); ++bytes)
    {
        CellularBench bench;
        Transmitter::Options line;
        line.pieceBytes = bytes;
        line.pieceGap = 10ms;
        bench.module.At(Port::Main).SetLine(line);
        EXPECT_EQ(bench.Ask(ASK_SIGNAL), REPLY.substr(0, bytes));
        const std::vector<std::string> rest = bench.Wait(1s);
        EXPECT_THAT(rest, SizeIs((REPLY.size() - 1) / bytes)) << bytes;
        EXPECT_EQ(std::accumulate(rest.begin(), rest.end(), REPLY.substr(0, bytes)), REPLY);
    }
}

TEST(CellularModuleTest, TheEchoMayBeMissing)
{
    CellularBench bench;
    bench.module.Spoil([](Faults& faults) { faults.noEcho = true; });
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), SIGNAL + RESULT);
}

TEST(CellularModuleTest, TheNextCommandsOrAllMayFailUnobeyed)
{
    CellularBench bench;
    bench.module.Spoil([](Faults& faults) { faults.errors = 2; });
    EXPECT_EQ(bench.Ask("AT+CREG=2\r\n"), "AT+CREG=2\r" + ERROR);
    EXPECT_EQ(bench.module.State().registrationReports, 0);
    EXPECT_EQ(bench.Ask("AT+COPS=?\r\n"), "AT+COPS=?\r" + ERROR) << "without the time of a scan";
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), REPLY);
    bench.module.Spoil([](Faults& faults) {
        faults.errors = Faults::EVERY;
        faults.error = "+CME ERROR: 100";
    });
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_EQ(bench.Ask(ASK_SIGNAL), ECHO + "\r\n+CME ERROR: 100\r\n");
    }
}

TEST(CellularModuleTest, AnythingMayStandAnywhereInAReply)
{
    CellularBench bench;
    const auto ask = [&](std::string Faults::*place) {
        bench.module.Spoil([&](Faults& faults) {
            faults = {};
            faults.*place = "\r\nRING\r\n";
        });
        return bench.Ask(ASK_SIGNAL);
    };
    EXPECT_EQ(ask(&Faults::beforeEcho), "\r\nRING\r\n" + REPLY);
    EXPECT_EQ(ask(&Faults::behindEcho), ECHO + "\r\nRING\r\n" + SIGNAL + RESULT);
    EXPECT_EQ(ask(&Faults::inInformation), ECHO + "\r\n+CSQ: \r\nRING\r\n20,99\r\n" + RESULT);
    EXPECT_EQ(ask(&Faults::beforeResult), ECHO + SIGNAL + "\r\nRING\r\n" + RESULT);
}

TEST(CellularModuleTest, AFloodOfTextHasNoResult)
{
    CellularBench bench;
    bench.module.Spoil([](Faults& faults) { faults.flood = 4096; });
    const std::string text = bench.Ask(ASK_SIGNAL);
    EXPECT_THAT(text, SizeIs(ECHO.size() + 4096));
    EXPECT_THAT(text, StartsWith(ECHO));
    EXPECT_THAT(text, Not(HasSubstr("OK")));
    EXPECT_THAT(text, Not(HasSubstr("ERROR")));
}

TEST(CellularModuleTest, ASilentModuleObeys)
{
    CellularBench bench;
    bench.module.Spoil([](Faults& faults) { faults.silent = true; });
    EXPECT_EQ(bench.Ask("AT+QSCLK=1\r\n"), "");
    EXPECT_EQ(bench.module.State().slowClock, 1);
    bench.module.Spoil([](Faults& faults) { faults.silent = false; });
    EXPECT_EQ(bench.WaitForText(1s), "") << "it is lost";
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), REPLY);
}

TEST(CellularModuleTest, AFaultThatIsSwitchedOnUnderWayHoldsForWhatIsNotOut)
{
    CellularBench bench;
    Transmitter::Options line;
    line.pieceBytes = 8;
    line.pieceGap = 10ms;
    bench.module.At(Port::Main).SetLine(line);
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), REPLY.substr(0, 8));
    EXPECT_EQ(bench.WaitForText(10ms), REPLY.substr(8, 8));
    bench.module.Spoil([](Faults& faults) { faults.silent = true; });
    EXPECT_EQ(bench.WaitForText(1s), "");
}

TEST(CellularModuleTest, PowerDownIsAnsweredThenToldThenDone)
{
    CellularBench bench;
    EXPECT_EQ(bench.Ask("AT+QPOWD=1\r\n"), "AT+QPOWD=1\r" + RESULT);
    EXPECT_EQ(bench.module.At(Port::Main).NextDeadline(), bench.now + 1s);
    EXPECT_EQ(bench.WaitForText(999ms), "");
    EXPECT_EQ(bench.WaitForText(1ms), POWERED_DOWN);
    EXPECT_EQ(bench.WaitForText(0ms, Port::Alternate), POWERED_DOWN);
    EXPECT_EQ(bench.WaitForText(999ms), "");
    EXPECT_TRUE(bench.module.OnBus());
    EXPECT_TRUE(bench.module.At(Port::Main).IsConnected());
    EXPECT_EQ(bench.module.At(Port::Alternate).NextDeadline(), bench.now + 1ms);
    bench.Wait(1ms);
    EXPECT_FALSE(bench.module.OnBus());
    EXPECT_FALSE(bench.module.At(Port::Main).IsConnected());
    EXPECT_FALSE(bench.module.At(Port::Alternate).IsConnected());
    EXPECT_EQ(bench.module.At(Port::Main).NextDeadline(), std::nullopt);
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), "");
}

TEST(CellularModuleTest, WhatItSentBeforeItLeftIsNotLost)
{
    CellularBench bench;
    bench.Ask("AT+QPOWD=1\r\n");
    EXPECT_EQ(bench.WaitForText(10s), POWERED_DOWN);
    EXPECT_EQ(bench.WaitForText(0s, Port::Alternate), POWERED_DOWN);
}

TEST(CellularModuleTest, UnpluggedItLosesWhatIsUnderWay)
{
    CellularBench bench;
    bench.Ask("AT+COPS=?\r\n");
    bench.Ask("AT+CS", Port::Alternate);
    bench.module.Unplug();
    EXPECT_FALSE(bench.module.OnBus());
    EXPECT_EQ(bench.WaitForText(10s), "");
    bench.module.PlugIn();
    EXPECT_EQ(bench.WaitForText(10s), "");
    EXPECT_EQ(bench.Ask("Q\r\n", Port::Alternate), "Q\r");
}

TEST(CellularModuleTest, PluggedInAgainItBeginsAnew)
{
    CellularBench bench;
    bench.Ask("ATE0\r\nAT+CREG=2\r\nAT+CGREG=2\r\nAT+COPS=3,2\r\nAT+QCFG=\"band\",7,1\r\n");
    bench.module.Unplug();
    bench.module.PlugIn();
    EXPECT_TRUE(bench.module.OnBus());
    EXPECT_TRUE(bench.module.At(Port::Main).IsConnected());
    EXPECT_EQ(bench.Ask("AT+CREG?\r\n"), "AT+CREG?\r\r\n+CREG: 0,1\r\n" + RESULT);
    EXPECT_THAT(bench.Ask("AT+CGREG?\r\n"), HasSubstr("+CGREG: 0,1\r\n"));
    EXPECT_THAT(bench.Ask("AT+COPS?\r\n"), HasSubstr("\"Home Network\""));
    EXPECT_EQ(bench.module.State().configuration["band"], "7") << "kept without power";
}

TEST(CellularModuleTest, ItMayBeUnpluggedAtATime)
{
    CellularBench bench;
    Transmitter::Options line;
    line.pieceBytes = 8;
    line.pieceGap = 10ms;
    bench.module.At(Port::Main).SetLine(line);
    bench.module.UnplugAt(bench.now + 15ms);
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), REPLY.substr(0, 8));
    EXPECT_EQ(bench.module.At(Port::Alternate).NextDeadline(), bench.now + 15ms);
    EXPECT_EQ(bench.WaitForText(1s), REPLY.substr(8, 8));
    EXPECT_FALSE(bench.module.OnBus());
}

TEST(CellularModuleTest, AnInterfaceThatHadAHostNeedsANewOne)
{
    CellularBench bench;
    CellularModule::Interface& interface = bench.module.At(Port::Main);
    int woken = 0;
    interface.Attach([&] { ++woken; });
    EXPECT_TRUE(interface.IsConnected());
    bench.module.Unplug();
    EXPECT_EQ(woken, 1);
    bench.module.PlugIn();
    EXPECT_FALSE(interface.IsConnected()) << "the host may not have seen it go";
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), "");
    EXPECT_TRUE(bench.module.At(Port::Alternate).IsConnected());
    interface.Attach({});
    interface.Attach([&] { ++woken; });
    EXPECT_TRUE(interface.IsConnected());
    EXPECT_EQ(bench.Ask(ASK_SIGNAL), REPLY);
}

TEST(CellularModuleTest, TheOtherInterfacesHostIsWokenForAReport)
{
    CellularBench bench;
    bench.Ask("AT+CREG=1\r\n");
    int woken = 0;
    bench.module.At(Port::Alternate).Attach([&] { ++woken; });
    bench.Ask("AT+COPS=1,2,\"99902\",2\r\n");
    EXPECT_EQ(woken, 0);
    bench.Wait(2s);
    EXPECT_EQ(woken, 1);
    bench.Ask("AT+QPOWD=1\r\n");
    EXPECT_EQ(woken, 2);
    bench.Wait(2s);
    EXPECT_EQ(woken, 3);
}

TEST(CellularModuleTest, PresenceIsToldAtOnceAndAtEachChange)
{
    CellularBench bench;
    std::vector<bool> told;
    bench.module.TellPresence(&told, [&](bool onBus) { told.push_back(onBus); });
    bench.module.PlugIn(); // it is
    bench.module.Unplug();
    bench.module.Unplug();
    bench.module.UnplugAt(bench.now);
    bench.Wait(1s);
    bench.module.PlugIn();
    bench.Ask("AT+QPOWD=1\r\n");
    bench.Wait(2s);
    EXPECT_THAT(told, ElementsAre(true, false, true, false));
}

TEST(CellularModuleTest, ManyThreadsMayUseItAtOnce)
{
    CellularBench bench;
    std::atomic<int> replies{0};
    const auto host = [&](Port port) {
        CellularModule::Interface& interface = bench.module.At(port);
        interface.Attach([] {});
        auto now = bench.now;
        for (int i = 0; i < 300; ++i)
        {
            now += 1ms;
            interface.Receive("AT+CREG=2\r\nAT+CREG?\r\n", now);
            interface.Advance(now);
            interface.NextDeadline();
            for (const std::string& piece : interface.TakeOutput())
            {
                replies += piece.starts_with("AT+CREG?") ? 1 : 0;
            }
        }
    };
    std::thread first(host, Port::Main);
    std::thread second(host, Port::Alternate);
    for (int i = 0; i < 100; ++i)
    {
        bench.module.Change([&](CellularState& state) { state.cell = std::to_string(i); });
        bench.module.Spoil([&](Faults& faults) { faults.beforeResult = std::string(1, 'x'); });
        EXPECT_TRUE(bench.module.OnBus());
    }
    first.join();
    second.join();
    EXPECT_EQ(replies, 600);
}

}
