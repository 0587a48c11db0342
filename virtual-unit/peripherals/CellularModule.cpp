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
    module.Behind(port).transmitter.options = line;
}

void CellularModule::Interface::Receive(std::string_view bytes, TimePoint now)
{
    const std::lock_guard lock(module.access);
    module.Elapse(now);
    Channel& channel = module.Behind(port);
    if (!module.onBus || channel.left)
    {
        return;
    }
    channel.received += bytes;
    module.Work(channel, module.latest);
}

std::optional<SerialPeripheral::TimePoint> CellularModule::Interface::NextDeadline() const
{
    const std::lock_guard lock(module.access);
    const Channel& channel = module.Behind(port);
    std::optional<TimePoint> next = module.leaveAt;
    for (const std::optional<TimePoint>& time :
         {channel.transmitter.NextDeadline(),
          channel.running ? std::optional(channel.running->due) : std::nullopt})
    {
        next = next && time ? std::min(next, time) : next ? next : time;
    }
    return next;
}

void CellularModule::Interface::Advance(TimePoint now)
{
    const std::lock_guard lock(module.access);
    module.Elapse(now);
    module.Work(module.Behind(port), module.latest);
}

std::vector<std::string> CellularModule::Interface::TakeOutput()
{
    const std::lock_guard lock(module.access);
    return std::exchange(module.Behind(port).output, {});
}

bool CellularModule::Interface::IsConnected() const
{
    const std::lock_guard lock(module.access);
    return module.onBus && !module.Behind(port).left;
}

bool CellularModule::Interface::TakesOutput() const
{
    const std::lock_guard lock(module.access);
    return !module.Behind(port).faults.stuck;
}

void CellularModule::Interface::Attach(const std::function<void()>& hostsWake)
{
    const std::lock_guard lock(module.access);
    Channel& channel = module.Behind(port);
    channel.wake = hostsWake;
    channel.left = !module.onBus;
    channel.Reset();
}

/// What is due by `now`, in its order.
void CellularModule::Work(Channel& channel, TimePoint now)
{
    for (;;)
    {
        if (channel.running)
        {
            if (channel.running->due > now)
            {
                break;
            }
            Finish(channel, channel.running->due);
            continue;
        }
        const std::size_t end = channel.received.find('\r');
        if (end == std::string::npos)
        {
            channel.received.erase(0, channel.received.size() > LONGEST_LINE ? channel.received.size() : 0);
            break;
        }
        std::string line = channel.received.substr(0, end);
        channel.received.erase(0, end + 1);
        std::erase(line, '\n');
        Begin(channel, line, now);
    }
    if (channel.faults.silent)
    {
        channel.transmitter.Discard();
    }
    channel.transmitter.Take(now, channel.output);
}

void CellularModule::Begin(Channel& channel, const std::string& line, TimePoint now)
{
    const std::string begin = channel.faults.beforeEcho +
                              (channel.echo && !channel.faults.noEcho ? line + "\r" : "") +
                              channel.faults.behindEcho;
    if (!IsCommand(line))
    {
        channel.transmitter.Send(line.empty() ? "" : begin, now);
        return;
    }
    const bool refused = channel.faults.errors != 0;
    if (refused && channel.faults.errors != Faults::EVERY)
    {
        --channel.faults.errors;
    }
    const std::chrono::milliseconds time =
        channel.faults.delay + (refused ? std::chrono::milliseconds(0) : state.TimeFor(line));
    const bool together = time.count() == 0 || channel.faults.lateEcho;
    channel.running = Channel::Running{now + time, line, refused, together ? begin : ""};
    channel.transmitter.Send(together ? "" : begin, now);
}

void CellularModule::Finish(Channel& channel, TimePoint now)
{
    const Channel::Running done = std::move(*channel.running);
    channel.running.reset();
    const CellularState before = state;
    const Answer answer = done.refused ? Answer{{}, channel.faults.error} : Obey(channel, done.command, now);
    channel.transmitter.Send(done.begin + channel.Reply(answer), now);
    ReportSince(before);
    if (answer.powersDown)
    {
        PowerDown(now);
    }
}

CellularState::Answer CellularModule::Obey(Channel& channel, const std::string& command, TimePoint now)
{
    if (IsEchoCommand(command))
    {
        channel.echo = command.back() == '1';
        return {};
    }
    return state.Obey(command, std::chrono::duration_cast<std::chrono::seconds>(now - *switchedOn));
}

std::string CellularModule::Channel::Reply(const CellularState::Answer& answer) const
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

void CellularModule::Channel::Reset()
{
    echo = true;
    received.clear();
    running.reset();
    transmitter.Discard();
    output.clear();
}

CellularModule::CellularModule(const CellularState& theState)
    : interfaces{Interface(*this, Port::Main), Interface(*this, Port::Alternate)}, state(theState)
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
    for (Channel& channel : channels)
    {
        channel.left = channel.left && channel.wake;
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
        for (Channel& channel : channels)
        {
            Work(channel, at);
        }
        Leave(at);
    }
}

void CellularModule::Leave(TimePoint at)
{
    leaveAt.reset();
    onBus = false;
    for (Channel& channel : channels)
    {
        channel.transmitter.Take(at, channel.output);
        std::vector<std::string> sent = std::move(channel.output);
        channel.Reset();
        channel.output = std::move(sent);
        channel.left = true;
    }
    TellPresence();
    WakeHosts();
}

void CellularModule::PowerDown(TimePoint now)
{
    for (Channel& channel : channels)
    {
        channel.transmitter.Send(POWERED_DOWN, now + UNTIL_POWERED_DOWN);
    }
    leaveAt = now + UNTIL_OFF_THE_BUS;
    WakeHosts();
}

void CellularModule::ReportSince(const CellularState& before)
{
    const std::vector<std::string> reports = state.ReportsSince(before);
    for (const std::string& report : reports)
    {
        for (Channel& channel : channels)
        {
            channel.transmitter.Send(std::string(LINE_END) + report + std::string(LINE_END), latest);
        }
    }
    if (!reports.empty())
    {
        WakeHosts();
    }
}

void CellularModule::WakeHosts() const
{
    for (const Channel& channel : channels)
    {
        if (channel.wake)
        {
            channel.wake();
        }
    }
}

}
