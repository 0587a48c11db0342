#include "Modem/Module3G.h"
#include "base/Tavbase/IException.h"
#include "tests/Modem/ModemTest.h"
#include "tests/Modem/ScriptedModule.h"
#include "tests/sweep/Operation.h"

#include <cstring>
#include <initializer_list>
#include <list>
#include <string>
#include <unistd.h>
#include <utility>

namespace
{

using ModemTests::Reply;
using Sweep::Text;
using Tavdevice::Modem::Module3G;

/// A module that answers one command, and the class as a process begins with it.
struct Module
{
    Module(const char* command, const char* line) : Module({std::pair{command, line}}) {}

    explicit Module(std::initializer_list<std::pair<const char*, const char*>> answers)
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
        Module3G::autoCarrierSelection = false;
        Tavdevice::Modem::NR_OF_TRIES = 2;
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
    Sweep::Try([] {
        const int result = Module3G::CheckSignal();
        return Text(result) + " " + Text(Module3G::signal_status.rssi);
    });
}

SWEEP(Module3G, CheckSignalOnTheAlternatePort)
{
    Module made("AT+CSQ\r\n", "+CSQ: 17,0");
    ModemTests::ScriptedModule other(ModemTests::ALTERNATE_PORT);
    other.On("AT+CSQ\r\n", ModemTests::Answer{{ModemTests::CYCLE / 2, Reply("AT+CSQ\r\n", "+CSQ: 18,0")}});
    Sweep::Try([] {
        const int result = Module3G::CheckSignal(true);
        return Text(result) + " " + Text(Module3G::signal_status.rssi);
    });
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
    Module made({std::pair{"AT+CREG=2\r\n", ""}, {"AT+CGREG=2\r\n", ""}});
    Sweep::Try([] { return Text(Module3G::EnableNetworkRegistration()); });
}

SWEEP(Module3G, SetOperator)
{
    Module made("AT+COPS=1,2,\"22601\",2\r\n", "");
    Sweep::Try([] { return Text(Module3G::SetOperator(22601)); });
}

SWEEP(Module3G, SetPowerSaveMode)
{
    Module made("AT+QCFG=\"pwrsavedtr\",1\r\n", "");
    Sweep::Try([] { return Text(Module3G::SetPowerSaveMode(1)); });
}

SWEEP(Module3G, SetSleepMode)
{
    Module made("AT+QSCLK?\r\n", "");
    Sweep::Try([] { return Text(Module3G::SetSleepMode(1)); });
}

SWEEP(Module3G, SendDisconnectCommands)
{
    Module made({std::pair{"ATH\r\n", ""}, {"AT+CGACT=0,1\r\n", ""}, {"AT+CGATT=0\r\n", ""}});
    Sweep::Try([] { return Text(Module3G::SendDisconnectCommands()); });
}

SWEEP(Module3G, SendPowerDownCommand)
{
    Module made("AT+QPOWD=1\r\n", "");
    Sweep::Try([] {
        Module3G::SendPowerDownCommand();
        return std::string("done");
    });
}

SWEEP(Module3G, OpenPort)
{
    Module made("AT\r\n", "");
    std::string path = ModemTests::MAIN_PORT;
    Sweep::Try([&] {
        const int fd = Module3G::OpenPort(path.data());
        const bool opened = fd >= 0;
        if (opened)
        {
            close(fd);
        }
        return std::string(opened ? "a descriptor" : "none");
    });
}

SWEEP(Module3G, StoreModuleIdentityItems)
{
    Module made({std::pair{"AT+CGSN\r\n", "861234567890123"},
                 {"AT+CIMI\r\n", "226101234567890"},
                 {"AT+QCCID\r\n", "+QCCID: 89400102030405060708"},
                 {"ATI\r\n", "Revision: UC20GQBR03A12E1G"},
                 {"AT+QCFG=\"pwrsavedtr\",0\r\n", ""}});
    Sweep::Try([] {
        return Text(Module3G::StoreModuleIdentityItems()) + " " + Module3G::m3gIMEI + " " +
               Module3G::m3gSimIMSI + " " + Module3G::m3gSimICCID + " " + Module3G::m3g_fw_version;
    });
}

SWEEP(Module3G, IsRegistered)
{
    Module made("AT+CREG?\r\n", "+CREG: 0,5");
    Sweep::Try([] { return Text(Module3G::IsRegistered()); });
}

SWEEP(Module3G, SelectNetwork)
{
    Module made({std::pair{"AT+COPS=?\r\n", "+COPS: (1,\"One\",\"One\",\"22601\",2),,(0-4),(0-2)"},
                 {"AT+COPS=1,2,\"22601\",2\r\n", ""}});
    Module3G::PreferredOperatorList.emplace_back().code = 22601;
    Sweep::Try([] { return Text(Module3G::SelectNetwork()); });
}

SWEEP(Module3G, SwitchToAutoCarrierSelectionMode)
{
    Module made("AT+COPS=0\r\n", "");
    Sweep::Try([] { return Text(Module3G::SwitchToAutoCarrierSelectionMode()); });
}

SWEEP(Module3G, SetNetworkSearchMode)
{
    Module made("AT+QCFG=\"nwscanmode\",2,1\r\n", "");
    Sweep::Try([] { return Text(Module3G::SetNetworkSearchMode(2)); });
}

SWEEP(Module3G, SetBand)
{
    Module made("AT+QCFG=\"band\",512,1\r\n", "");
    Sweep::Try([] { return Text(Module3G::SetBand(512)); });
}

SWEEP(Module3G, SetLowVoltageLimit)
{
    Module made("AT+QCFG=\"vbatt\",-2,3300,1\r\n", "");
    Sweep::Try([] { return Text(Module3G::SetLowVoltageLimit(3300, true)); });
}

SWEEP(Module3G, CheckModulePresence)
{
    Module made("AT\r\n", "");
    Module3G module;
    Sweep::Try([&] { return Text(module.CheckModulePresence(true)); });
}

}
