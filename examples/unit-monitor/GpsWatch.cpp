#include "examples/unit-monitor/GpsWatch.h"

#include <stdexcept>
#include <string>

namespace UnitMonitor
{

namespace
{

using Tavdevice::GpsDevice::GpsDevice;

constexpr const char* TAG = "gps";
constexpr std::chrono::seconds BETWEEN_TRIES{2};

// An L26 hands an empty text over before its first block, and any receiver may skip a second.
constexpr int SILENT_READS = 2;
constexpr int SILENT_READS_AT_START = 5;

constexpr int BLOCKS_TO_BELIEVE = 2; // one block with a wrong check sum is but a disturbed line

}

GpsWatch::GpsWatch(State& sharedState, PlainOutput& plainOutput, Lights& frontLights)
    : state(sharedState), output(plainOutput), lights(frontLights)
{
}

void GpsWatch::Start()
{
    tried = std::chrono::steady_clock::now();
    device.Prepare(receiver);
    receiver = nullptr;
    if (device.HasError())
    {
        if (!missing)
        {
            output.Tell(TAG, "no receiver");
        }
        missing = true;
        return;
    }
    missing = false;
    if (!device.Start())
    {
        throw std::runtime_error("the thread of the GPS receiver could not be started");
    }
}

void GpsWatch::Tick()
{
    if (missing && std::chrono::steady_clock::now() - tried >= BETWEEN_TRIES)
    {
        Start();
    }
}

void GpsWatch::ThreadCallback(void* value)
{
    const std::string_view text = static_cast<const char*>(value);
    if (text.empty())
    {
        TakeSilence();
    }
    else
    {
        TakeBlock(text);
    }
    lights.Refresh();
}

void GpsWatch::TakeSilence()
{
    if (++emptyReads != LongestSilence())
    {
        return;
    }
    output.Tell(TAG, "silent");
    found = false;
    state.Set([](Snapshot& now) {
        now.gps.silent = true;
        now.gps.block = {};
    });
}

void GpsWatch::TakeBlock(std::string_view text)
{
    if (emptyReads >= LongestSilence())
    {
        output.Tell(TAG, "speaks again");
    }
    emptyReads = 0;
    if (heard)
    {
        TakeRestart(text);
    }
    else
    {
        Introduce();
    }
    heard = true;

    const Examples::Block block = Examples::ParseBlock(text);
    TakeCheckSums(block);
    TakePosition(block);
}

void GpsWatch::Introduce()
{
    const std::string name = device.GetModule() == GpsDevice::Module::SKM53 ? "SKM53" : "L26";
    output.Tell(TAG, "receiver " + name);
    state.Set([&](Snapshot& now) { now.gps.receiver = name; });
}

void GpsWatch::TakeRestart(std::string_view text)
{
    const bool starts =
        text.find("PMTK010") != std::string_view::npos || text.find("PMTK011") != std::string_view::npos;
    if (starts && !restarted)
    {
        output.Tell(TAG, "receiver restarted");
    }
    restarted = starts; // both messages of one start may come in two blocks
}

void GpsWatch::TakeCheckSums(const Examples::Block& block)
{
    const bool wrong = block.badSentences != 0;
    otherwise = wrong == checkSumsWrong ? 0 : otherwise + 1;
    if (otherwise == BLOCKS_TO_BELIEVE)
    {
        checkSumsWrong = wrong;
        otherwise = 0;
        output.Tell(TAG, wrong ? "wrong check sums" : "check sums right again");
    }
}

void GpsWatch::TakePosition(const Examples::Block& block)
{
    const bool tells = block.hasRmc || checkSumsWrong; // what cannot be read for long is no position
    state.Set([&](Snapshot& now) {
        now.gps.silent = false;
        if (tells)
        {
            now.gps.block = block;
        }
    });
    if (tells && block.position.has_value() != found)
    {
        found = block.position.has_value();
        output.Tell(TAG, found ? "position found" : "position lost");
    }
}

int GpsWatch::LongestSilence() const
{
    return heard ? SILENT_READS : SILENT_READS_AT_START;
}

}
