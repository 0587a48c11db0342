#include "examples/unit-monitor/ModemWatch.h"

#include "base/Tavbase/Tavlog/Logger.h"
#include "examples/common/ModemAnswers.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <list>
#include <set>
#include <string_view>

namespace UnitMonitor
{

namespace
{

namespace ModemAnswers = Examples::ModemAnswers;
using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogModule;
using Tavbase::Tavlog::LogType;
using Tavdevice::Modem::Module3G;
using Tavdevice::Modem::Operator;

constexpr std::chrono::seconds BETWEEN_ROUNDS{1};
constexpr int REGISTERED_HOME = 1;
constexpr int REGISTERED_ROAMING = 5;
constexpr int NOTABLE_MILLIVOLTS = 50; // the supply is never quite still

void Log(const std::exception& e)
{
    Logger::GetInstance() << LogType::Error << LogModule::CELL << e.what() << std::endl;
}

}

ModemWatch::ModemWatch(State& sharedState, PlainOutput& plainOutput, bool scanOnce)
    : state(sharedState), output(plainOutput), scan(scanOnce)
{
    name = "modem";
}

ModemWatch::~ModemWatch()
{
    Stop();
}

void ModemWatch::Run()
{
    Round();
    ThreadSleep(BETWEEN_ROUNDS, {});
}

void ModemWatch::Round()
{
    if (((link == Link::Unknown || link == Link::OffBus) && !FindOnBus()) || !ReachIt())
    {
        return;
    }
    AskRegistration();
    AskSignal();
    AskSupply();
}

bool ModemWatch::FindOnBus()
{
    if (!module.CheckModulePresence(true))
    {
        if (link == Link::Unknown && !Ending())
        {
            Lose();
        }
        return false;
    }
    Tell("on the bus");
    link = Link::New;
    state.Set([](Snapshot& now) { now.modem.onBus = true; });
    return true;
}

bool ModemWatch::ReachIt()
{
    if (!Ask(ModemAnswers::IsThere))
    {
        if (Ending())
        {
            return false;
        }
        if (!module.CheckModulePresence(true))
        {
            Lose();
        }
        else if (link != Link::Silent)
        {
            Tell("no answer");
            link = Link::Silent;
            state.Set([](Snapshot& now) { now.modem.answers = false; });
        }
        return false;
    }
    if (link == Link::Silent)
    {
        Tell("answers again");
    }
    link = Link::Answers;
    state.Set([](Snapshot& now) { now.modem.answers = true; });
    if (!told.identity)
    {
        told.identity = true;
        Identify();
        Scan();
    }
    return true;
}

void ModemWatch::Lose()
{
    Tell("not on the bus");
    link = Link::OffBus;
    told = {};
    state.Set([](Snapshot& now) { now.modem = {}; });
}

template <class Question>
bool ModemWatch::Ask(Question question)
{
    return AskOnce(question) || AskOnce(question);
}

template <class Question>
bool ModemWatch::AskOnce(Question question)
try
{
    return !Ending() && question();
}

catch (const std::exception& e) // the port refused its settings, or an answer made no sense
{
    Log(e);
    return false;
}

void ModemWatch::Identify()
{
    TellIdentity("IMEI", Module3G::QueryModuleIMEI, Module3G::m3gIMEI);
    TellIdentity("IMSI", Module3G::QuerySimIMSI, Module3G::m3gSimIMSI);
    TellIdentity("ICCID", Module3G::QuerySimICCID, Module3G::m3gSimICCID);
    TellIdentity("firmware", Module3G::QueryModuleFwVersion, Module3G::m3g_fw_version);
    state.Set([](Snapshot& now) { now.modem.imei = Module3G::m3gIMEI; });
}

void ModemWatch::TellIdentity(const char* what, int (*query)(), std::string& answer)
{
    answer.clear(); // it would keep what another module or SIM has told
    Ask([query] { return query() == 0; });
    if (Ending())
    {
        return;
    }
    const std::string shown = &answer == &Module3G::m3gSimICCID ? ModemAnswers::Iccid() : answer;
    Tell(std::string(what) + " " + (shown.empty() ? "unknown" : shown));
}

void ModemWatch::Scan()
{
    if (!scan || Ending())
    {
        return;
    }
    scan = false;
    std::optional<std::list<Operator>> operators;
    if (!AskOnce([&] { return (operators = ModemAnswers::Operators()).has_value(); }))
    {
        Tell("operators unknown");
        return;
    }
    std::set<std::string> names; // one operator is listed once for each access technology
    for (const Operator& item : *operators)
    {
        names.insert(item.longName);
    }
    std::string list;
    for (const std::string& operatorName : names)
    {
        list += (list.empty() ? ": " : ", ") + operatorName;
    }
    Tell("operators " + std::to_string(names.size()) + list);
}

void ModemWatch::AskRegistration()
{
    int registration = -1;
    if (!Ask([&] { return (registration = Module3G::GetRegistrationStatus()) >= 0; }) ||
        registration == told.registration)
    {
        return;
    }
    told.registration = registration;
    const std::string description = Module3G::GetRegistrationStatusDescription(registration);
    Tell("registration " + description);
    state.Set([&](Snapshot& now) { now.modem.registration = description; });
    AskOperator(registration);
}

void ModemWatch::AskOperator(int registration)
{
    const bool registered = registration == REGISTERED_HOME || registration == REGISTERED_ROAMING;
    std::string operatorName;
    if (!registered || !AskOnce([&] { return !(operatorName = ModemAnswers::Operator()).empty(); }))
    {
        operatorName = "none";
    }
    if (operatorName != told.operatorName && !Ending())
    {
        told.operatorName = operatorName;
        Tell("operator " + operatorName);
        state.Set([&](Snapshot& now) { now.modem.operatorName = operatorName; });
    }
}

void ModemWatch::AskSignal()
{
    if (!Ask([] { return Module3G::CheckSignal() == 0; }))
    {
        return;
    }
    const auto& status = Module3G::signal_status;
    const bool known = std::string_view(status.description) != "Not known"; // the numbers are old ones then
    const std::string signal =
        known ? std::to_string(status.dBm) + " dBm, " + status.description : std::string("unknown");
    if (signal != told.signal)
    {
        told.signal = signal;
        Tell("signal " + signal);
        state.Set([&](Snapshot& now) {
            now.modem.signal = signal;
            now.modem.rssi = known ? std::optional<int>(status.rssi) : std::nullopt;
        });
    }
}

void ModemWatch::AskSupply()
{
    int millivolts = -1;
    if (!Ask([&] { return (millivolts = Module3G::GetVoltageLevel()) >= 0; }))
    {
        return;
    }
    state.Set([millivolts](Snapshot& now) { now.modem.millivolts = millivolts; });
    if (!told.millivolts || std::abs(millivolts - *told.millivolts) >= NOTABLE_MILLIVOLTS)
    {
        told.millivolts = millivolts;
        Tell("supply " + std::to_string(millivolts) + " mV");
    }
}

void ModemWatch::PowerDown()
try
{
    // A module that does not answer would hold the first command for a minute and a half.
    const bool disconnected = link == Link::Answers && Module3G::SendDisconnectCommands() != 0;
    output.Tell("end", disconnected ? "modem disconnected" : "modem not disconnected");
    if (link == Link::Unknown || link == Link::OffBus)
    {
        return;
    }
    Module3G::SendPowerDownCommand();
    output.Tell("end", module.CheckModulePresence(true) ? "modem not switched off" : "modem switched off");
}

catch (const std::exception& e)
{
    Log(e);
    output.Tell("end", "modem not switched off");
}

}
