// modem-info: an application of the device library that shows what the cellular module and the network say.

#include "Modem/Module3G.h"
#include "examples/common/Options.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <list>
#include <string>

namespace
{

using Tavdevice::Modem::Module3G;
using Tavdevice::Modem::Operator;

constexpr const char* USAGE =
    "usage: modem-info [--log FILE]\n"
    "\n"
    "Shows the cellular module's identity, signal and registration, and the operators that it sees (which "
    "may\n"
    "take three minutes).\n"
    "\n"
    "  --log FILE  append the device library's log to FILE\n"
    "\n"
    "Exit status: 0 when the module answered, 1 when not, 2 for a wrong command line.\n";

constexpr int NO_MODULE = 1;

void Show(const char* name, const std::string& value)
{
    std::printf("%-18s%s\n", name, value.empty() ? "unknown" : value.c_str());
}

bool ModuleAnswers()
{
    constexpr int CYCLES = 4;
    char attention[] = "AT\r\n"; // commands are taken as char*: from a buffer of one's own
    return Module3G::SendATCommand(attention, CYCLES) == 0;
}

void ShowIdentity()
{
    Module3G::StoreModuleIdentityItems();
    Show("IMEI", Module3G::m3gIMEI);
    Show("firmware", Module3G::m3g_fw_version);
    Show("IMSI", Module3G::m3gSimIMSI);
    Show("ICCID", Module3G::m3gSimICCID.substr(0, Module3G::m3gSimICCID.find('\r')));
    const int millivolts = Module3G::GetVoltageLevel();
    Show("supply", millivolts < 0 ? std::string() : std::to_string(millivolts) + " mV");
}

void ShowNetwork()
{
    const bool signal = Module3G::CheckSignal() == 0;
    Show("signal",
         signal ? std::to_string(Module3G::signal_status.dBm) + " dBm, " + Module3G::signal_status.description
                : std::string());
    Module3G::EnableNetworkRegistration();
    const int state = Module3G::GetRegistrationStatus();
    Show("registration", state < 0 ? std::string() : Module3G::GetRegistrationStatusDescription(state));
    std::string carrier;
    Module3G::GetCarrierName(carrier);
    Show("operator",
         carrier.substr(0, carrier.rfind(','))); // the library leaves a comma and a digit behind it
}

void ShowOperators()
{
    std::printf("\nscanning for operators ...\n");
    std::list<Operator> operators;
    if (Module3G::GetCarriersList(&operators) != 0)
    {
        std::printf("the scan failed\n");
        return;
    }
    for (const Operator& item : operators)
    {
        if (!item.numeric.empty()) // the lists of modes and formats behind the operators have none
        {
            const char* const states[] = {"unknown", "available", "current", "forbidden"};
            const bool known = item.status >= 0 && item.status <= 3;
            std::printf("  %-6s %-24s %-9s %s\n", item.numeric.c_str(), item.longName.c_str(),
                        states[known ? item.status : 0], item.accessTechnology == 0 ? "GSM" : "UTRAN");
        }
    }
}

}

int main(int argc, char** argv)
{
    const Examples::Options options = Examples::Options::ParseOrExit(argc, argv, USAGE);
    options.SetUpLog();
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    try
    {
        Module3G module;
        Show("on the USB bus", module.CheckModulePresence(true) ? "yes" : "no");
        if (!ModuleAnswers())
        {
            std::fprintf(stderr, "the cellular module does not answer\n");
            return NO_MODULE;
        }
        ShowIdentity();
        ShowNetwork();
        ShowOperators();
        return EXIT_SUCCESS;
    }
    catch (const std::exception& e) // the port refused its settings, or an answer made no sense
    {
        std::fprintf(stderr, "the cellular module cannot be used: %s\n", e.what());
        return NO_MODULE;
    }
}
