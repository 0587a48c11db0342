// Configuration, disconnection, power-down.

#include "tests/Modem/ModemTest.h"

#include <climits>
#include <ostream>

using testing::ElementsAre;
using testing::IsEmpty;

namespace ModemTests
{

namespace
{

struct SetterRow
{
    const char* name;
    int (*set)(int);
    std::vector<int> rejected;
};

void PrintTo(const SetterRow& row, std::ostream* out)
{
    *out << row.name;
}

class Setter : public ModemTest, public testing::WithParamInterface<SetterRow>
{
};

TEST_P(Setter, RejectsOtherValuesWithoutSendingAnything)
{
    for (const int value : GetParam().rejected)
    {
        EXPECT_EQ(GetParam().set(value), -1) << value;
    }
    EXPECT_EQ(Clock::Elapsed(), 0ms);
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
    EXPECT_EQ(module.Received(), "");
    EXPECT_THAT(Logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, Setter,
    testing::Values(SetterRow{"SetPowerSaveMode", Module3G::SetPowerSaveMode, {2, -1, 3, INT_MAX, INT_MIN}},
                    SetterRow{
                        "SetNetworkSearchMode", Module3G::SetNetworkSearchMode, {3, -1, 4, INT_MAX, INT_MIN}},
                    SetterRow{"SetBand", Module3G::SetBand, {0, 513, -1, -512, INT_MAX, INT_MIN}},
                    SetterRow{"SetSleepMode", Module3G::SetSleepMode, {2, -1, 3, INT_MAX, INT_MIN}}),
    [](const testing::TestParamInfo<SetterRow>& row) { return row.param.name; });

TEST_F(ModemTest, AnAcceptedSettingIsZero)
{
    module.Accept("AT+QCFG=\"pwrsavedtr\",1\r\n");
    module.Accept("AT+QCFG=\"nwscanmode\",2,1\r\n");
    module.Accept("AT+QCFG=\"band\",511,1\r\n");
    module.Accept("AT+QCFG=\"vbatt\",-2,3300,1\r\n");
    module.Accept("AT+QSCLK?\r\n", "+QSCLK: 0");
    EXPECT_EQ(Module3G::SetPowerSaveMode(1), 0);
    EXPECT_EQ(Module3G::SetNetworkSearchMode(2), 0);
    EXPECT_EQ(Module3G::SetBand(511), 0);
    EXPECT_EQ(Module3G::SetLowVoltageLimit(3300, true), 0);
    EXPECT_EQ(Module3G::SetSleepMode(1), 0) << "whatever the module's mode is";
    EXPECT_EQ(Clock::Elapsed(), 5 * CYCLE);
}

// Disconnection ------------------------------------------------------------------------------------------

class DisconnectionTest : public ModemTest
{
protected:
    DisconnectionTest()
    {
        module.Accept(HANG_UP);
        module.Accept(DEACTIVATE);
        module.Accept(DETACH);
    }

    static constexpr const char* HANG_UP = "ATH\r\n";
    static constexpr const char* DEACTIVATE = "AT+CGACT=0,1\r\n";
    static constexpr const char* DETACH = "AT+CGATT=0\r\n";
};

TEST_F(DisconnectionTest, TakesItsThreeStepsInOrderAndTwoSeconds)
{
    EXPECT_EQ(Module3G::SendDisconnectCommands(), 1);
    EXPECT_EQ(module.Received(), "ATH\r\nAT+CGACT=0,1\r\nAT+CGATT=0\r\n");
    EXPECT_EQ(Clock::Elapsed(), 3 * CYCLE + 2s);
    EXPECT_EQ(Kit::System::Sleeps().back(), 2s);
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(DisconnectionTest, EndsAtTheFirstStepThatIsRefused)
{
    module.Refuse(DETACH);
    EXPECT_EQ(Module3G::SendDisconnectCommands(), 0);
    EXPECT_EQ(module.Received(), "ATH\r\nAT+CGACT=0,1\r\nAT+CGATT=0\r\n");
    EXPECT_EQ(Clock::Elapsed(), 3 * CYCLE) << "no pause behind a failure";
    module.ForgetReceived();
    module.Refuse(DEACTIVATE);
    EXPECT_EQ(Module3G::SendDisconnectCommands(), 0);
    EXPECT_EQ(module.Received(), "ATH\r\nAT+CGACT=0,1\r\n");
    module.ForgetReceived();
    module.Refuse(HANG_UP);
    EXPECT_EQ(Module3G::SendDisconnectCommands(), 0);
    EXPECT_EQ(module.Received(), "ATH\r\n");
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(DisconnectionTest, WaitsForEachStepAsLongAsItMayTake)
{
    module.On(HANG_UP, Answer{{89'850ms, Reply(HANG_UP)}});
    module.On(DEACTIVATE, Answer{{149'850ms, Reply(DEACTIVATE)}});
    module.On(DETACH, Answer{{89'850ms, Reply(DETACH)}});
    EXPECT_EQ(Module3G::SendDisconnectCommands(), 1);
    EXPECT_EQ(Clock::Elapsed(), 89'900ms + 149'900ms + 89'900ms + 2s);
}

TEST_F(DisconnectionTest, GivesUpOnASilentSecondStepAfter150Seconds)
{
    module.On(DEACTIVATE, Answer{});
    EXPECT_EQ(Module3G::SendDisconnectCommands(), 0);
    EXPECT_EQ(Clock::Elapsed(), CYCLE + 150s);
}

TEST_F(DisconnectionTest, GivesUpOnASilentThirdStepAfter90Seconds)
{
    module.On(DETACH, Answer{});
    EXPECT_EQ(Module3G::SendDisconnectCommands(), 0);
    EXPECT_EQ(Clock::Elapsed(), 2 * CYCLE + 90s);
}

class RefusedDisconnection : public DisconnectionTest, public testing::WithParamInterface<int>
{
};

TEST_P(RefusedDisconnection, LetsTheExceptionPass)
{
    Kit::System::Fail("tcsetattr", EIO, GetParam());
    testing::internal::CaptureStdout();
    EXPECT_THROW(Module3G::SendDisconnectCommands(), IException);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(Count("open"), static_cast<std::size_t>(GetParam()));
    AllowDescriptors(1);
}

INSTANTIATE_TEST_SUITE_P(Steps, RefusedDisconnection, testing::Range(1, 4));

TEST_F(DisconnectionTest, AnotherThreadMayExchangeBetweenTheSteps)
{
    module.On(HANG_UP, Answer{{1050ms, Reply(HANG_UP)}});
    module.Accept("AT+CSQ\r\n", "+CSQ: 17,0");
    int signal = -1;
    std::thread other([&signal] {
        std::this_thread::sleep_for(500ms);
        signal = Module3G::CheckSignal(); // waits for the first step's end
    });
    EXPECT_EQ(Module3G::SendDisconnectCommands(), 1);
    other.join();
    EXPECT_EQ(signal, 0);
    EXPECT_EQ(module.Received().find("ATH\r\n"), 0u);
    EXPECT_NE(module.Received().find("AT+CSQ\r\n"), std::string::npos);
}

TEST_F(DisconnectionTest, TheLastPauseHoldsNoLock)
{
    std::thread disconnecting([] { EXPECT_EQ(Module3G::SendDisconnectCommands(), 1); });
    std::this_thread::sleep_for(3 * CYCLE + 1s);
    EXPECT_TRUE(LockIsFree());
    disconnecting.join();
}

// Power-down ---------------------------------------------------------------------------------------------

constexpr const char* POWER_DOWN = "AT+QPOWD=1\r\n";
constexpr const char* POWER_SAVE_OFF = "AT+QCFG=\"pwrsavedtr\",0\r\n";

TEST_F(ModemTest, AModuleThatIsOffCannotSetItsPowerSaveMode)
{
    module.Accept(POWER_DOWN);
    Module3G::SendPowerDownCommand();
    EXPECT_EQ(module.Received(), std::string(POWER_DOWN) + POWER_SAVE_OFF);
    EXPECT_EQ(Clock::Elapsed(), CYCLE + 10s + SHORT_CYCLES * CYCLE);
    EXPECT_THAT(module.Times(), ElementsAre(0s, CYCLE + 10s));
    EXPECT_THAT(Logged(), ElementsAre("[ERROR][#CELL]Set power save mode error"));
}

TEST_F(ModemTest, AModuleThatStillAnswersSetsItsPowerSaveMode)
{
    module.Accept(POWER_DOWN);
    module.Accept(POWER_SAVE_OFF);
    Module3G::SendPowerDownCommand();
    EXPECT_EQ(Clock::Elapsed(), 10s + 2 * CYCLE);
    EXPECT_THAT(Logged(), ElementsAre("[#CELL]Module power save mode turned off"));
}

TEST_F(ModemTest, AModuleUnpluggedByItsPowerDownIsTheSame)
{
    module.Accept(POWER_DOWN);
    std::thread unplug([] {
        std::this_thread::sleep_for(5s);
        Kit::System::Unredirect(MAIN_PORT);
    });
    Module3G::SendPowerDownCommand();
    unplug.join();
    EXPECT_EQ(module.Received(), POWER_DOWN);
    EXPECT_EQ(Clock::Elapsed(), CYCLE + 10s + 400ms);
    EXPECT_THAT(Logged(), ElementsAre("[ERROR][#CELL]Set power save mode error"));
}

TEST_F(ModemTest, ThePauseOfThePowerDownHoldsNoLock)
{
    module.Accept(POWER_DOWN);
    std::thread powerDown(Module3G::SendPowerDownCommand);
    std::this_thread::sleep_for(5s);
    EXPECT_TRUE(LockIsFree());
    powerDown.join();
}

TEST_F(ModemTest, RefusedSettingsAfterThePowerDownThrow)
{
    module.Accept(POWER_DOWN);
    Kit::System::Fail("tcsetattr", EIO, 2);
    testing::internal::CaptureStdout();
    EXPECT_THROW(Module3G::SendPowerDownCommand(), IException);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(Clock::Elapsed(), CYCLE + 10s);
    EXPECT_THAT(Logged(), IsEmpty());
    AllowDescriptors(1);
}

}

}
