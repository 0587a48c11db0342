#include "examples/unit-monitor/AccelerometerWatch.h"

#include <algorithm>
#include <stdexcept>

namespace UnitMonitor
{

namespace
{

using Tavdevice::ACC::AccDevice;

constexpr const char* TAG = "acc";
constexpr unsigned char ADAPTER = 1;
constexpr unsigned char ADDRESS = 0x1C;
constexpr AccDevice::GForceScale SCALE = AccDevice::GForceScale::Eight;
constexpr double SHOCK_G = 2.0;    // beside gravity
constexpr double FOLLOWING = 0.02; // how much of a sample goes into what is felt in the long run

// Counted in samples, so that it does not depend on when the batches arrive.
constexpr unsigned int SAMPLES_PER_SECOND = 50;
constexpr unsigned int QUIET_SAMPLES = SAMPLES_PER_SECOND; // shocks that are closer together are one

constexpr std::chrono::seconds BETWEEN_TRIES{2};
constexpr std::chrono::seconds LONGEST_SILENCE{3}; // batches come five times a second, at rest too
constexpr std::size_t MOST_MAGNITUDES = 300;

}

AccelerometerWatch::AccelerometerWatch(State& sharedState, PlainOutput& plainOutput, Alerts& theAlerts)
    : state(sharedState), output(plainOutput), alerts(theAlerts), quietSamples(QUIET_SAMPLES)
{
}

void AccelerometerWatch::Start()
{
    tried = Clock::now();
    // A new device for each try: a receiver stays registered with the one that it was given to.
    device.emplace(ADAPTER, ADDRESS, SCALE, AccDevice::ODR::Hz50);
    IThreadDelegate* receiver = this;
    if (!device->Prepare(receiver))
    {
        if (!found && !missing)
        {
            output.Tell(TAG, "no accelerometer");
        }
        missing = true;
        return;
    }
    missing = false;
    if (!found)
    {
        output.Tell(TAG, "accelerometer ready");
        found = true;
        lastBatch = tried; // no batch comes yet
    }
    if (!device->Start())
    {
        throw std::runtime_error("the thread of the accelerometer could not be started");
    }
}

void AccelerometerWatch::Tick()
{
    WatchForSilence();
    const bool working = [this] {
        const std::scoped_lock lock(access);
        return !missing && !silent;
    }();
    const auto pause = missing ? BETWEEN_TRIES : LONGEST_SILENCE; // a chip programmed anew gets time to speak
    if (!working && Clock::now() - tried >= pause)
    {
        Start();
    }
}

void AccelerometerWatch::WatchForSilence()
{
    {
        const std::scoped_lock lock(access);
        if (!found || silent || Clock::now() - lastBatch < LONGEST_SILENCE)
        {
            return;
        }
        silent = true;
        output.Tell(TAG, "silent");
    }
    state.Set([](Snapshot& now) { now.acceleration.ready = false; });
}

void AccelerometerWatch::ThreadCallback(void* value)
{
    {
        const std::scoped_lock lock(access);
        lastBatch = Clock::now();
        if (silent)
        {
            output.Tell(TAG, "speaks again");
        }
        silent = false;
    }
    if (TakeShocks(*static_cast<const TavubufferDynamic*>(value)))
    {
        output.Tell(TAG, "shock");
        alerts.Raise(Alerts::Kind::Shock);
    }
}

bool AccelerometerWatch::TakeShocks(const TavubufferDynamic& batch)
{
    bool shock = false;
    double strongest = 0;
    for (const Examples::Sample& sample : Examples::Sample::Of(batch, SCALE))
    {
        strongest = std::max(strongest, sample.Magnitude());
        if (IsShock(sample))
        {
            shock = shock || quietSamples >= QUIET_SAMPLES;
            quietSamples = 0;
        }
        else
        {
            quietSamples = std::min(quietSamples + 1, QUIET_SAMPLES);
        }
    }
    state.Set([strongest](Snapshot& now) {
        Snapshot::Acceleration& acceleration = now.acceleration;
        acceleration.ready = true;
        acceleration.strongest = std::max(acceleration.strongest, strongest);
        acceleration.magnitudes.push_back(strongest);
        if (acceleration.magnitudes.size() > MOST_MAGNITUDES)
        {
            acceleration.magnitudes.pop_front();
        }
    });
    return shock;
}

bool AccelerometerWatch::IsShock(const Examples::Sample& sample)
{
    Examples::Sample& still = rest ? *rest : rest.emplace(sample);
    const Examples::Sample change = {sample.x - still.x, sample.y - still.y, sample.z - still.z};
    still.x += FOLLOWING * change.x;
    still.y += FOLLOWING * change.y;
    still.z += FOLLOWING * change.z;
    return change.Magnitude() > SHOCK_G;
}

}
