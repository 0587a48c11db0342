// What every operation has in common: its command byte for byte, its interface, its patience, and its result
// when the exchange fails.

#include "tests/Modem/ModemTest.h"

#include <climits>
#include <functional>
#include <ostream>
#include <stdexcept>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace ModemTests
{

namespace
{

struct CommandRow
{
    const char* name;
    std::function<int()> run;
    Texts commands; ///< of a run in which all are accepted
    int cycles;     ///< of the first command
    int failure;    ///< result when the first exchange fails
    const char* port = MAIN_PORT;
};

void PrintTo(const CommandRow& row, std::ostream* out)
{
    *out << row.name;
}

std::string NameOf(const testing::TestParamInfo<CommandRow>& row)
{
    return row.param.name;
}

std::vector<CommandRow> Rows()
{
    return {
        {"QueryModuleIMEI", Module3G::QueryModuleIMEI, {"AT+CGSN\r\n"}, 4, -1},
        {"QuerySimIMSI", Module3G::QuerySimIMSI, {"AT+CIMI\r\n"}, 4, -1},
        {"QuerySimICCID", Module3G::QuerySimICCID, {"AT+QCCID\r\n"}, 4, -1},
        {"QueryModuleFwVersion", Module3G::QueryModuleFwVersion, {"ATI\r\n"}, 4, -1},
        {"GetVoltageLevel", Module3G::GetVoltageLevel, {"AT+CBC\r\n"}, 4, -1},
        {"GetTime", Module3G::GetTime, {"AT+QLTS\r\n"}, 4, -1},
        {"CheckSignal", [] { return Module3G::CheckSignal(); }, {"AT+CSQ\r\n"}, 4, -1},
        {"CheckSignalOnMain", [] { return Module3G::CheckSignal(false); }, {"AT+CSQ\r\n"}, 4, -1},
        {"CheckSignalOnAlternate",
         [] { return Module3G::CheckSignal(true); },
         {"AT+CSQ\r\n"},
         4,
         -1,
         ALTERNATE_PORT},
        {"GetRegistrationStatus", Module3G::GetRegistrationStatus, {"AT+CREG?\r\n"}, 4, -1},
        {"IsRegistered", [] { return Module3G::IsRegistered() ? 1 : 0; }, {"AT+CREG?\r\n"}, 4, 0},
        {"EnableNetworkRegistration",
         Module3G::EnableNetworkRegistration,
         {"AT+CREG=2\r\n", "AT+CGREG=2\r\n"},
         4,
         1},
        {"GetCarriersList",
         [] {
             std::list<Operator> list;
             return Module3G::GetCarriersList(&list);
         },
         {"AT+COPS=?\r\n"},
         1800,
         -1},
        {"GetCarrierName",
         [] {
             std::string name = "kept";
             const bool read = Module3G::GetCarrierName(name);
             EXPECT_EQ(name, "kept");
             return read ? 1 : 0;
         },
         {"AT+COPS?\r\n"},
         1800,
         0},
        {"SetOperatorAutomatically", [] { return Module3G::SetOperator(0); }, {"AT+COPS=0\r\n"}, 1800, 0},
        {"SetOperatorNegative", [] { return Module3G::SetOperator(-1); }, {"AT+COPS=0\r\n"}, 1800, 0},
        {"SetOperatorLowest", [] { return Module3G::SetOperator(INT_MIN); }, {"AT+COPS=0\r\n"}, 1800, 0},
        {"SetOperatorOne", [] { return Module3G::SetOperator(1); }, {"AT+COPS=1,2,\"1\",2\r\n"}, 1800, 0},
        {"SetOperator",
         [] { return Module3G::SetOperator(26201); },
         {"AT+COPS=1,2,\"26201\",2\r\n"},
         1800,
         0},
        {"SetOperatorHighest",
         [] { return Module3G::SetOperator(INT_MAX); },
         {"AT+COPS=1,2,\"2147483647\",2\r\n"},
         1800,
         0},
        {"SetPowerSaveMode0",
         [] { return Module3G::SetPowerSaveMode(0); },
         {"AT+QCFG=\"pwrsavedtr\",0\r\n"},
         4,
         -1},
        {"SetPowerSaveMode1",
         [] { return Module3G::SetPowerSaveMode(1); },
         {"AT+QCFG=\"pwrsavedtr\",1\r\n"},
         4,
         -1},
        {"SetNetworkSearchMode0",
         [] { return Module3G::SetNetworkSearchMode(0); },
         {"AT+QCFG=\"nwscanmode\",0,1\r\n"},
         4,
         -1},
        {"SetNetworkSearchMode1",
         [] { return Module3G::SetNetworkSearchMode(1); },
         {"AT+QCFG=\"nwscanmode\",1,1\r\n"},
         4,
         -1},
        {"SetNetworkSearchMode2",
         [] { return Module3G::SetNetworkSearchMode(2); },
         {"AT+QCFG=\"nwscanmode\",2,1\r\n"},
         4,
         -1},
        {"SetBand1", [] { return Module3G::SetBand(1); }, {"AT+QCFG=\"band\",1,1\r\n"}, 4, -1},
        {"SetBand512", [] { return Module3G::SetBand(512); }, {"AT+QCFG=\"band\",512,1\r\n"}, 4, -1},
        {"SetLowVoltageLimit",
         [] { return Module3G::SetLowVoltageLimit(3300, true); },
         {"AT+QCFG=\"vbatt\",-2,3300,1\r\n"},
         4,
         -1},
        {"SetLowVoltageLimitOff",
         [] { return Module3G::SetLowVoltageLimit(0, false); },
         {"AT+QCFG=\"vbatt\",-2,0,0\r\n"},
         4,
         -1},
        {"SetLowVoltageLimitLowest",
         [] { return Module3G::SetLowVoltageLimit(INT_MIN, true); },
         {"AT+QCFG=\"vbatt\",-2,-2147483648,1\r\n"},
         4,
         -1},
        {"SetLowVoltageLimitHighest",
         [] { return Module3G::SetLowVoltageLimit(INT_MAX, false); },
         {"AT+QCFG=\"vbatt\",-2,2147483647,0\r\n"},
         4,
         -1},
        {"SetSleepMode0", [] { return Module3G::SetSleepMode(0); }, {"AT+QSCLK?\r\n"}, 4, -1},
        {"SetSleepMode1", [] { return Module3G::SetSleepMode(1); }, {"AT+QSCLK?\r\n"}, 4, -1},
        {"SendDisconnectCommands",
         Module3G::SendDisconnectCommands,
         {"ATH\r\n", "AT+CGACT=0,1\r\n", "AT+CGATT=0\r\n"},
         900,
         0},
        {"SendPowerDownCommand",
         [] {
             Module3G::SendPowerDownCommand();
             return 0;
         },
         {"AT+QPOWD=1\r\n", "AT+QCFG=\"pwrsavedtr\",0\r\n"},
         4,
         0},
    };
}

/// A module on the row's interface; there is none on the other one.
class OperationTest : public ModemStateTest, public testing::WithParamInterface<CommandRow>
{
protected:
    void ExpectFailure(std::chrono::milliseconds duration)
    {
        const auto before = Clock::Elapsed();
        EXPECT_EQ(GetParam().run(), GetParam().failure);
        EXPECT_EQ(Clock::Elapsed() - before, duration);
        EXPECT_THAT(Logged(), IsEmpty());
        EXPECT_TRUE(LockIsFree());
        EXPECT_EQ(Module3G::registration_status, -1);
        EXPECT_EQ(Module3G::signal_status.description[0], '\0');
        EXPECT_EQ(Module3G::m3gIMEI + Module3G::m3gSimIMSI + Module3G::m3gSimICCID + Module3G::m3g_fw_version,
                  "");
    }

    const std::string& First() const { return GetParam().commands.front(); }

    ScriptedModule module{GetParam().port};
};

TEST_P(OperationTest, SendsItsCommandsByteForByte)
{
    std::string all;
    for (const std::string& command : GetParam().commands)
    {
        module.Accept(command);
        all += command;
    }
    GetParam().run();
    EXPECT_EQ(module.Received(), all);
    EXPECT_EQ(Count("write"), GetParam().commands.size()) << "each in one write";
    EXPECT_EQ(Count("close"), GetParam().commands.size());
}

TEST_P(OperationTest, FailsWithAnErrorAnswerAndSendsNothingMore)
{
    for (const std::string& command : GetParam().commands)
    {
        module.Accept(command);
    }
    module.Refuse(First());
    ExpectFailure(CYCLE);
    EXPECT_EQ(module.Received(), First());
}

TEST_P(OperationTest, FailsWithASilentModuleWhenItsTimeIsOver)
{
    ExpectFailure(GetParam().cycles * CYCLE);
    EXPECT_EQ(module.Received(), First());
}

TEST_P(OperationTest, TakesAnAnswerUpToTheLastOfItsCycles)
{
    for (const std::string& command : GetParam().commands)
    {
        module.Accept(command);
    }
    module.On(First(), Answer{{(GetParam().cycles - 1) * CYCLE - 50ms, Reply(First())}});
    GetParam().run();
    EXPECT_EQ(Count("read"),
              static_cast<std::size_t>(GetParam().cycles - 1) + GetParam().commands.size() - 1);
    EXPECT_EQ(Gathered(), Reply(GetParam().commands.back()));
}

TEST_P(OperationTest, FailsWithAReplyThatLacksTheEcho)
{
    module.On(First(), "\r\nOK\r\n");
    ExpectFailure(GetParam().cycles * CYCLE);
}

TEST_P(OperationTest, FailsWhenNothingCanBeWritten)
{
    module.Accept(First());
    Kit::System::Fail("write", EIO, 1, 4);
    ExpectFailure(400ms);
    EXPECT_EQ(module.Received(), "");
}

TEST_P(OperationTest, FailsWithoutAModule)
{
    Kit::System::Unredirect(GetParam().port);
    testing::internal::CaptureStdout();
    ExpectFailure(400ms);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_P(OperationTest, LetsTheExceptionOfRefusedSettingsPass)
{
    Kit::System::Fail("tcsetattr", EIO);
    testing::internal::CaptureStdout();
    int code = 0;
    try
    {
        GetParam().run();
    }
    catch (const IException& e)
    {
        code = e.Code();
        EXPECT_STREQ(e.what(), "[Module3G] Error, Input/output error\n");
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[Module3G] Error, Input/output error\n\n");
    EXPECT_EQ(code, -1);
    EXPECT_EQ(module.Received(), "");
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_TRUE(LockIsFree());
    AllowDescriptors(1);
}

INSTANTIATE_TEST_SUITE_P(All, OperationTest, testing::ValuesIn(Rows()), NameOf);

// Answers in pieces --------------------------------------------------------------------------------------

struct ReplyRow
{
    const char* name;
    std::string command;
    std::string line;
    std::function<std::string()> run; ///< gives all that the operation made of the reply
    std::string outcome;
};

void PrintTo(const ReplyRow& row, std::ostream* out)
{
    *out << row.name;
}

std::string Outcome(int result, const std::string& text)
{
    return std::to_string(result) + ' ' + text;
}

std::string Signal()
{
    try
    {
        const int result = Module3G::CheckSignal();
        const auto& status = Module3G::signal_status;
        return Outcome(result, std::to_string(status.rssi) + ' ' + std::to_string(status.dBm) + ' ' +
                                   status.description);
    }
    catch (const std::invalid_argument&)
    {
        return "invalid_argument";
    }
}

std::string Registration()
{
    Module3G::registration_status = -1;
    try
    {
        const int state = Module3G::GetRegistrationStatus();
        return Outcome(state, std::to_string(Module3G::registration_status));
    }
    catch (const std::invalid_argument&)
    {
        return "invalid_argument";
    }
}

std::string Carriers()
{
    std::list<Operator> list;
    std::string all;
    try
    {
        all = std::to_string(Module3G::GetCarriersList(&list));
    }
    catch (const std::logic_error& e)
    {
        all = e.what();
    }
    for (const Operator& seen : list)
    {
        all += '|' + std::to_string(seen.status) + ' ' + seen.longName + ' ' + seen.shortName + ' ' +
               seen.numeric + ' ' + std::to_string(seen.accessTechnology);
    }
    return all;
}

std::string Carrier()
{
    std::string name;
    const bool read = Module3G::GetCarrierName(name);
    return Outcome(read ? 1 : 0, name);
}

/// A query into one of the static texts.
std::function<std::string()> Query(int (*query)(), std::string& text)
{
    return [query, &text] {
        text = "before";
        const int result = query();
        return Outcome(result, text);
    };
}

std::function<std::string()> Number(int (*query)())
{
    return [query] { return Outcome(query(), ""); };
}

std::vector<ReplyRow> ReplyRows()
{
    return {
        {"Imei", "AT+CGSN\r\n", "861075021234567", Query(Module3G::QueryModuleIMEI, Module3G::m3gIMEI),
         "0 861075021234567"},
        {"ImeiTooShort", "AT+CGSN\r\n", "86107502123", Query(Module3G::QueryModuleIMEI, Module3G::m3gIMEI),
         "-1 before"},
        {"Imsi", "AT+CIMI\r\n", "262011234567890", Query(Module3G::QuerySimIMSI, Module3G::m3gSimIMSI),
         "0 262011234567890"},
        {"Iccid", "AT+QCCID\r\n", "+QCCID: 89490200001234567890",
         Query(Module3G::QuerySimICCID, Module3G::m3gSimICCID), "0 89490200001234567890"},
        {"IccidOf19", "AT+QCCID\r\n", "+QCCID: 8949020000123456789",
         Query(Module3G::QuerySimICCID, Module3G::m3gSimICCID), "0 8949020000123456789\r"},
        {"Firmware", "ATI\r\n", "Quectel\r\nUC20\r\nRevision: UC20GQBR03A12E1G",
         Query(Module3G::QueryModuleFwVersion, Module3G::m3g_fw_version), "0 UC20GQBR03A12E1G"},
        {"NoFirmware", "ATI\r\n", "Quectel\r\nUC20",
         Query(Module3G::QueryModuleFwVersion, Module3G::m3g_fw_version), "-1 before"},
        {"Voltage", "AT+CBC\r\n", "+CBC: 0,77,3914", Number(Module3G::GetVoltageLevel), "3914 "},
        {"TwoNumbersOnly", "AT+CBC\r\n", "+CBC: 0,77", Number(Module3G::GetVoltageLevel), "-1 "},
        {"Time", "AT+QLTS\r\n", "+QLTS: \"26/03/01,08:15:00+04,0\"", Number(Module3G::GetTime), "0 "},
        {"Signal", "AT+CSQ\r\n", "+CSQ: 17,0", Signal, "0 17 -79 Good"},
        {"SignalNotKnown", "AT+CSQ\r\n", "+CSQ: 99,99", Signal, "0 0 0 Not known"},
        {"SignalTooLarge", "AT+CSQ\r\n", "+CSQ: 32,0", Signal, "-1 0 0 "},
        {"SignalWithoutANumber", "AT+CSQ\r\n", "+CSQ: ,0", Signal, "invalid_argument"},
        {"SignalOfElevenDigits", "AT+CSQ\r\n", "+CSQ: 12345678901,0", Signal, "-1 0 0 "},
        {"Registered", "AT+CREG?\r\n", "+CREG: 2,5,\"01F4\",\"0A2B\",2", Registration, "5 5"},
        {"RegistrationWithoutADigit", "AT+CREG?\r\n", "+CREG: 2,x", Registration, "invalid_argument"},
        {"RegistrationWithoutAMode", "AT+CREG?\r\n", "+CREG: 1", Registration, "-1 -1"},
        {"Operators", "AT+COPS=?\r\n",
         "+COPS: (1,\"One\",\"O\",\"26201\",0),(2,\"Two\",\"T\",\"26202\",2),,(0-4),(0-2)", Carriers,
         "0|2 Two T 26202 2|1 One O 26201 0"},
        {"OperatorWithoutAStatus", "AT+COPS=?\r\n",
         "+COPS: (1,\"One\",\"O\",\"26201\",0),(,\"Two\",\"T\",\"26202\",2)", Carriers,
         "stoi|1 One O 26201 0"},
        {"Carrier", "AT+COPS?\r\n", "+COPS: 0,0,\"Operator\",2", Carrier, "1 Operator,2"},
        {"NoCarrier", "AT+COPS?\r\n", "+COPS: 0", Carrier, "0 "},
        {"PowerSave", "AT+QCFG=\"pwrsavedtr\",1\r\n", "",
         [] { return Outcome(Module3G::SetPowerSaveMode(1), ""); }, "0 "},
        {"SleepMode", "AT+QSCLK?\r\n", "+QSCLK: 1", [] { return Outcome(Module3G::SetSleepMode(1), ""); },
         "0 "},
    };
}

class PiecesTest : public ModemTest, public testing::WithParamInterface<ReplyRow>
{
};

TEST_P(PiecesTest, GiveTheResultOfTheWholeWhereverItIsCut)
{
    const ReplyRow& row = GetParam();
    const std::string reply = Reply(row.command, row.line);
    for (std::size_t cut = 0; cut < reply.size(); ++cut) // 0: in one piece
    {
        module.On(row.command, Answer{{0ms, reply.substr(0, cut)}, {150ms, reply.substr(cut)}});
        Module3G::signal_status = {};
        EXPECT_EQ(row.run(), row.outcome) << "cut at " << cut;
        std::this_thread::sleep_for(100ms);
        module.DropUnread(); // what follows the "OK"
    }
}

TEST_P(PiecesTest, GiveTheResultOfTheWholeInThreePieces)
{
    const ReplyRow& row = GetParam();
    const std::string reply = Reply(row.command, row.line);
    const std::size_t complete = reply.size() - 2;
    for (std::size_t cut = 1; cut + 1 < complete; ++cut)
    {
        const std::size_t second = (cut + complete) / 2;
        module.On(row.command, Answer{{0ms, reply.substr(0, cut)},
                                      {150ms, reply.substr(cut, second - cut)},
                                      {250ms, reply.substr(second)}});
        Module3G::signal_status = {};
        EXPECT_EQ(row.run(), row.outcome) << "cut at " << cut << " and " << second;
        module.DropUnread();
    }
}

INSTANTIATE_TEST_SUITE_P(All, PiecesTest, testing::ValuesIn(ReplyRows()),
                         [](const testing::TestParamInfo<ReplyRow>& row) { return row.param.name; });

}

}
