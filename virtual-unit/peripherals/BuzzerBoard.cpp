#include "virtual-unit/peripherals/BuzzerBoard.h"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

namespace VirtualUnit
{

namespace
{

constexpr std::string_view PROMPT = ">>> ";
constexpr std::string_view BANNER = "buzzer board";
constexpr std::string_view LINE_END = "\r\n";

constexpr char STX = 0x02;
constexpr char ETX = 0x03;
constexpr char EOT = 0x04;

constexpr std::string_view CALL_BEGIN = "buzzer.processCMD(\"ICMDS:";
constexpr std::string_view CALL_END = ":ICMDE\")";
constexpr std::string_view OUTPUT_BEGIN = "OMSGS:";
constexpr std::string_view OUTPUT_END = ":OMSGE";

constexpr std::string_view PRESENCE = "0";
constexpr std::string_view SOUND = "1:";

constexpr std::string_view READY = "READY";
constexpr std::string_view DONE = "OK";
constexpr std::string_view ERROR = "ERROR";

constexpr std::size_t LONGEST_LINE = 255;

std::optional<unsigned int> Number(std::string_view text)
{
    unsigned int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

}

BuzzerBoard::BuzzerBoard(const Options& theOptions) : options(theOptions)
{
    transmitter.options = options.line;
}

void BuzzerBoard::Unplug()
{
    plugged = false;
    connected = false;
    transmitter.Discard();
    output.clear();
    if (wake)
    {
        wake();
    }
}

void BuzzerBoard::PlugIn()
{
    plugged = true;
    connected = connected || !wake;
    line.clear();
    afterReturn = false;
}

void BuzzerBoard::Attach(const std::function<void()>& wakeHost)
{
    wake = wakeHost;
    connected = plugged;
}

void BuzzerBoard::Receive(std::string_view bytes, TimePoint now)
{
    for (const char byte : connected ? bytes : std::string_view())
    {
        Take(byte, now);
    }
}

void BuzzerBoard::Take(char byte, TimePoint now)
{
    const bool endedAlready = std::exchange(afterReturn, byte == '\r') && byte == '\n';
    switch (byte)
    {
    case STX:
    case ETX:
        NewPrompt(LINE_END, now);
        break;
    case EOT:
        CutShort(now);
        NewPrompt(std::string(LINE_END).append(BANNER).append(LINE_END), now);
        break;
    case '\r':
    case '\n':
        if (!endedAlready)
        {
            EndLine(now);
        }
        break;
    default:
        if (line.size() < LONGEST_LINE)
        {
            line += byte;
        }
        if (options.echo)
        {
            transmitter.Send(std::string_view(&byte, 1), now);
        }
        break;
    }
}

void BuzzerBoard::EndLine(TimePoint now)
{
    if (options.echo)
    {
        transmitter.Send(LINE_END, now);
    }
    const std::string_view typed = line;
    if (typed.empty())
    {
        NewPrompt("", now);
        return;
    }
    std::string printed(ERROR);
    if (typed.starts_with(CALL_BEGIN) && typed.ends_with(CALL_END) &&
        typed.size() >= CALL_BEGIN.size() + CALL_END.size())
    {
        const std::size_t length = typed.size() - CALL_BEGIN.size() - CALL_END.size();
        printed = std::string(OUTPUT_BEGIN)
                      .append(Obey(typed.substr(CALL_BEGIN.size(), length), now))
                      .append(OUTPUT_END);
    }
    printed.append(LINE_END);
    NewPrompt(faults.rubbish.value_or(printed), now + faults.delay);
}

std::string BuzzerBoard::Obey(std::string_view command, TimePoint now)
{
    if (command == PRESENCE)
    {
        return std::string(READY);
    }
    const bool done = command.starts_with(SOUND) && Sound(command.substr(SOUND.size()), now);
    return std::string(done ? DONE : ERROR);
}

bool BuzzerBoard::Sound(std::string_view arguments, TimePoint now)
{
    const std::size_t colon = arguments.find(':');
    if (colon == std::string_view::npos)
    {
        return false;
    }
    const std::optional<unsigned int> count = Number(arguments.substr(0, colon));
    const std::optional<unsigned int> milliseconds = Number(arguments.substr(colon + 1));
    if (!count || !milliseconds || *count == 0)
    {
        return false;
    }
    CutShort(now);
    const std::chrono::milliseconds duration(*milliseconds);
    const auto soundsAndPauses = std::chrono::milliseconds::rep{*count} * 2 - 1;
    buzzes.push_back({now, *count, duration, now + soundsAndPauses * duration});
    return true;
}

void BuzzerBoard::CutShort(TimePoint now)
{
    if (!buzzes.empty())
    {
        buzzes.back().end = std::min(buzzes.back().end, now);
    }
}

void BuzzerBoard::NewPrompt(std::string_view before, TimePoint now)
{
    line.clear();
    transmitter.Send(std::string(before).append(PROMPT), now);
}

std::optional<SerialPeripheral::TimePoint> BuzzerBoard::NextDeadline() const
{
    return transmitter.NextDeadline();
}

void BuzzerBoard::Advance(TimePoint now)
{
    if (faults.silent || !connected)
    {
        transmitter.Discard();
    }
    transmitter.Take(now, output);
}

std::vector<std::string> BuzzerBoard::TakeOutput()
{
    return std::exchange(output, {});
}

}
