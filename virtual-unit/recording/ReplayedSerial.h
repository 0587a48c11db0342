#ifndef VIRTUAL_UNIT_RECORDING_REPLAYEDSERIAL_H
#define VIRTUAL_UNIT_RECORDING_REPLAYEDSERIAL_H

#include "virtual-unit/peripherals/SerialPeripheral.h"
#include "virtual-unit/recording/Replayed.h"

#include <chrono>
#include <string_view>
#include <utility>

namespace VirtualUnit
{

/// A serial device that answers from a recording.
class ReplayedSerial : public Replayed<SerialPeripheral>
{
public:
    /// As for ReplayedTraffic.
    ReplayedSerial(const PortRecording& recording, TimePoint begin, Differences& differences,
                   ReplayedTraffic::Clock clock = &std::chrono::steady_clock::now)
        : Replayed(recording, begin, differences, std::move(clock))
    {
    }

    void Receive(std::string_view bytes, TimePoint now) override { traffic.SentBytes(bytes, now); }

    void Finish() { traffic.Finish(); } ///< the program has ended; the rest of the recording is a difference
};

}

#endif
