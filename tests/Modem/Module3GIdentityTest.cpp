// Who the module and the SIM are, voltage, time, signal.

#include "tests/Modem/ModemTest.h"

#include "Modem/Replies.h"

#include <climits>
#include <ostream>
#include <stdexcept>

using testing::ElementsAre;
using testing::IsEmpty;

namespace ModemTests
{

namespace
{

using Tavdevice::Modem::Module3GSignalStatus;
namespace Replies = Tavdevice::Modem::Replies;

/// What the parser's exception says.
template <class Parser>
std::string Reason(Parser parser, const std::string& reply)
{
    try
    {
        parser(reply);
    }
    catch (const std::out_of_range& e)
    {
        return e.what();
    }
    return "no exception";
}

// Queries of texts ---------------------------------------------------------------------------------------

TEST_F(ModemTest, TheIdentityIsKept)
{
    module.Accept("AT+CGSN\r\n", "861075021234567");
    module.Accept("AT+CIMI\r\n", "262011234567890");
    module.Accept("AT+QCCID\r\n", "+QCCID: 89490200001234567890");
    module.Accept("ATI\r\n", "Quectel\r\nUC20\r\nRevision: UC20GQBR03A12E1G");
    EXPECT_EQ(Module3G::QueryModuleIMEI(), 0);
    EXPECT_EQ(Module3G::QuerySimIMSI(), 0);
    EXPECT_EQ(Module3G::QuerySimICCID(), 0);
    EXPECT_EQ(Module3G::QueryModuleFwVersion(), 0);
    EXPECT_EQ(Module3G::m3gIMEI, "861075021234567");
    EXPECT_EQ(Module3G::m3gSimIMSI, "262011234567890");
    EXPECT_EQ(Module3G::m3gSimICCID, "89490200001234567890");
    EXPECT_EQ(Module3G::m3g_fw_version, "UC20GQBR03A12E1G");
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(ModemTest, AFailedQueryLeavesTheTextAsItWas)
{
    Module3G::m3gIMEI = "imei";
    Module3G::m3gSimIMSI = "imsi";
    Module3G::m3gSimICCID = "iccid";
    Module3G::m3g_fw_version = "revision";
    for (const char* line : {"", "+CME: 1"})
    {
        module.Accept("AT+CGSN\r\n", line);
        module.Accept("AT+CIMI\r\n", line);
        module.On("AT+QCCID\r\n", line[0] == '\0' ? Reply("AT+QCCID\r\n") : "AT+QCCID OK +QCCID: 12345");
        module.Accept("ATI\r\n", line);
        EXPECT_EQ(Module3G::QueryModuleIMEI(), -1);
        EXPECT_EQ(Module3G::QuerySimIMSI(), -1);
        EXPECT_EQ(Module3G::QuerySimICCID(), -1);
        EXPECT_EQ(Module3G::QueryModuleFwVersion(), -1);
    }
    EXPECT_EQ(Module3G::m3gIMEI, "imei");
    EXPECT_EQ(Module3G::m3gSimIMSI, "imsi");
    EXPECT_EQ(Module3G::m3gSimICCID, "iccid");
    EXPECT_EQ(Module3G::m3g_fw_version, "revision");
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(ModemTest, AnEchoBehindTooManyLineEndsIsLoggedByTheImeiAndTheImsi)
{
    const std::string imei = std::string(12, '\n') + "OK\r\nAT+CGSN";
    const std::string imsi = std::string(12, '\n') + "OK\r\nAT+CIMI";
    module.On("AT+CGSN\r\n", imei);
    module.On("AT+CIMI\r\n", imsi);
    Module3G::m3gIMEI = "imei";
    Module3G::m3gSimIMSI = "imsi";
    EXPECT_EQ(Module3G::QueryModuleIMEI(), -1);
    EXPECT_EQ(Module3G::QuerySimIMSI(), -1);
    EXPECT_EQ(Module3G::m3gIMEI, "imei");
    EXPECT_EQ(Module3G::m3gSimIMSI, "imsi");
    EXPECT_THAT(Logged(), ElementsAre("[ERROR][#CELL]" + Reason(Replies::Imei, imei),
                                      "[ERROR][#CELL]" + Reason(Replies::Imsi, imsi)));
}

TEST_F(ModemTest, AnIccidReplyThatEndsWithItsColonIsPrintedAndNotLogged)
{
    const std::string reply = "AT+QCCID\r\nOK\r\n+QCCID:";
    module.On("AT+QCCID\r\n", reply);
    Module3G::m3gSimICCID = "iccid";
    testing::internal::CaptureStdout();
    EXPECT_EQ(Module3G::QuerySimICCID(), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[3G] " + Reason(Replies::Iccid, reply) + "\n");
    EXPECT_EQ(Module3G::m3gSimICCID, "iccid");
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(ModemTest, ARevisionReplyThatEndsWithItsTagThrows)
{
    module.On("ATI\r\n", "ATI\r\nOK\r\nRevision:");
    Module3G::m3g_fw_version = "revision";
    EXPECT_THROW(Module3G::QueryModuleFwVersion(), std::out_of_range);
    EXPECT_EQ(Module3G::m3g_fw_version, "revision");
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_TRUE(LockIsFree());
}

// All of the identity ------------------------------------------------------------------------------------

constexpr const char* ALL_COMMANDS = "ATI\r\nAT+CGSN\r\nAT+CIMI\r\nAT+QCCID\r\nAT+QCFG=\"pwrsavedtr\",0\r\n";

class IdentityTest : public ModemTest
{
protected:
    IdentityTest()
    {
        module.Accept("ATI\r\n", "Revision: UC20");
        module.Accept("AT+CGSN\r\n", "861075021234567");
        module.Accept("AT+CIMI\r\n", "262011234567890");
        module.Accept("AT+QCCID\r\n", "+QCCID: 89490200001234567890");
        module.Accept("AT+QCFG=\"pwrsavedtr\",0\r\n");
    }
};

TEST_F(IdentityTest, AllItemsAreStoredInOrder)
{
    EXPECT_EQ(Module3G::StoreModuleIdentityItems(), 0);
    EXPECT_EQ(module.Received(), ALL_COMMANDS);
    EXPECT_EQ(Module3G::m3g_fw_version, "UC20");
    EXPECT_EQ(Module3G::m3gIMEI, "861075021234567");
    EXPECT_EQ(Module3G::m3gSimIMSI, "262011234567890");
    EXPECT_EQ(Module3G::m3gSimICCID, "89490200001234567890");
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(IdentityTest, ARefusedPowerSaveModeIsIgnored)
{
    module.Refuse("AT+QCFG=\"pwrsavedtr\",0\r\n");
    EXPECT_EQ(Module3G::StoreModuleIdentityItems(), 0);
    EXPECT_THAT(Logged(), IsEmpty());
}

/// The bits tell which of the four queries fail.
class FailingItems : public IdentityTest, public testing::WithParamInterface<int>
{
};

TEST_P(FailingItems, AreLoggedOneByOneAndTheOthersStored)
{
    struct Item
    {
        const char* command;
        const char* line;
        const std::string* text;
    };

    const std::vector<Item> items = {
        {"ATI\r\n", "[ERROR][#CELL]Error while trying to get module FW version", &Module3G::m3g_fw_version},
        {"AT+CGSN\r\n", "[ERROR][#CELL]Read SIM IMEI error", &Module3G::m3gIMEI},
        {"AT+CIMI\r\n", "[ERROR][#CELL]Read SIM IMSI error", &Module3G::m3gSimIMSI},
        {"AT+QCCID\r\n", "[ERROR][#CELL]Read SIM ICCID error", &Module3G::m3gSimICCID}};
    Texts lines;
    for (std::size_t item = 0; item < items.size(); ++item)
    {
        if ((GetParam() >> item & 1) != 0)
        {
            module.Refuse(items[item].command);
            lines.emplace_back(items[item].line);
        }
    }
    EXPECT_EQ(Module3G::StoreModuleIdentityItems(), 0);
    EXPECT_EQ(module.Received(), ALL_COMMANDS);
    EXPECT_EQ(Logged(), lines);
    for (std::size_t item = 0; item < items.size(); ++item)
    {
        EXPECT_EQ(items[item].text->empty(), (GetParam() >> item & 1) != 0) << items[item].command;
    }
}

INSTANTIATE_TEST_SUITE_P(Sets, FailingItems, testing::Range(1, 16));

class RefusedStep : public IdentityTest, public testing::WithParamInterface<int>
{
};

TEST_P(RefusedStep, EndsTheSequenceWithTheExceptionsText)
{
    Kit::System::Fail("tcsetattr", EIO, GetParam());
    testing::internal::CaptureStdout();
    EXPECT_EQ(Module3G::StoreModuleIdentityItems(), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[Module3G] Error, Input/output error\n\n");
    EXPECT_THAT(Logged(), ElementsAre("[ERROR][#CELL][Module3G] Error, Input/output error\n"));
    EXPECT_EQ(Count("open"), static_cast<std::size_t>(GetParam())) << "nothing follows";
    const std::string all = ALL_COMMANDS;
    const std::string sent = module.Received();
    EXPECT_EQ(sent, all.substr(0, sent.size()));
    EXPECT_EQ(std::ranges::count(sent, '\n'), GetParam() - 1);
    AllowDescriptors(1);
}

INSTANTIATE_TEST_SUITE_P(Steps, RefusedStep, testing::Range(1, 6));

TEST_F(IdentityTest, ARevisionReplyThatEndsTooEarlyEndsTheSequence)
{
    const std::string reply = "ATI\r\nOK\r\nRevision:";
    module.On("ATI\r\n", reply);
    EXPECT_EQ(Module3G::StoreModuleIdentityItems(), -1);
    EXPECT_THAT(Logged(), ElementsAre("[ERROR][#CELL]" + Reason(Replies::FirmwareRevision, reply)));
    EXPECT_EQ(module.Received(), "ATI\r\n");
    EXPECT_EQ(Module3G::m3gIMEI, "");
}

TEST_F(ModemStateTest, WithoutAModuleEveryItemIsLogged)
{
    EXPECT_EQ(Module3G::StoreModuleIdentityItems(), 0);
    EXPECT_THAT(Logged(),
                ElementsAre("[ERROR][#CELL]Error while trying to get module FW version",
                            "[ERROR][#CELL]Read SIM IMEI error", "[ERROR][#CELL]Read SIM IMSI error",
                            "[ERROR][#CELL]Read SIM ICCID error"));
    EXPECT_EQ(Clock::Elapsed(), 5 * 400ms);
}

// Voltage and time ---------------------------------------------------------------------------------------

TEST_F(ModemTest, TheVoltageIsTheThirdNumber)
{
    module.Accept("AT+CBC\r\n", "+CBC: 0,77,3914");
    EXPECT_EQ(Module3G::GetVoltageLevel(), 3914);
    module.Accept("AT+CBC\r\n", "+CBC: 0,77");
    EXPECT_EQ(Module3G::GetVoltageLevel(), -1);
    module.Accept("AT+CBC\r\n", "+CBD: 0,77,3914");
    EXPECT_EQ(Module3G::GetVoltageLevel(), -1);
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(ModemTest, AVoltageReplyThatEndsWithItsTagThrows)
{
    module.On("AT+CBC\r\n", "AT+CBC\r\nOK\r\n+CBC:");
    EXPECT_THROW(Module3G::GetVoltageLevel(), std::out_of_range);
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(ModemTest, AnyAnswerToTheQuestionForTheTimeWillDo)
{
    module.Accept("AT+QLTS\r\n", "+QLTS: \"26/03/01,08:15:00+04,0\"");
    EXPECT_EQ(Module3G::GetTime(), 0);
    module.Accept("AT+QLTS\r\n");
    EXPECT_EQ(Module3G::GetTime(), 0);
}

TEST_F(ModemStateTest, ADateIsReadAndDropped)
{
    std::strcpy(Module3G::bufferAtCommands, "reply");
    const auto wall = std::chrono::system_clock::now();
    const std::string date = "26/03/01,08:15:00+04,0";
    for (std::size_t length = 0; length <= date.size(); ++length)
    {
        const auto text = std::make_unique<char[]>(length + 1); // no byte more, as a sanitizer sees
        std::memcpy(text.get(), date.data(), length);
        EXPECT_NO_THROW(Module3G::SaveDateTime(text.get())) << length;
        EXPECT_EQ(text.get(), date.substr(0, length)) << "only read";
    }
    char letters[] = "no date at all, but longer than one";
    EXPECT_NO_THROW(Module3G::SaveDateTime(letters));
    EXPECT_NO_THROW(Module3G::SaveDateTime(nullptr));
    EXPECT_EQ(std::chrono::system_clock::now(), wall);
    EXPECT_EQ(Clock::Elapsed(), 0ms);
    EXPECT_EQ(Gathered(), "reply");
    EXPECT_EQ(Module3G::lastTransmitionTime, 0);
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
    EXPECT_THAT(Logged(), IsEmpty());
}

// Signal -------------------------------------------------------------------------------------------------

struct GradeRow
{
    int rssi;
    int dBm;
    const char* description;
};

void PrintTo(const GradeRow& row, std::ostream* out)
{
    *out << row.rssi;
}

class Grade : public ModemTest, public testing::WithParamInterface<GradeRow>
{
};

TEST_P(Grade, IsThatOfTheTable)
{
    Module3GSignalStatus status{};
    EXPECT_EQ(Module3G::SetSignalStatus(GetParam().rssi, &status), 0);
    EXPECT_EQ(status.rssi, GetParam().rssi);
    EXPECT_EQ(status.dBm, GetParam().dBm);
    EXPECT_STREQ(status.description, GetParam().description);

    module.Accept("AT+CSQ\r\n", "+CSQ: " + std::to_string(GetParam().rssi) + ",99");
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    EXPECT_EQ(Module3G::signal_status.rssi, GetParam().rssi);
    EXPECT_EQ(Module3G::signal_status.dBm, GetParam().dBm);
    EXPECT_STREQ(Module3G::signal_status.description, GetParam().description);
    EXPECT_THAT(Logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Table, Grade,
                         testing::Values(GradeRow{0, -113, "Marginal"}, GradeRow{1, -111, "Marginal"},
                                         GradeRow{9, -95, "Marginal"}, GradeRow{10, -93, "OK"},
                                         GradeRow{12, -89, "OK"}, GradeRow{14, -85, "OK"},
                                         GradeRow{15, -83, "Good"}, GradeRow{17, -79, "Good"},
                                         GradeRow{19, -75, "Good"}, GradeRow{20, -73, "Excellent"},
                                         GradeRow{25, -63, "Excellent"}, GradeRow{31, -51, "Excellent"}));

TEST(SignalGrading, CoversEveryValueOfTheModuleAndNoOther)
{
    for (int rssi = -200; rssi <= 300; ++rssi)
    {
        Module3GSignalStatus status{55, 66, "before"};
        const bool graded = rssi >= 0 && rssi <= 31;
        EXPECT_EQ(Module3G::SetSignalStatus(rssi, &status), graded || rssi == 99 ? 0 : -1) << rssi;
        EXPECT_EQ(status.rssi, graded ? rssi : 55) << rssi;
        EXPECT_EQ(status.dBm, graded ? 2 * rssi - 113 : 66) << rssi;
        if (!graded)
        {
            EXPECT_STREQ(status.description, rssi == 99 ? "Not known" : "before") << rssi;
        }
    }
    Module3GSignalStatus status{55, 66, "before"};
    EXPECT_EQ(Module3G::SetSignalStatus(INT_MIN, &status), -1);
    EXPECT_EQ(Module3G::SetSignalStatus(INT_MAX, &status), -1);
    EXPECT_STREQ(status.description, "before");
}

TEST_F(ModemTest, ASignalThatIsNotKnownChangesTheTextAlone)
{
    module.Accept("AT+CSQ\r\n", "+CSQ: 25,0");
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    module.Accept("AT+CSQ\r\n", "+CSQ: 99,99");
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    EXPECT_EQ(Module3G::signal_status.rssi, 25);
    EXPECT_EQ(Module3G::signal_status.dBm, -63);
    EXPECT_STREQ(Module3G::signal_status.description, "Not known");
}

TEST_F(ModemTest, ASignalThatIsNoneLeavesTheStatus)
{
    module.Accept("AT+CSQ\r\n", "+CSQ: 25,0");
    EXPECT_EQ(Module3G::CheckSignal(), 0);
    for (const char* line : {"+CSQ: 32,0", "+CSQ: -1,0", "+CSQ: 100,0", "+CSQ: 17", "+CSR: 17,0"})
    {
        module.Accept("AT+CSQ\r\n", line);
        EXPECT_EQ(Module3G::CheckSignal(), -1) << line;
    }
    EXPECT_EQ(Module3G::signal_status.rssi, 25);
    EXPECT_EQ(Module3G::signal_status.dBm, -63);
    EXPECT_STREQ(Module3G::signal_status.description, "Excellent");
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(ModemTest, ASignalWithoutANumberThrows)
{
    for (const char* line : {"+CSQ:,0", "+CSQ: ,0", "+CSQ: x,0"})
    {
        module.Accept("AT+CSQ\r\n", line);
        EXPECT_THROW(Module3G::CheckSignal(), std::invalid_argument) << line;
    }
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_TRUE(LockIsFree());
}

TEST_F(ModemTest, ASignalOfElevenDigitsIsLogged)
{
    module.Accept("AT+CSQ\r\n", "+CSQ: 12345678901,0");
    EXPECT_EQ(Module3G::CheckSignal(), -1);
    EXPECT_THAT(Logged(), ElementsAre("[ERROR][#CELL]stoi"));
}

TEST_F(ModemTest, TheSignalIsAskedForOnTheAlternateInterfaceOnRequest)
{
    ScriptedModule alternate(ALTERNATE_PORT);
    alternate.Accept("AT+CSQ\r\n", "+CSQ: 5,0");
    module.Accept("AT+CSQ\r\n", "+CSQ: 15,0");
    EXPECT_EQ(Module3G::CheckSignal(true), 0);
    EXPECT_STREQ(Module3G::signal_status.description, "Marginal");
    EXPECT_EQ(module.Received(), "");
    EXPECT_EQ(Module3G::CheckSignal(false), 0);
    EXPECT_STREQ(Module3G::signal_status.description, "Good");
    EXPECT_EQ(alternate.Received(), "AT+CSQ\r\n");
}

}

}
