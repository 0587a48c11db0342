// modem-info: an application of the device library that shows what the cellular module and the network say.

#include "Modem/Module3G.h"
#include "examples/common/ModemAnswers.h"
#include "examples/common/Options.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <list>
#include <optional>
#include <string>

namespace
{

namespace ModemAnswers = Examples::ModemAnswers;
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

void ShowIdentity()
{
    Module3G::StoreModuleIdentityItems();
    Show("IMEI", Module3G::m3gIMEI);
    Show("firmware", Module3G::m3g_fw_version);
    Show("IMSI", Module3G::m3gSimIMSI);
    Show("ICCID", ModemAnswers::Iccid());
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
    Show("operator", ModemAnswers::Operator());
}

void ShowOperators()
{
    std::printf("\nscanning for operators ...\n");
    const std::optional<std::list<Operator>> operators = ModemAnswers::Operators();
    if (!operators)
    {
        std::printf("the scan failed\n");
        return;
    }
    for (const Operator& item : *operators)
    {
        const char* const states[] = {"unknown", "available", "current", "forbidden"};
        const bool known = item.status >= 0 && item.status <= 3;
        std::printf("  %-6s %-24s %-9s %s\n", item.numeric.c_str(), item.longName.c_str(),
                    states[known ? item.status : 0], item.accessTechnology == 0 ? "GSM" : "UTRAN");
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
        if (!ModemAnswers::IsThere())
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
