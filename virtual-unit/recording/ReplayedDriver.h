#ifndef VIRTUAL_UNIT_RECORDING_REPLAYEDDRIVER_H
#define VIRTUAL_UNIT_RECORDING_REPLAYEDDRIVER_H

#include "virtual-unit/peripherals/MessagePeripheral.h"
#include "virtual-unit/recording/Replayed.h"
#include "virtual-unit/recording/ReplayedRequests.h"

#include <chrono>
#include <string_view>
#include <utility>

namespace VirtualUnit
{

/// A device with messages and ioctls that answers from a recording, ioctls as ReplayedRequests says. Each
/// write is taken.
class ReplayedDriver : public Replayed<MessagePeripheral>
{
public:
    /// As for ReplayedTraffic.
    ReplayedDriver(const PortRecording& recording, TimePoint begin, Differences& differences,
                   ReplayedTraffic::Clock clock = &std::chrono::steady_clock::now)
        : Replayed(recording, begin, differences, std::move(clock)), requests(recording, differences)
    {
    }

    bool CanBePulledOut() const override { return true; }

    int Receive(std::string_view message, TimePoint now) override;
    int Answer(const Ioctl& call, TimePoint now) override;

    bool HasReached(std::chrono::microseconds recordedTime) const
    {
        return traffic.HasReached(recordedTime) && requests.HasReached(recordedTime);
    }

    void Finish(); ///< the program has ended; the rest of the recording is a difference

private:
    ReplayedRequests requests;
};

}

#endif
