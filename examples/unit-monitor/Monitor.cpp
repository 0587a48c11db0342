#include "examples/unit-monitor/Monitor.h"

#include "Gpio/GpioCore.h"
#include "base/Tavbase/Tavlog/Logger.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

namespace UnitMonitor
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Tavbase::Interfaces::IThread;

constexpr const char* TAG = "end";
constexpr milliseconds TICK{100};
constexpr milliseconds BETWEEN_LOOKS{10};
constexpr milliseconds LONGEST_STOP{2500};

void StartOrThrow(IThread& thread)
{
    if (!thread.Start())
    {
        throw std::runtime_error("the thread " + thread.GetName() + " could not be started");
    }
}

}

Monitor::Monitor(PlainOutput& plainOutput, bool scan)
    : output(plainOutput), lights(state, output), alerts(output), modem(state, output, scan),
      key(state, output, alerts), events(state, output, lights, alerts), gps(state, output, lights),
      accelerometer(state, output, alerts)
{
}

void Monitor::ShowPanel()
{
    panel.emplace(state, output);
    output.ShowOnStandardOutput(false);
    StartOrThrow(*panel);
}

void Monitor::Start()
{
    lights.Refresh();
    StartOrThrow(alerts);
    events.Start();
    StartOrThrow(modem);
    StartOrThrow(key);
    gps.Start();
    accelerometer.Start();
}

void Monitor::Watch(const Examples::EndingSignals& signals,
                    const std::optional<std::chrono::seconds>& longest)
{
    const auto start = steady_clock::now();
    do
    {
        events.Tick();
        gps.Tick();
        accelerometer.Tick();
    } while (!state.Get([](const Snapshot& now) { return now.power.off; }) &&
             (!longest || steady_clock::now() - start < *longest) && !signals.Await(TICK));
}

bool Monitor::End()
{
    const bool powerOff = state.Get([](const Snapshot& now) { return now.power.off; });
    if (powerOff)
    {
        output.Tell(TAG, "power off");
    }
    output.Tell(TAG, "stopping");
    const std::vector<std::string> held = StopThreads();
    for (const std::string& name : held)
    {
        output.Tell(TAG, "not waited for: " + name);
    }
    if (powerOff && std::ranges::find(held, modem.GetName()) == held.end())
    {
        modem.PowerDown();
    }

    panel.reset();
    output.ShowOnStandardOutput(true);
    output.Tell(TAG, "stopped");
    output.Close();
    if (powerOff)
    {
        auto& log = Tavbase::Tavlog::Logger::GetInstance();
        log.CloseFile();         // with a file open on it a volume cannot be unmounted
        log.EnableConsole(true); // the panel is gone: this is where such a volume is told
        Tavdevice::Gpio::GpioCore::ShutDown();
    }
    return held.empty();
}

std::vector<IThread*> Monitor::Threads()
{
    std::vector<IThread*> threads = {&modem, &key, &gps.Thread(), &alerts};
    if (IThread* const thread = accelerometer.Thread())
    {
        threads.push_back(thread);
    }
    return threads;
}

std::vector<std::string> Monitor::StopThreads()
{
    events.Stop();
    std::vector<IThread*> threads = Threads();
    std::ranges::for_each(threads, &IThread::Cancel);
    // Not by Stop(), which waits for a device as long as that may take.
    const auto end = steady_clock::now() + LONGEST_STOP;
    while (std::ranges::any_of(threads, &IThread::IsRunning) && steady_clock::now() < end)
    {
        std::this_thread::sleep_for(BETWEEN_LOOKS);
    }
    lights.Stop();
    std::vector<std::string> held;
    for (const IThread* const thread : threads)
    {
        if (thread->IsRunning())
        {
            held.push_back(thread->GetName());
        }
    }
    return held;
}

}
