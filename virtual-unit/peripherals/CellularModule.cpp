#include "virtual-unit/peripherals/CellularModule.h"

#include <algorithm>
#include <cctype>

namespace VirtualUnit
{

namespace
{

using Answer = CellularState::Answer;

constexpr std::size_t LONGEST_LINE = 2048;
constexpr std::string_view LINE_END = "\r\n";
constexpr std::string_view POWERED_DOWN = "\r\nPOWERED DOWN\r\n";
constexpr std::chrono::seconds UNTIL_POWERED_DOWN{1};
constexpr std::chrono::seconds UNTIL_OFF_THE_BUS{2};

bool IsCommand(std::string_view line)
{
    return line.size() >= 2 && std::toupper(line[0]) == 'A' && std::toupper(line[1]) == 'T';
}

bool IsEchoCommand(std::string_view line)
{
    return line.size() == 4 && std::toupper(line[2]) == 'E' && (line[3] == '0' || line[3] == '1');
}

/// Text in which no result is found.
std::string Flood(std::size_t bytes)
{
    constexpr std::string_view LINE = "\r\n+QIND: \"debug\",0123456789ABCDEF0123456789ABCDEF";
    std::string text;
    while (text.size() < bytes)
    {
        text += LINE;
    }
    text.resize(bytes);
    return text;
}

}

void CellularModule::Interface::SetLine(const Transmitter::Options& line)
{
    const std::lock_guard lock(module.access);
    transmitter.options = line;
}

void CellularModule::Interface::Receive(std::string_view bytes, TimePoint now)
{
    const std::lock_guard lock(module.access);
    module.Elapse(now);
    if (!module.onBus || left)
    {
        return;
    }
    received += bytes;
    Work(module.latest);
}

std::optional<SerialPeripheral::TimePoint> CellularModule::Interface::NextDeadline() const
{
    const std::lock_guard lock(module.access);
    std::optional<TimePoint> next = module.leaveAt;
    for (const std::optional<TimePoint>& time :
         {transmitter.NextDeadline(), running ? std::optional(running->due) : std::nullopt})
    {
        next = next && time ? std::min(next, time) : next ? next : time;
    }
    return next;
}

void CellularModule::Interface::Advance(TimePoint now)
{
    const std::lock_guard lock(module.access);
    module.Elapse(now);
    Work(module.latest);
}

std::vector<std::string> CellularModule::Interface::TakeOutput()
{
    const std::lock_guard lock(module.access);
    return std::exchange(output, {});
}

bool CellularModule::Interface::IsConnected() const
{
    const std::lock_guard lock(module.access);
    return module.onBus && !left;
}

bool CellularModule::Interface::TakesOutput() const
{
    const std::lock_guard lock(module.access);
    return !faults.stuck;
}

void CellularModule::Interface::Attach(const std::function<void()>& hostsWake)
{
    const std::lock_guard lock(module.access);
    wake = hostsWake;
    left = !module.onBus;
    Reset();
}

/// What is due by `now`, in its order.
void CellularModule::Interface::Work(TimePoint now)
{
    for (;;)
    {
        if (running)
        {
            if (running->due > now)
            {
                break;
            }
            Finish(running->due);
            continue;
        }
        const std::size_t end = received.find('\r');
        if (end == std::string::npos)
        {
            received.erase(0, received.size() > LONGEST_LINE ? received.size() : 0);
            break;
        }
        std::string line = received.substr(0, end);
        received.erase(0, end + 1);
        std::erase(line, '\n');
        Begin(line, now);
    }
    if (faults.silent)
    {
        transmitter.Discard();
    }
    transmitter.Take(now, output);
}

void CellularModule::Interface::Begin(const std::string& line, TimePoint now)
{
    const std::string begin =
        faults.beforeEcho + (echo && !faults.noEcho ? line + "\r" : "") + faults.behindEcho;
    if (!IsCommand(line))
    {
        transmitter.Send(line.empty() ? "" : begin, now);
        return;
    }
    const bool refused = faults.errors != 0;
    if (refused && faults.errors != Faults::EVERY)
    {
        --faults.errors;
    }
    const std::chrono::milliseconds time =
        faults.delay + (refused ? std::chrono::milliseconds(0) : module.state.TimeFor(line));
    const bool together = time.count() == 0 || faults.lateEcho;
    running = Running{now + time, line, refused, together ? begin : ""};
    transmitter.Send(together ? "" : begin, now);
}

void CellularModule::Interface::Finish(TimePoint now)
{
    const Running done = std::move(*running);
    running.reset();
    const CellularState before = module.state;
    const Answer answer = done.refused ? Answer{{}, faults.error} : Obey(done.command, now);
    transmitter.Send(done.begin + Reply(answer), now);
    module.ReportSince(before);
    if (answer.powersDown)
    {
        module.PowerDown(now);
    }
}

CellularState::Answer CellularModule::Interface::Obey(const std::string& command, TimePoint now)
{
    if (IsEchoCommand(command))
    {
        echo = command.back() == '1';
        return {};
    }
    return module.state.Obey(command,
                             std::chrono::duration_cast<std::chrono::seconds>(now - *module.switchedOn));
}

std::string CellularModule::Interface::Reply(const CellularState::Answer& answer) const
{
    if (faults.flood != 0)
    {
        return Flood(faults.flood);
    }
    std::string information;
    for (const std::string& line : answer.information)
    {
        information += line;
        information += LINE_END;
    }
    if (!information.empty())
    {
        information.insert(information.size() / 2, faults.inInformation);
        information.insert(0, LINE_END);
    }
    return information + faults.beforeResult + std::string(LINE_END) + answer.result + std::string(LINE_END);
}

void CellularModule::Interface::Reset()
{
    echo = true;
    received.clear();
    running.reset();
    transmitter.Discard();
    output.clear();
}

CellularModule::CellularModule(const CellularState& theState)
    : state(theState), interfaces{Interface(*this), Interface(*this)}
{
}

CellularState CellularModule::State() const
{
    const std::lock_guard lock(access);
    return state;
}

void CellularModule::Unplug()
{
    const std::lock_guard lock(access);
    if (onBus)
    {
        Leave(latest);
    }
}

void CellularModule::UnplugAt(TimePoint when)
{
    const std::lock_guard lock(access);
    if (onBus)
    {
        leaveAt = when;
        WakeHosts();
    }
}

void CellularModule::PlugIn()
{
    const std::lock_guard lock(access);
    if (onBus)
    {
        return;
    }
    onBus = true;
    state.registrationReports = 0;
    state.packetRegistrationReports = 0;
    state.operatorFormat = 0;
    for (Interface& interface : interfaces)
    {
        interface.left = interface.left && interface.wake;
    }
    TellPresence();
}

bool CellularModule::OnBus() const
{
    const std::lock_guard lock(access);
    return onBus;
}

void CellularModule::TellPresence(const void* whom, std::function<void(bool)> tell)
{
    const std::lock_guard lock(access);
    presenceListeners.erase(whom);
    if (tell)
    {
        tell(onBus);
        presenceListeners.emplace(whom, std::move(tell));
    }
}

void CellularModule::TellPresence() const
{
    for (const auto& [whom, tell] : presenceListeners)
    {
        tell(onBus);
    }
}

void CellularModule::Elapse(TimePoint now)
{
    // The hosts ask for the time on their own, so that one may be a little behind the other.
    latest = std::max(latest, now);
    switchedOn = switchedOn.value_or(latest);
    if (leaveAt && *leaveAt <= latest)
    {
        const TimePoint at = *leaveAt;
        for (Interface& interface : interfaces)
        {
            interface.Work(at);
        }
        Leave(at);
    }
}

void CellularModule::Leave(TimePoint at)
{
    leaveAt.reset();
    onBus = false;
    for (Interface& interface : interfaces)
    {
        interface.transmitter.Take(at, interface.output);
        std::vector<std::string> sent = std::move(interface.output);
        interface.Reset();
        interface.output = std::move(sent);
        interface.left = true;
    }
    TellPresence();
    WakeHosts();
}

void CellularModule::PowerDown(TimePoint now)
{
    for (Interface& interface : interfaces)
    {
        interface.transmitter.Send(POWERED_DOWN, now + UNTIL_POWERED_DOWN);
    }
    leaveAt = now + UNTIL_OFF_THE_BUS;
    WakeHosts();
}

void CellularModule::ReportSince(const CellularState& before)
{
    const std::vector<std::string> reports = state.ReportsSince(before);
    for (const std::string& report : reports)
    {
        for (Interface& interface : interfaces)
        {
            interface.transmitter.Send(std::string(LINE_END) + report + std::string(LINE_END), latest);
        }
    }
    if (!reports.empty())
    {
        WakeHosts();
    }
}

void CellularModule::WakeHosts() const
{
    for (const Interface& interface : interfaces)
    {
        if (interface.wake)
        {
            interface.wake();
        }
    }
}

}
