// What an emulated cellular module answers to each command.

#include "tests/virtual-unit/peripherals/CellularBench.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::ElementsAre;
using testing::IsEmpty;
using Operator = CellularState::Operator;
using Registration = CellularState::Registration;
using Status = CellularState::Operator::Status;

/// The reply to a command, from its echo to its result.
std::string Reply(const std::string& command, const std::vector<std::string>& information,
                  const std::string& result = "OK")
{
    std::string reply = command + "\r" + (information.empty() ? "" : "\r\n");
    for (const std::string& line : information)
    {
        reply += line + "\r\n";
    }
    return reply + "\r\n" + result + "\r\n";
}

class CellularStateTest : public testing::Test
{
protected:
    /// Asks, and waits as long as it takes.
    std::string Ask(const std::string& command)
    {
        const std::string text = bench.Ask(command + "\r\n");
        return text + bench.WaitForText(10s);
    }

    void ExpectReply(const std::string& command, const std::vector<std::string>& information)
    {
        EXPECT_EQ(Ask(command), Reply(command, information));
    }

    void ExpectResult(const std::string& command, const std::string& result)
    {
        EXPECT_EQ(Ask(command), Reply(command, {}, result));
    }

    template <class Function>
    void Change(Function function)
    {
        bench.module.Change(function);
    }

    CellularBench bench;
};

TEST_F(CellularStateTest, ThePlainAttentionCommandIsAgreedTo)
{
    ExpectReply("AT", {});
    ExpectReply("at", {});
}

TEST_F(CellularStateTest, TheModuleTellsWhoItIs)
{
    ExpectReply("AT+CGSN", {"359999012345678"});
    ExpectReply("ATI", {"Quectel", "UC15", "Revision: UC15EQAR02A05E1G"});
    Change([](CellularState& state) {
        state.imei = "123456789012345";
        state.revision = "R2";
    });
    ExpectReply("AT+CGSN", {"123456789012345"});
    ExpectReply("ati", {"Quectel", "UC15", "Revision: R2"});
}

TEST_F(CellularStateTest, TheModuleTellsItsSim)
{
    ExpectReply("AT+CIMI", {"999010123456789"});
    ExpectReply("AT+QCCID", {"+QCCID: 89999010123456789012"});
    Change([](CellularState& state) { state.iccid = "8999901012345678901"; });
    ExpectReply("AT+QCCID", {"+QCCID: 8999901012345678901"});
}

TEST_F(CellularStateTest, WithoutASimThereIsNoneToTellAndNoNetwork)
{
    Change([](CellularState& state) { state.sim = false; });
    for (const std::string command : {"AT+CIMI", "AT+QCCID", "AT+COPS=?", "AT+COPS=0"})
    {
        EXPECT_EQ(bench.Ask(command + "\r\n"), Reply(command, {}, "+CME ERROR: 10")) << "at once";
    }
    ExpectReply("AT+CREG?", {"+CREG: 0,0"});
    ExpectReply("AT+CGREG?", {"+CGREG: 0,0"});
    ExpectReply("AT+COPS?", {"+COPS: 0"});
    ExpectReply("AT+CGSN", {"359999012345678"});
    Change([](CellularState& state) { state.sim = true; });
    ExpectReply("AT+CREG?", {"+CREG: 0,1"});
}

TEST_F(CellularStateTest, SupplyAndSignalAreTold)
{
    ExpectReply("AT+CBC", {"+CBC: 0,85,3980"});
    ExpectReply("AT+CSQ", {"+CSQ: 20,99"});
    Change([](CellularState& state) {
        state.chargeState = 1;
        state.chargePercent = 7;
        state.millivolts = 3301;
        state.rssi = 31;
        state.bitErrorRate = 0;
    });
    ExpectReply("AT+CBC", {"+CBC: 1,7,3301"});
    ExpectReply("AT+CSQ", {"+CSQ: 31,0"});
    Change([](CellularState& state) { state.rssi = 99; });
    ExpectReply("AT+CSQ", {"+CSQ: 99,0"});
}

TEST_F(CellularStateTest, TheClockGoesOnFromTheSwitchOn)
{
    ExpectReply("AT+QLTS", {"+QLTS: \"26/03/01,08:15:00+00,0\""});
    bench.Wait(1h - 10s);
    ExpectReply("AT+QLTS", {"+QLTS: \"26/03/01,09:15:00+00,0\""});
    Change([](CellularState& state) {
        state.quarterHoursEast = 8;
        state.daylightSaving = true;
    });
    ExpectReply("AT+QLTS", {"+QLTS: \"26/03/01,09:15:10+08,1\""});
    Change([](CellularState& state) { state.quarterHoursEast = -14; });
    ExpectReply("AT+QLTS", {"+QLTS: \"26/03/01,09:15:20-14,1\""});
}

TEST_F(CellularStateTest, TheClockGoesOnOverTheTurnOfTheYear)
{
    using namespace std::chrono;
    Change([](CellularState& state) { state.clock = sys_days(2027y / December / 31) + 24h - 1s; });
    bench.Wait(1s);
    ExpectReply("AT+QLTS", {"+QLTS: \"28/01/01,00:00:00+00,0\""});
}

TEST_F(CellularStateTest, EachRegistrationStateIsTold)
{
    for (int value = 0; value <= 5; ++value)
    {
        Change([&](CellularState& state) { state.registration = static_cast<Registration>(value); });
        ExpectReply("AT+CREG?", {"+CREG: 0," + std::to_string(value)});
        ExpectReply("AT+CGREG?", {"+CGREG: 0," + std::to_string(value)});
    }
}

TEST_F(CellularStateTest, TheLocationIsToldWhenRegisteredAndAskedFor)
{
    ExpectReply("AT+CREG=1", {});
    ExpectReply("AT+CREG?", {"+CREG: 1,1"});
    ExpectReply("AT+CREG=2", {});
    ExpectReply("AT+CREG?", {R"(+CREG: 2,1,"D509","80D413D")"});
    ExpectReply("AT+CGREG?", {"+CGREG: 0,1"});
    ExpectReply("AT+CGREG=2", {});
    ExpectReply("AT+CGREG?", {R"(+CGREG: 2,1,"D509","80D413D")"});
    Change([](CellularState& state) { state.registration = Registration::Searching; });
    EXPECT_EQ(bench.WaitForText(0ms), "\r\n+CREG: 2\r\n\r\n+CGREG: 2\r\n");
    ExpectReply("AT+CREG?", {"+CREG: 2,2"});
    ExpectReply("AT+CREG=0", {});
    ExpectReply("AT+CREG?", {"+CREG: 0,2"});
    ExpectResult("AT+CREG=3", "ERROR");
    ExpectResult("AT+CGREG=", "ERROR");
}

TEST_F(CellularStateTest, AChangeOfRegistrationIsReportedWhereReportsAreOn)
{
    const auto travel = [&](Registration registration, const std::string& cell) {
        Change([&](CellularState& state) {
            state.registration = registration;
            state.cell = cell;
        });
        return bench.WaitForText(0ms);
    };
    EXPECT_EQ(travel(Registration::Roaming, "1"), "");
    Ask("AT+CREG=1");
    EXPECT_EQ(travel(Registration::Home, "2"), "\r\n+CREG: 1\r\n");
    EXPECT_EQ(travel(Registration::Home, "3"), "");
    Ask("AT+CREG=2");
    EXPECT_EQ(travel(Registration::Home, "4"), "\r\n+CREG: 1,\"D509\",\"4\"\r\n");
    EXPECT_EQ(travel(Registration::Home, "4"), "");
}

TEST_F(CellularStateTest, OperatorsAreListedWithTheirStatusAndTechnology)
{
    ExpectReply("AT+COPS=?",
                {R"(+COPS: (2,"Home Network","Home","99901",2),(1,"Home Network","Home","99901",0),)"
                 R"((1,"Neighbour Mobile","Neighbour","99902",2),)"
                 R"((3,"Closed Telecom","Closed","99903",0),,(0,1,2,3,4),(0,1,2))"});
    Change([](CellularState& state) { state.operators.clear(); });
    ExpectReply("AT+COPS=?", {"+COPS: ,,(0,1,2,3,4),(0,1,2)"});
}

TEST_F(CellularStateTest, TheCurrentOperatorIsToldInTheChosenFormat)
{
    ExpectReply("AT+COPS?", {R"(+COPS: 0,0,"Home Network",2)"});
    ExpectReply("AT+COPS=3,1", {});
    ExpectReply("AT+COPS?", {R"(+COPS: 0,1,"Home",2)"});
    ExpectReply("AT+COPS=3,2", {});
    ExpectReply("AT+COPS?", {R"(+COPS: 0,2,"99901",2)"});
    Change([](CellularState& state) { state.registration = Registration::Searching; });
    ExpectReply("AT+COPS?", {"+COPS: 0"});
}

TEST_F(CellularStateTest, AnOperatorIsSelectedByItsCode)
{
    ExpectReply("AT+COPS=1,2,\"99902\",2", {});
    EXPECT_EQ(bench.module.State().registration, Registration::Roaming);
    ExpectReply("AT+COPS?", {R"(+COPS: 1,2,"99902",2)"});
    std::vector<Status> statuses;
    for (const Operator& item : bench.module.State().operators)
    {
        statuses.push_back(item.status);
    }
    EXPECT_THAT(statuses,
                ElementsAre(Status::Available, Status::Available, Status::Current, Status::Forbidden));

    ExpectReply("AT+COPS=1,0,\"Home Network\",0", {});
    EXPECT_EQ(bench.module.State().registration, Registration::Home);
    ExpectReply("AT+COPS?", {R"(+COPS: 1,0,"Home Network",0)"});
}

TEST_F(CellularStateTest, AnOperatorWithoutTheWantedTechnologyIsTakenInAnother)
{
    Change([](CellularState& state) { state.operators[2].accessTechnology = 0; });
    ExpectReply("AT+COPS=1,2,\"99902\",2", {});
    ExpectReply("AT+COPS?", {R"(+COPS: 1,2,"99902",0)"});
    ExpectReply("AT+COPS=1,2,\"99901\"", {});
    ExpectReply("AT+COPS?", {R"(+COPS: 1,2,"99901",2)"});
}

TEST_F(CellularStateTest, AForbiddenOrMissingOperatorIsNotRegisteredWith)
{
    ExpectResult("AT+COPS=1,2,\"99903\",0", "+CME ERROR: 30");
    ExpectReply("AT+CREG?", {"+CREG: 0,3"});
    ExpectReply("AT+COPS?", {"+COPS: 1"});
    ExpectResult("AT+COPS=1,2,\"99999\",2", "+CME ERROR: 30");
    ExpectReply("AT+CREG?", {"+CREG: 0,2"});
    ExpectResult("AT+COPS=7", "ERROR");
    ExpectResult("AT+COPS=1,2", "ERROR");
}

TEST_F(CellularStateTest, AutomaticSelectionPrefersHomeAndTheNewestTechnology)
{
    Ask("AT+COPS=1,2,\"99902\",2");
    ExpectReply("AT+COPS=0", {});
    ExpectReply("AT+COPS?", {R"(+COPS: 0,2,"99901",2)"});
    ExpectReply("AT+CREG?", {"+CREG: 0,1"});
    Change([](CellularState& state) { state.imsi = "262010123456789"; });
    ExpectReply("AT+COPS=0", {});
    ExpectReply("AT+CREG?", {"+CREG: 0,5"});
    Change([](CellularState& state) {
        for (Operator& item : state.operators)
        {
            item.status = Status::Forbidden;
        }
    });
    ExpectResult("AT+COPS=0", "+CME ERROR: 30");
    ExpectReply("AT+CREG?", {"+CREG: 0,2"});
}

TEST_F(CellularStateTest, ScanAndRegistrationTakeTheirTime)
{
    Change([](CellularState& state) {
        state.scanTime = 90s;
        state.registrationTime = 7s;
    });
    const std::vector<std::pair<std::string, std::chrono::seconds>> slow = {
        {"AT+COPS=?", 90s}, {"AT+COPS=0", 7s}, {"AT+COPS=1,2,\"99902\",2", 7s}};
    for (const auto& [command, time] : slow)
    {
        EXPECT_EQ(bench.Ask(command + "\r\n"), command + "\r");
        EXPECT_EQ(bench.module.At(CellularBench::Port::Main).NextDeadline(), bench.now + time);
        EXPECT_THAT(bench.Wait(time - 1ms), IsEmpty()) << command;
        EXPECT_THAT(bench.WaitForText(1ms), testing::EndsWith("\r\nOK\r\n")) << command;
    }
    for (const std::string command : {"AT+COPS?", "AT+COPS=3,0"})
    {
        EXPECT_THAT(bench.Ask(command + "\r\n"), testing::EndsWith("\r\nOK\r\n"));
    }
}

TEST_F(CellularStateTest, RegistrationHappensWhenItsTimeIsOver)
{
    Change([](CellularState& state) { state.registration = Registration::Searching; });
    bench.Ask("AT+CREG=1\r\nAT+COPS=0\r\n");
    EXPECT_EQ(bench.module.State().registration, Registration::Searching);
    EXPECT_EQ(bench.WaitForText(2s), "\r\nOK\r\n\r\n+CREG: 1\r\n");
    EXPECT_EQ(bench.module.State().registration, Registration::Home);
}

TEST_F(CellularStateTest, ConfigurationIsKept)
{
    ExpectReply("AT+QCFG=\"pwrsavedtr\",1", {});
    ExpectReply("AT+QCFG=\"nwscanmode\",2,1", {});
    ExpectReply("AT+QCFG=\"band\",511,1", {});
    ExpectReply("AT+QCFG=\"vbatt\",-2,3400,1", {});
    EXPECT_THAT(bench.module.State().configuration,
                ElementsAre(std::pair("band", "511"), std::pair("nwscanmode", "2"),
                            std::pair("pwrsavedtr", "1"), std::pair("vbatt", "-2,3400,1")));
    ExpectReply("AT+QCFG=\"pwrsavedtr\"", {R"(+QCFG: "pwrsavedtr",1)"});
    ExpectReply("AT+QCFG=\"vbatt\"", {R"(+QCFG: "vbatt",-2,3400,1)"});
}

TEST_F(CellularStateTest, WrongConfigurationIsRefused)
{
    const auto before = bench.module.State().configuration;
    for (const std::string parameters :
         {"\"pwrsavedtr\",2", "\"pwrsavedtr\",", "\"pwrsavedtr\",1,1", "\"nwscanmode\",3,1",
          "\"nwscanmode\",x,1", "\"band\",0,1", "\"band\",1,1,1", "\"vbatt\",-2,3300", "\"vbatt\",-3,3300,1",
          "\"other\",1", ""})
    {
        ExpectResult("AT+QCFG=" + parameters, "ERROR");
    }
    EXPECT_EQ(bench.module.State().configuration, before);
}

TEST_F(CellularStateTest, TheSlowClockIsAskedForAndSet)
{
    ExpectReply("AT+QSCLK?", {"+QSCLK: 0"});
    ExpectReply("AT+QSCLK=1", {});
    ExpectReply("AT+QSCLK?", {"+QSCLK: 1"});
    ExpectResult("AT+QSCLK=3", "ERROR");
    ExpectReply("AT+QSCLK?", {"+QSCLK: 1"});
}

TEST_F(CellularStateTest, TheDataConnectionIsTakenDown)
{
    ExpectReply("AT+CGACT=1,1", {});
    EXPECT_TRUE(bench.module.State().context);
    ExpectReply("ATH", {});
    ExpectReply("AT+CGACT=0,1", {});
    EXPECT_FALSE(bench.module.State().context);
    EXPECT_TRUE(bench.module.State().attached);
    ExpectReply("AT+CGATT=0", {});
    EXPECT_FALSE(bench.module.State().attached);
    ExpectResult("AT+CGACT=1,1", "ERROR");
    ExpectReply("AT+CGATT=1", {});
    ExpectReply("AT+CGACT=1,1", {});
    ExpectReply("AT+CGATT=0", {});
    EXPECT_FALSE(bench.module.State().context);
    ExpectResult("AT+CGATT=2", "ERROR");
    ExpectResult("AT+CGACT=x", "ERROR");
    Change([](CellularState& state) { state.registration = Registration::Denied; });
    ExpectResult("AT+CGATT=1", "ERROR");
}

TEST_F(CellularStateTest, UnknownCommandsAreErrors)
{
    for (const std::string command :
         {"AT+NOSUCH", "AT+CGSN?", "AT+CGSN=?", "AT+CSQ=1", "AT+CREG", "AT+QPOWD", "AT+QPOWD=2", "ATE",
          "ATE2", "ATX", "AT?", "AT=", "AT+", "AT+CSQ+CREG?"})
    {
        ExpectResult(command, "ERROR");
    }
}

}
