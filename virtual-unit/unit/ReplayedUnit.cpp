#include "virtual-unit/unit/ReplayedUnit.h"

#include "virtual-unit/recording/ReplayedDriver.h"
#include "virtual-unit/recording/ReplayedI2cAdapter.h"
#include "virtual-unit/recording/ReplayedSerial.h"
#include "virtual-unit/recording/ReplayedTraffic.h"
#include "virtual-unit/unit/Unit.h"

#include <algorithm>
#include <csignal>
#include <memory>
#include <optional>
#include <unistd.h>
#include <utility>

namespace VirtualUnit
{

namespace
{

constexpr unsigned int ADAPTERS = 10;

std::string AdapterPath(unsigned int adapter)
{
    UnitOptions options;
    options.i2cAdapter = adapter;
    return Unit::Path(options, "i2c");
}

/// The ports that a recording may have.
std::vector<std::string> AllPorts()
{
    std::vector<std::string> paths;
    for (const Unit::Port& port : Unit::Ports({}))
    {
        paths.push_back(port.path);
    }
    for (unsigned int adapter = 0; adapter < ADAPTERS; ++adapter)
    {
        if (adapter != UnitOptions().i2cAdapter)
        {
            paths.push_back(AdapterPath(adapter));
        }
    }
    paths.emplace_back(PortRecording::PROGRAM);
    return paths;
}

// Where a program is stopped from outside, it is not at the same place each time. From so long before on it
// is not compared; and it is not stopped before it has come so far, unless it takes very much longer than it
// did.
constexpr std::chrono::seconds TAIL{1};
constexpr std::chrono::seconds MOST_DELAY{5};
constexpr std::chrono::milliseconds LOOK_AGAIN{5};

std::optional<std::chrono::microseconds> ComparedUntil(const Recording& recording)
{
    const std::vector<PortRecording::Signal> signals = recording.Port(PortRecording::PROGRAM).Signals();
    return signals.empty() ? std::nullopt : std::optional(signals.front().at - TAIL);
}

}

ReplayedUnit::ReplayedUnit(const std::string& directory, Differences::Tell tell)
    : recording(Recording::Open(directory, AllPorts())),
      differences(ComparedUntil(recording), std::move(tell))
{
    for (unsigned int adapter = 0; adapter < ADAPTERS; ++adapter)
    {
        if (!recording.Port(AdapterPath(adapter)).entries.empty())
        {
            options.i2cAdapter = adapter;
        }
    }
}

ReplayedUnit::~ReplayedUnit()
{
    EndService();
}

void ReplayedUnit::BeginService()
{
    for (const Unit::Port& port : Unit::Ports(options))
    {
        const PortRecording& recorded = recording.Port(port.path);
        const auto serve = [this, &port](auto device, auto peripheral) {
            auto* const served = ports.Serve(port.path, std::move(peripheral));
            const auto hasReached = [served, device](std::chrono::microseconds recordedTime) {
                bool reached = false;
                served->Locked([&] { reached = device->HasReached(recordedTime); });
                return reached;
            };
            replayed.push_back({port.name, hasReached, [device] { device->Finish(); }});
        };
        switch (port.kind)
        {
        case Unit::Port::Kind::Serial: {
            const auto device = std::make_shared<ReplayedSerial>(recorded, begin, differences);
            serve(device, std::shared_ptr<SerialPeripheral>(device));
            break;
        }
        case Unit::Port::Kind::Messages: {
            const auto device = std::make_shared<ReplayedDriver>(recorded, begin, differences);
            serve(device, std::shared_ptr<MessagePeripheral>(device));
            break;
        }
        case Unit::Port::Kind::I2c: {
            const auto device = std::make_shared<ReplayedI2cAdapter>(recorded, differences);
            serve(device, std::shared_ptr<I2cPeripheral>(device));
            break;
        }
        }
    }
}

void ReplayedUnit::Start()
{
    player = std::thread([this, cues = Cues()] { Play(cues); });
}

std::vector<ReplayedUnit::Cue> ReplayedUnit::Cues()
{
    std::vector<Cue> cues;
    const std::string modem = Unit::Path(options, "modem");
    for (const PortRecording::PresenceChange& change : recording.Port(modem).PresenceChanges())
    {
        if (change.there)
        {
            cues.push_back({change.at, [this] { module.PlugIn(); }, {}, {}});
        }
        else // together with its ports
        {
            cues.push_back({change.at, [this] { module.Unplug(); },
                            [this, at = change.at] { return HasReached(at, "modem"); },
                            ReplayedTraffic::PATIENCE});
        }
    }
    for (const PortRecording::Signal& signal : recording.Port(PortRecording::PROGRAM).Signals())
    {
        // The supervisor hands it on. SIGKILL came with the power, which the unit itself may have cut.
        const bool withPower = signal.number == SIGKILL;
        cues.push_back({signal.at,
                        [this, withPower, number = signal.number] {
                            withPower ? ports.Devices().Power().Lose() : void(kill(getpid(), number));
                        },
                        [this, withPower, at = signal.at] {
                            return HasReached(at - TAIL) && (!withPower || HasReached(at, "events"));
                        },
                        MOST_DELAY});
    }
    std::ranges::stable_sort(cues, {}, &Cue::at);
    return cues;
}

void ReplayedUnit::Play(const std::vector<Cue>& cues)
{
    for (const Cue& cue : cues)
    {
        const Clock::time_point due = begin + cue.at;
        Clock::time_point next = due;
        const auto await = [&] {
            std::unique_lock lock(access);
            return !changed.wait_until(lock, next, [this]() TAV_REQUIRES(access) { return ending; });
        };
        bool goesOn = await();
        while (goesOn && cue.isReady && Clock::now() < due + cue.patience && !cue.isReady())
        {
            next = Clock::now() + LOOK_AGAIN;
            goesOn = await();
        }
        if (!goesOn)
        {
            return;
        }
        cue.action();
    }
}

bool ReplayedUnit::HasReached(std::chrono::microseconds recordedTime, const std::string& port) const
{
    return std::ranges::all_of(replayed, [&](const Replayed& each) {
        return (!port.empty() && each.port != port) || each.hasReached(recordedTime);
    });
}

void ReplayedUnit::EndService()
{
    if (player.joinable())
    {
        {
            const std::lock_guard lock(access);
            ending = true;
            changed.notify_all();
        }
        player.join();
    }
    ports.EndService();
    for (const Replayed& port : std::exchange(replayed, {}))
    {
        port.finish();
    }
}

}
