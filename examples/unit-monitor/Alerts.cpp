#include "examples/unit-monitor/Alerts.h"

#include <chrono>
#include <string>

namespace UnitMonitor
{

namespace
{

constexpr const char* TAG = "alert";
constexpr std::size_t MOST_WAITING = 8; // what is older than so many alerts warns nobody any more
constexpr std::chrono::milliseconds LONGEST_WAIT{100}; // for a stop, which does not end the wait
constexpr int LEVEL = 1;

}

Alerts::Alerts(PlainOutput& plainOutput) : output(plainOutput)
{
    name = TAG;
    beeper.level = LEVEL;
}

Alerts::~Alerts()
{
    Stop();
}

void Alerts::Raise(Kind kind)
{
    const std::scoped_lock lock(access);
    if (waiting.size() < MOST_WAITING)
    {
        waiting.push(kind);
        raised.notify_one();
    }
}

void Alerts::Run()
{
    std::unique_lock lock(access);
    if (!raised.wait_for(lock, LONGEST_WAIT, [this] { return !waiting.empty(); }))
    {
        return;
    }
    const Kind kind = waiting.front();
    waiting.pop();
    lock.unlock();
    switch (kind)
    {
    case Kind::Shock:
        Buzz(2, 200);
        break;
    case Kind::Recognised:
        Buzz(1, 100);
        break;
    case Kind::PowerLow:
        SoundChips();
        break;
    }
}

void Alerts::Buzz(int count, int milliseconds)
{
    const bool sounded = buzzer.BuzzDevice(count, milliseconds);
    if (sounded)
    {
        output.Tell(TAG, "buzzer " + std::to_string(count) + " x " + std::to_string(milliseconds) + " ms");
    }
    else if (!buzzerMissing)
    {
        output.Tell(TAG, "buzzer not there");
    }
    buzzerMissing = !sounded;
}

void Alerts::SoundChips()
{
    // Not CheckPresence(), whose flag the buzzer shares.
    const bool there = beeper.Open();
    beeper.Close();
    if (there && beeper.Alert())
    {
        output.Tell(TAG, "sound chips");
    }
    else if (!beeperMissing)
    {
        output.Tell(TAG, "sound chips not there");
    }
    beeperMissing = !there;
}

}
