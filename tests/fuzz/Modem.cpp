// A cellular module that answers one query with anything, with or without its end: the first byte says which
// query. Its result is one of those that are told, and no exception leaves it but the told ones.

#include "Modem/Module3G.h"
#include "tests/Modem/ScriptedModule.h"
#include "tests/fuzz/Target.h"
#include "tests/kit/Clock.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <iterator>
#include <list>
#include <stdexcept>
#include <string>

namespace
{

using Tavdevice::Modem::Module3G;

struct ModemQuery
{
    const char* command;
    const char* own; ///< how a good reply begins, behind the command
    unsigned int exceptions;
    bool (*run)(); ///< true: the result is one of those that are told
};

constexpr unsigned int NONE_THROWN = 0;
constexpr unsigned int INVALID_ARGUMENT = 1;
constexpr unsigned int OUT_OF_RANGE = 2;

bool IsZeroOrFailure(int result)
{
    return result == 0 || result == -1;
}

constexpr ModemQuery MODEM_QUERIES[] = {
    {"AT+CGSN\r\n", "", NONE_THROWN, [] { return IsZeroOrFailure(Module3G::QueryModuleIMEI()); }},
    {"AT+CIMI\r\n", "", NONE_THROWN, [] { return IsZeroOrFailure(Module3G::QuerySimIMSI()); }},
    {"AT+QCCID\r\n", "+QCCID: ", NONE_THROWN, [] { return IsZeroOrFailure(Module3G::QuerySimICCID()); }},
    {"ATI\r\n", "Revision: ", OUT_OF_RANGE, [] { return IsZeroOrFailure(Module3G::QueryModuleFwVersion()); }},
    {"AT+CBC\r\n", "+CBC: ", OUT_OF_RANGE,
     [] {
         Module3G::GetVoltageLevel();
         return true;
     }},
    {"AT+QLTS\r\n", "+QLTS: ", NONE_THROWN, [] { return IsZeroOrFailure(Module3G::GetTime()); }},
    {"AT+CSQ\r\n", "+CSQ: ", INVALID_ARGUMENT,
     [] {
         const int result = Module3G::CheckSignal();
         const auto& status = Module3G::signal_status;
         return IsZeroOrFailure(result) && status.rssi >= 0 && status.rssi <= 31 &&
                strnlen(status.description, sizeof status.description) < sizeof status.description;
     }},
    {"AT+CREG?\r\n", "+CREG: ", INVALID_ARGUMENT,
     [] {
         const int state = Module3G::GetRegistrationStatus();
         return state >= -1 && state <= 9;
     }},
    {"AT+COPS=?\r\n", "+COPS: ", INVALID_ARGUMENT | OUT_OF_RANGE,
     [] {
         std::list<Tavdevice::Modem::Operator> list;
         const int result = Module3G::GetCarriersList(&list);
         return IsZeroOrFailure(result) &&
                std::ranges::is_sorted(list, std::greater(), &Tavdevice::Modem::Operator::accessTechnology);
     }},
    {"AT+COPS?\r\n", "+COPS: 0,0,\"", NONE_THROWN,
     [] {
         std::string name = "\"";
         const bool read = Module3G::GetCarrierName(name);
         return read == (name.find('"') == std::string::npos);
     }},
    {"AT+QSCLK?\r\n", "+QSCLK: ", NONE_THROWN, [] { return IsZeroOrFailure(Module3G::SetSleepMode(1)); }},
};

/// What an application finds when its process begins.
void ForgetModem()
{
    for (std::string* text :
         {&Module3G::m3gSimICCID, &Module3G::m3gSimIMSI, &Module3G::m3gIMEI, &Module3G::m3g_fw_version})
    {
        std::string().swap(*text);
    }
    Module3G::registration_status = -1;
    Module3G::signal_status = {};
    std::memset(Module3G::bufferAtCommands, 0, 4096);
}

}

FUZZ_TARGET(Modem)
{
    using namespace std::chrono_literals;
    constexpr std::size_t LONGEST = 3900; // bytes: what a line holds that is read slowly
    Fuzz::Input rest(input);
    const unsigned char how = rest.Byte();
    const ModemQuery& query = MODEM_QUERIES[how % 16 % std::size(MODEM_QUERIES)];
    std::string reply(rest.Bytes(LONGEST));
    if (how < 128)
    {
        reply = std::string(query.command) + "\r\n" + query.own + reply + "\r\n\r\nOK\r\n";
    }
    const Kit::Clock clock;
    ModemTests::ScriptedModule module(
        "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0");
    module.On(query.command, ModemTests::Answer{{0ms, reply}, {150ms, std::string(query.command) + "ERROR"}});
    try
    {
        FUZZ_REQUIRE(query.run());
    }
    catch (const std::invalid_argument&)
    {
        FUZZ_REQUIRE((query.exceptions & INVALID_ARGUMENT) != 0);
    }
    catch (const std::out_of_range&)
    {
        FUZZ_REQUIRE((query.exceptions & OUT_OF_RANGE) != 0);
    }
    FUZZ_REQUIRE(Module3G::bufferAtCommands[4096] == '\0');
    ForgetModem();
}
