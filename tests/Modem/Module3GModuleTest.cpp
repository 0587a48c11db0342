// From end to end: the class with an emulated module at the other end of both interfaces.

#include "tests/Modem/ModemTest.h"

#include "tests/virtual-unit/ports/EmulatedLine.h"
#include "virtual-unit/peripherals/CellularModule.h"

#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <unistd.h>

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace ModemTests
{

namespace
{

using VirtualUnit::CellularModule;
using VirtualUnit::CellularState;
using Faults = CellularModule::Faults;
using Port = CellularModule::Port;
using Registered = CellularState::Registration;

constexpr std::chrono::milliseconds FIRST_WAIT = CYCLE;

class EmulatedModuleTest : public ModemStateTest
{
protected:
    EmulatedModuleTest()
    {
        PlugIn();
        module.TellPresence(this, [](bool onBus) {
            if (!onBus)
            {
                Unplugged();
            }
        });
    }

    ~EmulatedModuleTest() override
    {
        mainLine.reset();
        alternateLine.reset();
        Unplugged();
    }

    void PlugIn()
    {
        mainLine.reset();
        alternateLine.reset();
        module.PlugIn();
        mainLine = Connect(Port::Main, MAIN_PORT);
        alternateLine = Connect(Port::Alternate, ALTERNATE_PORT);
    }

    template <class Function>
    void Change(Function function)
    {
        module.Change(function);
    }

    template <class Function>
    void Spoil(Function function)
    {
        module.Spoil(function);
    }

    /// What the main interface got since the test began.
    std::string Commands() const { return mainLine->ReceivedText(); }

    /// How long the function takes.
    template <class Function>
    static std::chrono::nanoseconds Time(Function function)
    {
        const auto begin = Clock::Elapsed();
        function();
        return Clock::Elapsed() - begin;
    }

    CellularModule module;
    std::unique_ptr<EmulatedLine> mainLine;
    std::unique_ptr<EmulatedLine> alternateLine;

private:
    std::unique_ptr<EmulatedLine> Connect(Port port, const char* path)
    {
        auto line = std::make_unique<EmulatedLine>(module.At(port));
        Kit::System::Redirect(path, line->Path());
        line->Start();
        return line;
    }

    static void Unplugged()
    {
        Kit::System::Unredirect(MAIN_PORT);
        Kit::System::Unredirect(ALTERNATE_PORT);
    }
};

PreferredOperator Preferred(int code)
{
    PreferredOperator row = {};
    row.name = std::to_string(code);
    row.code = code;
    return row;
}

TEST_F(EmulatedModuleTest, TellsWhoItIs)
{
    EXPECT_EQ(Module3G::StoreModuleIdentityItems(), 0);
    EXPECT_EQ(Module3G::m3gIMEI, "359999012345678");
    EXPECT_EQ(Module3G::m3gSimIMSI, "999010123456789");
    EXPECT_EQ(Module3G::m3gSimICCID, "89999010123456789012");
    EXPECT_EQ(Module3G::m3g_fw_version, "UC15EQAR02A05E1G");
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_EQ(Commands(), "ATI\r\nAT+CGSN\r\nAT+CIMI\r\nAT+QCCID\r\nAT+QCFG=\"pwrsavedtr\",0\r\n");
}

TEST_F(EmulatedModuleTest, AnExchangeTakesOneWait)
{
    EXPECT_EQ(Time([] { Module3G::QueryModuleIMEI(); }), FIRST_WAIT);
    EXPECT_EQ(Gathered(), "AT+CGSN\r\r\n359999012345678\r\n\r\nOK\r\n");
}

TEST_F(EmulatedModuleTest, AnIccidOf19DigitsIsKeptWithItsLineEnd)
{
    Change([](CellularState& state) { state.iccid = "8999901012345678901"; });
    EXPECT_EQ(Module3G::QuerySimICCID(), 0);
    EXPECT_EQ(Module3G::m3gSimICCID, "8999901012345678901\r");
}

TEST_F(EmulatedModuleTest, WithoutASimThereIsNoSimIdentity)
{
    Change([](CellularState& state) { state.sim = false; });
    EXPECT_EQ(Module3G::StoreModuleIdentityItems(), 0);
    EXPECT_EQ(Module3G::m3gIMEI, "359999012345678");
    EXPECT_EQ(Module3G::m3gSimIMSI, "");
    EXPECT_EQ(Module3G::m3gSimICCID, "");
    EXPECT_THAT(Logged(), ElementsAre(EndsWith("Read SIM IMSI error"), EndsWith("Read SIM ICCID error")));
    EXPECT_FALSE(Module3G::IsRegistered());
    EXPECT_EQ(Module3G::registration_status, 0);
    std::list<Operator> operators;
    EXPECT_EQ(Module3G::GetCarriersList(&operators), -1);
    std::string name;
    EXPECT_FALSE(Module3G::GetCarrierName(name));
}

TEST_F(EmulatedModuleTest, SignalIsReadOnBothInterfaces)
{
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    EXPECT_EQ(Module3G::signal_status.rssi, 20);
    EXPECT_EQ(Module3G::signal_status.dBm, -73);
    EXPECT_STREQ(Module3G::signal_status.description, "Excellent");
    Change([](CellularState& state) { state.rssi = 9; });
    EXPECT_EQ(Module3G::CheckSignal(true), 0);
    EXPECT_EQ(Module3G::signal_status.rssi, 9);
    EXPECT_STREQ(Module3G::signal_status.description, "Marginal");
    Change([](CellularState& state) { state.rssi = 99; });
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    EXPECT_EQ(Module3G::signal_status.rssi, 9);
    EXPECT_STREQ(Module3G::signal_status.description, "Not known");
    EXPECT_EQ(Commands(), "AT+CSQ\r\nAT+CSQ\r\n");
    EXPECT_EQ(alternateLine->ReceivedText(), "AT+CSQ\r\n");
}

TEST_F(EmulatedModuleTest, VoltageAndTimeAreRead)
{
    EXPECT_EQ(Module3G::GetVoltageLevel(), 3980);
    EXPECT_EQ(Module3G::GetTime(), 0);
    EXPECT_THAT(Gathered(), HasSubstr("+QLTS: \"26/03/01,08:15:0"));
}

TEST_F(EmulatedModuleTest, EachRegistrationStateIsRead)
{
    for (const int reports : {0, 1, 2})
    {
        for (int value = 0; value <= 5; ++value)
        {
            Change([](CellularState& state) { state.registrationReports = 0; }); // none in between
            Change([&](CellularState& state) { state.registration = static_cast<Registered>(value); });
            Change([&](CellularState& state) { state.registrationReports = reports; });
            EXPECT_EQ(Module3G::GetRegistrationStatus(), value) << reports;
            EXPECT_EQ(Module3G::IsRegistered(), value == 1 || value == 5);
        }
    }
}

TEST_F(EmulatedModuleTest, ReportsAreSwitchedOn)
{
    EXPECT_EQ(Module3G::EnableNetworkRegistration(), 0);
    EXPECT_EQ(module.State().registrationReports, 2);
    EXPECT_EQ(module.State().packetRegistrationReports, 2);
    EXPECT_EQ(Module3G::GetRegistrationStatus(), 1);
    EXPECT_THAT(Gathered(), HasSubstr("+CREG: 2,1,\"D509\",\"80D413D\"\r\n"));
}

TEST_F(EmulatedModuleTest, AReportBetweenTwoExchangesIsReadWithTheNext)
{
    Module3G::EnableNetworkRegistration();
    Change([](CellularState& state) { state.registration = Registered::Searching; });
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    EXPECT_THAT(Gathered(), StartsWith("\r\n+CREG: 2\r\n\r\n+CGREG: 2\r\nAT+CSQ\r"));
}

TEST_F(EmulatedModuleTest, TheOperatorsAreListedWithOneThatIsNone)
{
    Change([](CellularState& state) { state.scanTime = 169950ms; });
    std::list<Operator> operators;
    EXPECT_EQ(Time([&] { EXPECT_EQ(Module3G::GetCarriersList(&operators), 0); }), 170s);
    Texts listed;
    for (const Operator& item : operators)
    {
        listed.push_back(item.numeric + "/" + std::to_string(item.accessTechnology) + "/" +
                         std::to_string(item.status));
    }
    // The first is the module's list of supported modes.
    EXPECT_THAT(listed, ElementsAre("/4/0", "99901/2/2", "99902/2/1", "99901/0/1", "99903/0/3"));
}

TEST_F(EmulatedModuleTest, AScanBeyondThreeMinutesIsGivenUp)
{
    Change([](CellularState& state) { state.scanTime = 181s; });
    std::list<Operator> operators;
    EXPECT_EQ(Time([&] { EXPECT_EQ(Module3G::GetCarriersList(&operators), -1); }), 180s);
    EXPECT_THAT(operators, IsEmpty());
    // The module is busy for one more second, and its answer is still to come.
    EXPECT_EQ(Module3G::CheckSignal(), -1);
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    EXPECT_THAT(Gathered(), StartsWith("\r\n+COPS: (2,"));
}

TEST_F(EmulatedModuleTest, ThePreferredOperatorThatIsOfferedIsSelected)
{
    for (const int code : {26201, 99903, 99902, 99901})
    {
        Module3G::PreferredOperatorList.push_back(Preferred(code));
    }
    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_THAT(Commands(), EndsWith("AT+COPS=1,2,\"99902\",2\r\n"));
    EXPECT_EQ(Module3G::GetRegistrationStatus(), 5);
    std::string name;
    EXPECT_TRUE(Module3G::GetCarrierName(name));
    EXPECT_EQ(name, "99902,2");
    PreferredOperator found;
    EXPECT_TRUE(Module3G::FindPrefferedOperator(found));
    EXPECT_EQ(found.code, 99902);
}

TEST_F(EmulatedModuleTest, TheModuleChoosesItsHomeNetwork)
{
    Change([](CellularState& state) {
        state.registration = Registered::NotSearching;
        state.registrationTime = 1950ms;
    });
    Module3G::PreferredOperatorList.push_back(Preferred(99902));
    Module3G::SwitchToAutoCarrierSelectionMode();
    EXPECT_EQ(Time([] { EXPECT_EQ(Module3G::SelectNetwork(), 1); }), 2s);
    EXPECT_EQ(Commands(), "AT+COPS=0\r\n");
    EXPECT_TRUE(Module3G::IsRegistered());
    std::string name;
    EXPECT_TRUE(Module3G::GetCarrierName(name));
    EXPECT_EQ(name, "Home Network,2");
}

TEST_F(EmulatedModuleTest, ConfigurationReachesTheModule)
{
    EXPECT_EQ(Module3G::SetPowerSaveMode(1), 0);
    EXPECT_EQ(Module3G::SetNetworkSearchMode(2), 0);
    EXPECT_EQ(Module3G::SetBand(511), 0);
    EXPECT_EQ(Module3G::SetLowVoltageLimit(3400, true), 0);
    EXPECT_EQ(Module3G::SetSleepMode(1), 0);
    EXPECT_THAT(module.State().configuration,
                ElementsAre(std::pair("band", "511"), std::pair("nwscanmode", "2"),
                            std::pair("pwrsavedtr", "1"), std::pair("vbatt", "-2,3400,1")));
    EXPECT_EQ(module.State().slowClock, 0) << "only asked for";
}

TEST_F(EmulatedModuleTest, TheDataConnectionIsTakenDown)
{
    Change([](CellularState& state) { state.context = true; });
    EXPECT_EQ(Time([] { EXPECT_EQ(Module3G::SendDisconnectCommands(), 1); }), 3 * FIRST_WAIT + 2s);
    EXPECT_FALSE(module.State().context);
    EXPECT_FALSE(module.State().attached);
    EXPECT_EQ(Commands(), "ATH\r\nAT+CGACT=0,1\r\nAT+CGATT=0\r\n");
}

TEST_F(EmulatedModuleTest, DisconnectionEndsAtTheFirstError)
{
    Spoil([](Faults& faults) { faults.errors = 1; });
    EXPECT_EQ(Module3G::SendDisconnectCommands(), 0);
    EXPECT_EQ(Commands(), "ATH\r\n");
    EXPECT_TRUE(module.State().attached);
}

TEST_F(EmulatedModuleTest, PoweredDownItIsGone)
{
    Module3G::SendPowerDownCommand();
    EXPECT_FALSE(module.OnBus());
    EXPECT_THAT(Logged(), ElementsAre(EndsWith("Set power save mode error")));
    EXPECT_EQ(Commands(), "AT+QPOWD=1\r\n");
    EXPECT_EQ(Exchange("AT\r\n", SHORT_CYCLES), -3);
    EXPECT_EQ(Module3G::CheckSignal(true), -1);
}

TEST_F(EmulatedModuleTest, UnpluggedBetweenTwoExchangesItIsFoundWhenItIsBack)
{
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    module.Unplug();
    EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), -3);
    PlugIn();
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    EXPECT_EQ(Module3G::CheckSignal(true), 0);
}

TEST_F(EmulatedModuleTest, UnpluggedDuringAnExchangeItGivesNoAnswer)
{
    Spoil([](Faults& faults) { faults.delay = 200ms; });
    module.UnplugAt(std::chrono::steady_clock::now() + 150ms);
    EXPECT_EQ(Time([] { EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), -2); }), SHORT_CYCLES * CYCLE);
    EXPECT_EQ(Gathered(), "AT+CSQ\r");
    EXPECT_TRUE(mainLine->HungUp());
    EXPECT_TRUE(alternateLine->HungUp());
    Spoil([](Faults& faults) { faults = {}; });
    PlugIn();
    EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), 0);
}

TEST_F(EmulatedModuleTest, AnAnswerWithinTheCyclesCounts)
{
    Spoil([](Faults& faults) { faults.delay = 250ms; });
    EXPECT_EQ(Time([] { EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), 0); }), 300ms);
}

TEST_F(EmulatedModuleTest, ALateAnswerStandsInFrontOfTheNextAndDisplacesItsNumber)
{
    Spoil([](Faults& faults) { faults.delay = 600ms; });
    EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), -2);
    Spoil([](Faults& faults) { faults.delay = 0ms; });
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(Module3G::QueryModuleIMEI(), -1);
    EXPECT_THAT(Gathered(), StartsWith("\r\n+CSQ: 20,99\r\n\r\nOK\r\nAT+CGSN\r\r\n359999012345678\r\n"));
    EXPECT_EQ(Module3G::QueryModuleIMEI(), 0) << "the one after it is sound";
}

TEST_F(EmulatedModuleTest, ALateEchoWithItsAnswerStandsInForTheNext)
{
    Spoil([](Faults& faults) {
        faults.delay = 600ms;
        faults.lateEcho = true;
    });
    EXPECT_EQ(Module3G::CheckSignal(), -1);
    Change([](CellularState& state) { state.rssi = 1; }); // too late: it is asked when the answer is due
    std::this_thread::sleep_for(1s);
    Change([](CellularState& state) { state.rssi = 31; });
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    EXPECT_EQ(Module3G::signal_status.rssi, 1) << "the value of the first exchange";
}

TEST_F(EmulatedModuleTest, RepliesInPiecesAreGathered)
{
    VirtualUnit::Transmitter::Options line;
    line.pieceGap = 6ms;
    for (int bytes = 1; bytes < 30; ++bytes)
    {
        line.pieceBytes = static_cast<std::size_t>(bytes);
        module.At(Port::Main).SetLine(line);
        Change([&](CellularState& state) { state.rssi = bytes; });
        EXPECT_EQ(Module3G::CheckSignal(), 0) << bytes;
        EXPECT_EQ(Module3G::signal_status.rssi, bytes);
    }
}

TEST_F(EmulatedModuleTest, WithoutItsEchoItIsNotHeard)
{
    EXPECT_EQ(Exchange("ATE0\r\n", SHORT_CYCLES), 0);
    EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), -2);
    EXPECT_EQ(Gathered(), "\r\n+CSQ: 20,99\r\n\r\nOK\r\n");
    EXPECT_EQ(Exchange("ATE1\r\n", SHORT_CYCLES), -2) << "on from the next";
    EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), 0);
}

TEST_F(EmulatedModuleTest, ErrorsAreToldUntilTheyEnd)
{
    Spoil([](Faults& faults) { faults.errors = 1; });
    EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), -1);
    EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), 0);
    EXPECT_EQ(Exchange("AT+NOSUCH\r\n", SHORT_CYCLES), -1);
    Spoil([](Faults& faults) { faults.errors = Faults::EVERY; });
    EXPECT_EQ(Module3G::GetRegistrationStatus(), -1);
    EXPECT_EQ(Module3G::GetVoltageLevel(), -1);
    EXPECT_EQ(Module3G::CheckSignal(true), 0) << "the other interface";
}

TEST_F(EmulatedModuleTest, NoiseAroundTheAnswerIsPassedOver)
{
    const std::string noise = "\x01\xFF~#\r\n";
    Spoil([&](Faults& faults) { faults.beforeEcho = faults.behindEcho = faults.beforeResult = noise; });
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    EXPECT_EQ(Module3G::signal_status.rssi, 20);
    EXPECT_EQ(Module3G::GetVoltageLevel(), 3980);
    EXPECT_EQ(Module3G::GetRegistrationStatus(), 1);
}

TEST_F(EmulatedModuleTest, NoiseBetweenEchoAndNumberBecomesThatNumber)
{
    Spoil([](Faults& faults) { faults.behindEcho = "\r\nRING\r\n"; });
    EXPECT_EQ(Module3G::QueryModuleIMEI(), 0);
    EXPECT_EQ(Module3G::m3gIMEI, "RING35999901234");
}

TEST_F(EmulatedModuleTest, AZeroByteHidesTheAnswer)
{
    Spoil([](Faults& faults) { faults.behindEcho = std::string(1, '\0'); });
    EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), -2);
}

TEST_F(EmulatedModuleTest, NoiseWithinTheAnswerSpoilsTheNumber)
{
    Spoil([](Faults& faults) { faults.inInformation = "?"; });
    EXPECT_THROW(Module3G::CheckSignal(), std::invalid_argument);
}

TEST_F(EmulatedModuleTest, AShortReportInFrontOfTheAnswerDoesNoHarm)
{
    Spoil([](Faults& faults) { faults.behindEcho = "\r\n+CREG: 5\r\n\r\nRING\r\n\r\n+QIND: \"csq\"\r\n"; });
    EXPECT_EQ(Module3G::GetRegistrationStatus(), 1);
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    EXPECT_EQ(Module3G::signal_status.rssi, 20);
}

TEST_F(EmulatedModuleTest, AReportWithLocationInFrontOfTheAnswerIsReadAsTheAnswer)
{
    Spoil([](Faults& faults) { faults.behindEcho = "\r\n+CREG: 5,\"D509\",\"80D413D\"\r\n"; });
    EXPECT_THROW(Module3G::GetRegistrationStatus(), std::invalid_argument);
    EXPECT_EQ(Module3G::registration_status, -1);
}

TEST_F(EmulatedModuleTest, TheSameForAReportBetweenTwoExchanges)
{
    Module3G::EnableNetworkRegistration();
    Change([](CellularState& state) { state.registration = Registered::Roaming; });
    EXPECT_THROW(Module3G::GetRegistrationStatus(), std::invalid_argument);
    EXPECT_EQ(Module3G::GetRegistrationStatus(), 5) << "the next time";
}

TEST_F(EmulatedModuleTest, AFloodWithoutAResultIsLeft)
{
    Spoil([](Faults& faults) { faults.flood = 4096; });
    EXPECT_EQ(Exchange("AT+COPS=?\r\n", 1800), -2);
    EXPECT_GT(Gathered().size(), 3841u);
    EXPECT_LE(Gathered().size(), REPLY_BYTES);
    Spoil([](Faults& faults) { faults.flood = 0; });
    EXPECT_EQ(Exchange("AT+CSQ\r\n", SHORT_CYCLES), 0);
}

TEST_F(EmulatedModuleTest, SilenceIsNoAnswer)
{
    Spoil([](Faults& faults) { faults.silent = true; });
    EXPECT_EQ(Time([] { EXPECT_EQ(Module3G::SetPowerSaveMode(1), -1); }), SHORT_CYCLES * CYCLE);
    EXPECT_EQ(Gathered(), "");
    EXPECT_EQ(module.State().configuration["pwrsavedtr"], "1") << "obeyed";
    Spoil([](Faults& faults) { faults.silent = false; });
    EXPECT_EQ(Module3G::CheckSignal(), 0);
}

TEST_F(EmulatedModuleTest, RefusedLineSettingsReachTheCaller)
{
    AllowDescriptors(1);
    Kit::System::Fail("tcsetattr", EIO);
    EXPECT_THROW(Module3G::CheckSignal(), IException);
    EXPECT_EQ(Commands(), "");
    EXPECT_EQ(Module3G::CheckSignal(), 0);
}

TEST_F(EmulatedModuleTest, ThreadsOnBothInterfacesTakeTurns)
{
    std::vector<std::thread> threads;
    for (const bool alternate : {false, true})
    {
        threads.emplace_back([alternate] {
            for (int i = 0; i < 20; ++i)
            {
                EXPECT_EQ(ExchangeOn(alternate ? ALTERNATE_PORT : MAIN_PORT, "AT+CSQ\r\n", SHORT_CYCLES), 0);
            }
        });
    }
    for (int i = 0; i < 20; ++i)
    {
        Change([&](CellularState& state) { state.cell = std::to_string(i); });
        std::this_thread::sleep_for(CYCLE);
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(Commands().size(), 20 * std::string_view("AT+CSQ\r\n").size());
}

}

}
