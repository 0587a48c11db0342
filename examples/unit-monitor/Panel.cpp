#include "examples/unit-monitor/Panel.h"

#include "base/Tavbase/Tavlog/Logger.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <poll.h>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace UnitMonitor
{

namespace
{

using Colour = Frame::Colour;
using std::chrono::milliseconds;
using Tavbase::Tavlog::Logger;

constexpr milliseconds BETWEEN_FRAMES{200};
constexpr std::size_t PRINTED_LINES = 4;
constexpr std::size_t LABEL_COLUMNS = 11;
constexpr std::size_t LEAST_COLUMNS = 80; // assumed where the terminal does not tell
constexpr std::size_t LEAST_ROWS = 24;

// A screen of its own without cursor and line wrap, and back.
constexpr const char* ENTER = "\033[?1049h\033[?25l\033[?7l\033[2J";
constexpr const char* LEAVE = "\033[?7h\033[?25h\033[?1049l";

constexpr std::string_view BLOCKS[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr double LEAST_SCALE = 2; // g: the height of the curve, unless more was felt

template <class... Values>
std::string Format(const char* format, Values... values)
{
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

Frame& Label(Frame& frame, const char* label)
{
    return frame.Text(label, Colour::Dim).To(LABEL_COLUMNS);
}

std::string Known(const std::string& text)
{
    return text.empty() ? "unknown" : text;
}

/// A dot in the colour that the LED has just now, or its name.
void DrawLight(Frame& frame, Light light, milliseconds sinceStart)
{
    constexpr milliseconds HALF{450};
    const bool dark = light == Light::RedBlink450 && sinceStart / HALF % 2 == 1;
    if (!frame.Look().colours)
    {
        frame.Text(light == Light::Off || dark ? "off" : light == Light::Green ? "green" : "red");
    }
    else if (light == Light::Green)
    {
        frame.Text("●", Colour::Green);
    }
    else if (light == Light::Off || dark)
    {
        frame.Text("○", Colour::Dim);
    }
    else
    {
        frame.Text("●", Colour::Red);
    }
}

void DrawPower(Frame& frame, const Snapshot::Power& power)
{
    Label(frame, "Ignition")
        .Text(power.ignition ? "on" : "off", power.ignition ? Colour::Green : Colour::Dim);
    frame.Text("   Power ", Colour::Dim);
    frame.Text(power.off   ? "off"
               : power.low ? "low"
                           : "good",
               power.off || power.low ? Colour::Red : Colour::Green);
    frame.EndLine();
}

void DrawGps(Frame& frame, const Snapshot::Gps& gps)
{
    const Examples::Block& block = gps.block;
    Label(frame, "GPS").Text(gps.silent ? "silent" : gps.receiver.empty() ? "nothing yet" : gps.receiver);
    frame.Text("   ").Text(block.position ? "fix" : "no fix", block.position ? Colour::Green : Colour::Red);
    frame.Text(Format("   %d satellites", block.satellites.value_or(0)));
    frame.Text(block.time.empty() ? "" : "   " + block.time + " UTC");
    frame.EndLine();
    Label(frame, "Position");
    if (block.position)
    {
        frame.Text(Examples::Readable(*block.position));
        frame.Text(
            Format("   %5.1f km/h   %5.1f°", block.kilometresPerHour.value_or(0), block.course.value_or(0)));
    }
    frame.EndLine();
}

void DrawModem(Frame& frame, const Snapshot::Modem& modem)
{
    Label(frame, "Modem")
        .Text(!modem.onBus     ? "not on the bus"
              : !modem.answers ? "no answer"
                               : "answers",
              modem.answers ? Colour::Green : Colour::Red);
    if (modem.onBus)
    {
        frame.Text("   " + Known(modem.operatorName) + "   " + Known(modem.registration));
    }
    frame.EndLine();
    Label(frame, "Signal");
    if (modem.onBus)
    {
        constexpr int HIGHEST_RSSI = 31;
        const int lit =
            modem.rssi ? 1 + *modem.rssi * (static_cast<int>(std::size(BLOCKS)) - 1) / HIGHEST_RSSI : 0;
        for (int i = 0; i < static_cast<int>(std::size(BLOCKS)); ++i)
        {
            const bool shown = i < lit || frame.Look().colours; // what is not lit would look as if it were
            frame.Text(shown ? BLOCKS[i] : " ", i < lit ? Colour::Green : Colour::Dim);
        }
        frame.Text(" " + Known(modem.signal));
        frame.Text(modem.millivolts ? Format("   %d mV", *modem.millivolts) : "");
        frame.Text("   IMEI " + Known(modem.imei));
    }
    frame.EndLine();
}

void DrawKey(Frame& frame, const Snapshot::Key& key)
{
    Label(frame, "Driver");
    if (!key.reader || key.silent)
    {
        frame.Text(key.reader ? "reader silent" : "no reader", Colour::Red);
    }
    else
    {
        frame.Text(key.driver.empty() ? "no key" : key.driver + ", " + key.remark,
                   key.driver.empty() ? Colour::Default : Colour::Green);
    }
    frame.Text("   last " + (key.lastDriver.empty() ? "none" : key.lastDriver), Colour::Dim);
    frame.Text(key.annoying ? "   annoying" : "", Colour::Yellow);
    frame.EndLine();
}

void DrawAcceleration(Frame& frame, const Snapshot::Acceleration& acceleration)
{
    const std::deque<double>& magnitudes = acceleration.magnitudes;
    Label(frame, "Motion");
    if (acceleration.ready && !magnitudes.empty())
    {
        frame.Text(Format("%.2f g", magnitudes.back()));
        frame.Text(Format("   strongest %.2f g", acceleration.strongest),
                   acceleration.strongest > LEAST_SCALE ? Colour::Yellow : Colour::Default);
    }
    else
    {
        frame.Text("no samples", Colour::Red);
    }
    frame.EndLine();

    frame.To(LABEL_COLUMNS);
    const std::size_t room = frame.Columns() > LABEL_COLUMNS ? frame.Columns() - LABEL_COLUMNS : 0;
    const auto count = static_cast<std::ptrdiff_t>(std::min(magnitudes.size(), room));
    const auto first = magnitudes.end() - count;
    const double scale =
        count == 0 ? LEAST_SCALE : std::max(LEAST_SCALE, *std::max_element(first, magnitudes.end()));
    std::for_each(first, magnitudes.end(), [&](double magnitude) {
        const auto level = static_cast<std::size_t>(magnitude / scale * (std::size(BLOCKS) - 1));
        frame.Text(BLOCKS[std::min(level, std::size(BLOCKS) - 1)],
                   magnitude > LEAST_SCALE ? Colour::Red : Colour::Green);
    });
    frame.EndLine();
}

}

Panel::Panel(const State& sharedState, const PlainOutput& plainOutput)
    : state(sharedState), output(plainOutput)
{
    name = "panel";
    Enter();
    Logger::GetInstance().EnableConsole(true); // into the picture
}

Panel::~Panel()
{
    Stop();
    Logger::GetInstance().EnableConsole(false);
    Leave();
}

void Panel::Run()
{
    TakePrinted(Clock::now() + BETWEEN_FRAMES);
    if (!Enter())
    {
        return;
    }
    const Snapshot now = state.Get();
    Frame frame = NewFrame();
    DrawTitle(frame, now);
    frame.Rule();
    DrawPower(frame, now.power);
    DrawGps(frame, now.gps);
    DrawModem(frame, now.modem);
    DrawKey(frame, now.key);
    DrawAcceleration(frame, now.acceleration);
    DrawLines(frame);
    Send(frame.Finish());
}

void Panel::TakePrinted(Clock::time_point until)
{
    for (auto rest = until - Clock::now(); rest > Clock::duration::zero(); rest = until - Clock::now())
    {
        std::array<pollfd, 2> sources = {{{capture.Source(), POLLIN, 0}, {suspension.Source(), POLLIN, 0}}};
        poll(sources.data(), sources.size(), static_cast<int>(std::chrono::ceil<milliseconds>(rest).count()));
        ObeySuspension();
        for (std::string& line : capture.TakeLines())
        {
            printed.push_back(std::move(line));
            if (printed.size() > PRINTED_LINES)
            {
                printed.pop_front();
            }
        }
    }
}

void Panel::ObeySuspension()
{
    if (suspension.Take())
    {
        Leave();
        suspension.Obey();
        Enter();
    }
}

bool Panel::Enter()
{
    const pid_t foreground = tcgetpgrp(capture.Terminal()); // -1: it is not this session's
    if (foreground >= 0 && foreground != getpgrp())
    {
        return false;
    }
    if (!std::exchange(entered, true))
    {
        Send(ENTER);
    }
    return true;
}

void Panel::Leave()
{
    if (std::exchange(entered, false))
    {
        Send(LEAVE);
    }
}

void Panel::Send(const std::string& bytes) const
{
    for (std::size_t sent = 0;
         sent < bytes.size();) // by one write, but for a terminal that takes it in parts
    {
        const ssize_t count = write(capture.Terminal(), bytes.data() + sent, bytes.size() - sent);
        if (count <= 0)
        {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

Frame Panel::NewFrame() const
{
    winsize size = {};
    const bool told =
        ioctl(capture.Terminal(), TIOCGWINSZ, &size) == 0 && size.ws_col != 0 && size.ws_row != 0;
    return told ? Frame(size.ws_col, size.ws_row, style) : Frame(LEAST_COLUMNS, LEAST_ROWS, style);
}

void Panel::DrawTitle(Frame& frame, const Snapshot& now) const
{
    const auto sinceStart = std::chrono::duration_cast<milliseconds>(Clock::now() - started);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart).count();
    frame.Text("unit-monitor", Colour::Bright).Text("   left ");
    DrawLight(frame, now.left, sinceStart);
    frame.Text("  right ");
    DrawLight(frame, now.right, sinceStart);
    frame.Text(Format("   %02lld:%02lld", static_cast<long long>(seconds / 60),
                      static_cast<long long>(seconds % 60)));
    frame.Text("   Ctrl-C ends", Colour::Dim);
    frame.EndLine();
}

void Panel::DrawLines(Frame& frame) const
{
    frame.Rule();
    const std::deque<std::string> latest = output.Latest();
    for (std::size_t i = 0; i < PlainOutput::LATEST_LINES; ++i)
    {
        frame.Text(i < latest.size() ? latest[i] : "");
        frame.EndLine();
    }
    frame.Rule();
    for (const std::string& line : printed)
    {
        frame.Text(line, Colour::Dim);
        frame.EndLine();
    }
}

}
