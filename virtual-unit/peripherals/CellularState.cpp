#include "virtual-unit/peripherals/CellularState.h"

#include "virtual-unit/peripherals/AtCommand.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <utility>

namespace VirtualUnit
{

namespace
{

using Answer = CellularState::Answer;
using Kind = AtCommand::Kind;
using Operator = CellularState::Operator;
using Registration = CellularState::Registration;
using Status = CellularState::Operator::Status;

constexpr const char* ERROR = "ERROR";
constexpr const char* SIM_NOT_INSERTED = "+CME ERROR: 10";
constexpr const char* NO_NETWORK_SERVICE = "+CME ERROR: 30";

/// What a command has to do with.
struct Request
{
    const AtCommand& command;
    std::chrono::seconds age;
};

Answer Failure(const char* result)
{
    return {{}, result};
}

Answer Line(std::string text)
{
    return {{std::move(text)}};
}

std::string Quoted(const std::string& text)
{
    return '"' + text + '"';
}

// --- Identity and status

Answer TellImei(CellularState& state, const Request&)
{
    return Line(state.imei);
}

Answer TellImsi(CellularState& state, const Request&)
{
    return state.sim ? Line(state.imsi) : Failure(SIM_NOT_INSERTED);
}

Answer TellIccid(CellularState& state, const Request&)
{
    return state.sim ? Line("+QCCID: " + state.iccid) : Failure(SIM_NOT_INSERTED);
}

Answer TellIdentity(CellularState& state, const Request&)
{
    return {{state.manufacturer, state.model, "Revision: " + state.revision}};
}

Answer TellVoltage(CellularState& state, const Request&)
{
    return Line("+CBC: " + std::to_string(state.chargeState) + "," + std::to_string(state.chargePercent) +
                "," + std::to_string(state.millivolts));
}

Answer TellTime(CellularState& state, const Request& request)
{
    using namespace std::chrono;
    const sys_seconds now = state.clock + request.age;
    const auto day = floor<days>(now);
    const year_month_day date(day);
    const hh_mm_ss time(now - day);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "+QLTS: \"%02d/%02u/%02u,%02d:%02d:%02d%c%02d,%d\"",
                  static_cast<int>(date.year()) % 100, static_cast<unsigned int>(date.month()),
                  static_cast<unsigned int>(date.day()), static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                  state.quarterHoursEast < 0 ? '-' : '+', std::abs(state.quarterHoursEast),
                  state.daylightSaving ? 1 : 0);
    return Line(text.data());
}

Answer TellSignal(CellularState& state, const Request&)
{
    return Line("+CSQ: " + std::to_string(state.rssi) + "," + std::to_string(state.bitErrorRate));
}

// --- Registration

std::string WithLocation(const CellularState& state, int reports)
{
    const std::string registration = std::to_string(static_cast<int>(state.CurrentRegistration()));
    return reports == 2 && state.Registered()
               ? registration + "," + Quoted(state.area) + "," + Quoted(state.cell)
               : registration;
}

Answer RegistrationReports(CellularState& state, const Request& request, int CellularState::*reports)
{
    const AtCommand& command = request.command;
    if (command.kind == Kind::Set)
    {
        const std::optional<int> wanted = command.Number(0, 0, 2);
        if (!wanted)
        {
            return Failure(ERROR);
        }
        state.*reports = *wanted;
        return {};
    }
    return Line(command.name + ": " + std::to_string(state.*reports) + "," +
                WithLocation(state, state.*reports));
}

Answer NetworkRegistration(CellularState& state, const Request& request)
{
    return RegistrationReports(state, request, &CellularState::registrationReports);
}

Answer PacketRegistration(CellularState& state, const Request& request)
{
    return RegistrationReports(state, request, &CellularState::packetRegistrationReports);
}

// --- Operators

std::string NameInFormat(const Operator& item, int format)
{
    return format == 0 ? item.longName : format == 1 ? item.shortName : item.numeric;
}

auto FindCurrent(std::vector<Operator>& operators)
{
    return std::ranges::find(operators, Status::Current, &Operator::status);
}

Answer ListOperators(CellularState& state, const Request&)
{
    if (!state.sim)
    {
        return Failure(SIM_NOT_INSERTED);
    }
    std::string list = "+COPS: ";
    for (const Operator& item : state.operators)
    {
        list += "(" + std::to_string(static_cast<int>(item.status)) + "," + Quoted(item.longName) + "," +
                Quoted(item.shortName) + "," + Quoted(item.numeric) + "," +
                std::to_string(item.accessTechnology) + "),";
    }
    return Line(list + (state.operators.empty() ? "," : "") + ",(0,1,2,3,4),(0,1,2)");
}

Answer TellOperator(CellularState& state, const Request&)
{
    const auto current = FindCurrent(state.operators);
    const std::string mode = "+COPS: " + std::to_string(state.selectionMode);
    return Line(!state.Registered() || current == state.operators.end()
                    ? mode
                    : mode + "," + std::to_string(state.operatorFormat) + "," +
                          Quoted(NameInFormat(*current, state.operatorFormat)) + "," +
                          std::to_string(current->accessTechnology));
}

Answer Register(CellularState& state, Operator* chosen)
{
    const auto former = FindCurrent(state.operators);
    if (former != state.operators.end())
    {
        former->status = Status::Available;
    }
    if (chosen == nullptr || chosen->status == Status::Forbidden)
    {
        state.registration = chosen == nullptr ? Registration::Searching : Registration::Denied;
        return Failure(NO_NETWORK_SERVICE);
    }
    chosen->status = Status::Current;
    state.registration = state.imsi.starts_with(chosen->numeric) ? Registration::Home : Registration::Roaming;
    return {};
}

/// The home network before all others, then the newest technology, then the order of the list.
Operator* ChooseAutomatically(CellularState& state)
{
    Operator* best = nullptr;
    const auto rank = [&](const Operator& item) {
        return (state.imsi.starts_with(item.numeric) ? 100 : 0) + item.accessTechnology;
    };
    for (Operator& item : state.operators)
    {
        if (item.status != Status::Forbidden && (best == nullptr || rank(item) > rank(*best)))
        {
            best = &item;
        }
    }
    return best;
}

/// In the technology that is asked for, else in another one.
Operator* Choose(CellularState& state, const std::string& name, int format, std::optional<int> technology)
{
    Operator* found = nullptr;
    for (Operator& item : state.operators)
    {
        if (NameInFormat(item, format) == name && (found == nullptr || item.accessTechnology == technology))
        {
            found = &item;
        }
    }
    return found;
}

Answer SelectOperator(CellularState& state, const Request& request)
{
    constexpr int AUTOMATIC = 0;
    constexpr int MANUAL = 1;
    constexpr int SET_FORMAT = 3;
    const AtCommand& command = request.command;
    const std::optional<int> mode = command.Number(0, AUTOMATIC, SET_FORMAT);
    const std::optional<int> format = command.Number(1, 0, 2);
    if (mode == SET_FORMAT && format)
    {
        state.operatorFormat = *format;
        return {};
    }
    if (!state.sim)
    {
        return Failure(SIM_NOT_INSERTED);
    }
    if (mode == AUTOMATIC)
    {
        state.selectionMode = AUTOMATIC;
        return Register(state, ChooseAutomatically(state));
    }
    if (mode == MANUAL && format && command.parameters.size() > 2)
    {
        state.selectionMode = MANUAL;
        state.operatorFormat = *format;
        return Register(state, Choose(state, command.parameters[2], *format, command.Number(3, 0, 9)));
    }
    return Failure(ERROR);
}

// --- Configuration and power

struct Setting
{
    std::string_view name;
    std::size_t values;     ///< that are kept
    std::size_t mostValues; ///< that may be given; the one behind those kept: whether it takes effect at once
    int lowest;             ///< of the first
    int highest;
};

constexpr Setting SETTINGS[] = {{"pwrsavedtr", 1, 1, 0, 1},
                                {"nwscanmode", 1, 2, 0, 2},
                                {"band", 1, 2, 1, 0xFFFF},
                                {"vbatt", 3, 3, -2, 2}};

Answer Configure(CellularState& state, const Request& request)
{
    const std::vector<std::string>& parameters = request.command.parameters;
    const auto setting = std::ranges::find(SETTINGS, std::string_view(parameters[0]), &Setting::name);
    if (setting == std::end(SETTINGS))
    {
        return Failure(ERROR);
    }
    const std::size_t values = parameters.size() - 1;
    if (values == 0)
    {
        return Line("+QCFG: " + Quoted(parameters[0]) + "," + state.configuration[parameters[0]]);
    }
    const bool numbers = std::all_of(parameters.begin() + 1, parameters.end(), [](const std::string& text) {
        return AtCommand::ToNumber(text).has_value();
    });
    if (!numbers || values < setting->values || values > setting->mostValues ||
        !request.command.Number(1, setting->lowest, setting->highest))
    {
        return Failure(ERROR);
    }
    std::string kept = parameters[1];
    for (std::size_t i = 2; i <= setting->values; ++i)
    {
        kept += "," + parameters[i];
    }
    state.configuration[parameters[0]] = kept;
    return {};
}

Answer TellSlowClock(CellularState& state, const Request&)
{
    return Line("+QSCLK: " + std::to_string(state.slowClock));
}

Answer SetSlowClock(CellularState& state, const Request& request)
{
    const std::optional<int> wanted = request.command.Number(0, 0, 2);
    state.slowClock = wanted.value_or(state.slowClock);
    return wanted ? Answer() : Failure(ERROR);
}

Answer Agree(CellularState&, const Request&)
{
    return {};
}

Answer SetContext(CellularState& state, const Request& request)
{
    const std::optional<int> active = request.command.Number(0, 0, 1);
    if (!active || (*active == 1 && !(state.attached && state.Registered())))
    {
        return Failure(ERROR);
    }
    state.context = *active == 1;
    return {};
}

Answer Attach(CellularState& state, const Request& request)
{
    const std::optional<int> attached = request.command.Number(0, 0, 1);
    if (!attached || (*attached == 1 && !state.Registered()))
    {
        return Failure(ERROR);
    }
    state.attached = *attached == 1;
    state.context = state.context && state.attached;
    return {};
}

Answer PowerDown(CellularState&, const Request& request)
{
    Answer answer;
    answer.powersDown = request.command.Number(0, 0, 1).has_value();
    return answer.powersDown ? answer : Failure(ERROR);
}

struct Entry
{
    std::string_view name;
    Kind kind;
    Answer (*answer)(CellularState& state, const Request& request);
};

constexpr Entry COMMANDS[] = {{"", Kind::Execute, Agree},
                              {"H", Kind::Execute, Agree}, // there is never a call
                              {"I", Kind::Execute, TellIdentity},
                              {"+CGSN", Kind::Execute, TellImei},
                              {"+CIMI", Kind::Execute, TellImsi},
                              {"+QCCID", Kind::Execute, TellIccid},
                              {"+CBC", Kind::Execute, TellVoltage},
                              {"+QLTS", Kind::Execute, TellTime},
                              {"+CSQ", Kind::Execute, TellSignal},
                              {"+CREG", Kind::Read, NetworkRegistration},
                              {"+CREG", Kind::Set, NetworkRegistration},
                              {"+CGREG", Kind::Read, PacketRegistration},
                              {"+CGREG", Kind::Set, PacketRegistration},
                              {"+COPS", Kind::Test, ListOperators},
                              {"+COPS", Kind::Read, TellOperator},
                              {"+COPS", Kind::Set, SelectOperator},
                              {"+QCFG", Kind::Set, Configure},
                              {"+QSCLK", Kind::Read, TellSlowClock},
                              {"+QSCLK", Kind::Set, SetSlowClock},
                              {"+CGACT", Kind::Set, SetContext},
                              {"+CGATT", Kind::Set, Attach},
                              {"+QPOWD", Kind::Set, PowerDown}};

}

void CellularState::RegisterAs(Registration to)
{
    registration = to;
    const auto chosen = std::ranges::find_if(operators, [&](const Operator& item) {
        return item.status != Status::Forbidden &&
               imsi.starts_with(item.numeric) == (to == Registration::Home);
    });
    if (Registered() && chosen != operators.end())
    {
        const auto former = FindCurrent(operators);
        if (former != operators.end())
        {
            former->status = Status::Available;
        }
        chosen->status = Status::Current;
    }
}

bool CellularState::Registered() const
{
    const Registration now = CurrentRegistration();
    return now == Registration::Home || now == Registration::Roaming;
}

std::chrono::milliseconds CellularState::TimeFor(std::string_view line) const
{
    const AtCommand command = AtCommand::Parse(line);
    if (command.name != "+COPS" || command.kind == Kind::Read || !sim)
    {
        return {};
    }
    return command.kind == Kind::Test                             ? scanTime
           : command.Number(0, 0, 1) && command.kind == Kind::Set ? registrationTime
                                                                  : std::chrono::milliseconds(0);
}

CellularState::Answer CellularState::Obey(std::string_view line, std::chrono::seconds sinceSwitchedOn)
{
    const AtCommand command = AtCommand::Parse(line);
    const auto entry = std::ranges::find_if(
        COMMANDS, [&](const Entry& e) { return e.name == command.name && e.kind == command.kind; });
    return entry == std::end(COMMANDS) ? Failure(ERROR) : entry->answer(*this, {command, sinceSwitchedOn});
}

std::vector<std::string> CellularState::ReportsSince(const CellularState& before) const
{
    std::vector<std::string> reports;
    const auto report = [&](const std::string& name, int mode) {
        if (mode > 0 && WithLocation(*this, mode) != WithLocation(before, mode))
        {
            reports.push_back(name + ": " + WithLocation(*this, mode));
        }
    };
    report("+CREG", registrationReports);
    report("+CGREG", packetRegistrationReports);
    return reports;
}

}
