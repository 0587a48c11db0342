#include "Modem/Module3G.h"
#include "base/Tavbase/IException.h"
#include "tests/Modem/ModemTest.h"
#include "tests/Modem/ScriptedModule.h"
#include "tests/sweep/Operation.h"

#include <cstring>
#include <list>
#include <string>
#include <utility>

namespace
{

using ModemTests::Reply;
using Sweep::Text;
using Tavdevice::Modem::Module3G;

/// A module that answers one command, and the class as a process begins with it.
struct Module
{
    Module(const std::string& command, const std::string& line) : Module({{command, line}}) {}

    explicit Module(const std::list<std::pair<std::string, std::string>>& answers)
    {
        Forget();
        for (const auto& [command, line] : answers)
        {
            module.On(command, ModemTests::Answer{{ModemTests::CYCLE / 2, Reply(command, line)}});
        }
    }

    ~Module() { Forget(); }

    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    static void Forget()
    {
        for (std::string* text :
             {&Module3G::m3gSimICCID, &Module3G::m3gSimIMSI, &Module3G::m3gIMEI, &Module3G::m3g_fw_version})
        {
            std::string().swap(*text);
        }
        Module3G::registration_status = -1;
        Module3G::signal_status = {};
        Module3G::PreferredOperatorList.clear();
        std::memset(Module3G::bufferAtCommands, 0, ModemTests::REPLY_BYTES);
    }

    ModemTests::ScriptedModule module{ModemTests::MAIN_PORT};
};

SWEEP(Module3G, SendATCommand)
{
    Module made("AT\r\n", "");
    std::string command = "AT\r\n";
    Sweep::Try([&] { return Text(Module3G::SendATCommand(command.data(), 4)); });
}

SWEEP(Module3G, QueryModuleIMEI)
{
    Module made("AT+CGSN\r\n", "861234567890123");
    Sweep::Try([] { return Text(Module3G::QueryModuleIMEI()) + " " + Module3G::m3gIMEI; });
}

SWEEP(Module3G, QuerySimIMSI)
{
    Module made("AT+CIMI\r\n", "226101234567890");
    Sweep::Try([] { return Text(Module3G::QuerySimIMSI()) + " " + Module3G::m3gSimIMSI; });
}

SWEEP(Module3G, QuerySimICCID)
{
    Module made("AT+QCCID\r\n", "+QCCID: 89400102030405060708");
    Sweep::Try([] { return Text(Module3G::QuerySimICCID()) + " " + Module3G::m3gSimICCID; });
}

SWEEP(Module3G, QueryModuleFwVersion)
{
    Module made("ATI\r\n", "Revision: UC20GQBR03A12E1G");
    Sweep::Try([] { return Text(Module3G::QueryModuleFwVersion()) + " " + Module3G::m3g_fw_version; });
}

SWEEP(Module3G, GetVoltageLevel)
{
    Module made("AT+CBC\r\n", "+CBC: 0,80,3912");
    Sweep::Try([] { return Text(Module3G::GetVoltageLevel()); });
}

SWEEP(Module3G, GetTime)
{
    Module made("AT+QLTS\r\n", "+QLTS: \"26/03/01,08:15:00+00,0\"");
    Sweep::Try([] { return Text(Module3G::GetTime()); });
}

SWEEP(Module3G, CheckSignal)
{
    Module made("AT+CSQ\r\n", "+CSQ: 17,0");
    Sweep::Try([] { return Text(Module3G::CheckSignal()) + " " + Text(Module3G::signal_status.rssi); });
}

SWEEP(Module3G, CheckSignalOnTheAlternatePort)
{
    Module made("AT+CSQ\r\n", "+CSQ: 17,0");
    ModemTests::ScriptedModule other(ModemTests::ALTERNATE_PORT);
    other.On("AT+CSQ\r\n", ModemTests::Answer{{ModemTests::CYCLE / 2, Reply("AT+CSQ\r\n", "+CSQ: 18,0")}});
    Sweep::Try([] { return Text(Module3G::CheckSignal(true)) + " " + Text(Module3G::signal_status.rssi); });
}

SWEEP(Module3G, GetRegistrationStatus)
{
    Module made("AT+CREG?\r\n", "+CREG: 0,1");
    Sweep::Try([] { return Text(Module3G::GetRegistrationStatus()); });
}

SWEEP(Module3G, GetCarriersList)
{
    Module made("AT+COPS=?\r\n",
                "+COPS: (2,\"One\",\"One\",\"22601\",2),(1,\"Two\",\"Two\",\"22610\",0),,(0-4),(0-2)");
    Sweep::Try([] {
        std::list<Tavdevice::Modem::Operator> list;
        const int result = Module3G::GetCarriersList(&list);
        return Text(result) + " " + Text(static_cast<int>(list.size()));
    });
}

SWEEP(Module3G, GetCarrierName)
{
    Module made("AT+COPS?\r\n", "+COPS: 0,0,\"One\",2");
    Sweep::Try([] {
        std::string name;
        const bool result = Module3G::GetCarrierName(name);
        return Text(result) + " " + name;
    });
}

SWEEP(Module3G, EnableNetworkRegistration)
{
    Module made("AT+CREG=1\r\n", "");
    Sweep::Try([] { return Text(Module3G::EnableNetworkRegistration()); });
}

SWEEP(Module3G, SetOperator)
{
    Module made("AT+COPS=1,2,\"22601\"\r\n", "");
    Sweep::Try([] { return Text(Module3G::SetOperator(22601)); });
}

SWEEP(Module3G, SetPowerSaveMode)
{
    Module made("AT+QCFG=\"pwrsavedtr\",1\r\n", "");
    Sweep::Try([] { return Text(Module3G::SetPowerSaveMode(1)); });
}

SWEEP(Module3G, SetSleepMode)
{
    Module made("AT+QSCLK=1\r\n", "");
    Sweep::Try([] { return Text(Module3G::SetSleepMode(1)); });
}

SWEEP(Module3G, SendDisconnectCommands)
{
    Module made("AT+QIDEACT=1\r\n", "");
    Sweep::Try([] { return Text(Module3G::SendDisconnectCommands()); });
}

SWEEP(Module3G, SendPowerDownCommand)
{
    Module made("AT+QPOWD\r\n", "");
    Sweep::Try([] {
        Module3G::SendPowerDownCommand();
        return std::string("done");
    });
}

}
