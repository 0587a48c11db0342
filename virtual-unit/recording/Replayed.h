#ifndef VIRTUAL_UNIT_RECORDING_REPLAYED_H
#define VIRTUAL_UNIT_RECORDING_REPLAYED_H

#include "virtual-unit/recording/Differences.h"
#include "virtual-unit/recording/PortRecording.h"
#include "virtual-unit/recording/ReplayedTraffic.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/**
 * A peripheral that does again what was recorded of one, as ReplayedTraffic says.
 * @tparam Peripheral SerialPeripheral or MessagePeripheral
 */
template <class Peripheral>
class Replayed : public Peripheral
{
public:
    using TimePoint = typename Peripheral::TimePoint;

    std::optional<TimePoint> NextDeadline() const override { return traffic.NextDeadline(); }

    void Advance(TimePoint now) override { traffic.Advance(now); }

    std::vector<std::string> TakeOutput() override { return traffic.TakeOutput(); }

    bool IsConnected() const override { return traffic.IsConnected(); }

    bool IsPlugged() const override { return traffic.IsPlugged(); }

    void Attach(const std::function<void()>& wake) override
    {
        if (wake)
        {
            traffic.NewHost();
        }
    }

    /// Everything has gone over the port that had when the recording was so old.
    bool HasReached(std::chrono::microseconds recordedTime) const { return traffic.HasReached(recordedTime); }

protected:
    Replayed(const PortRecording& recording, TimePoint begin, Differences& differences,
             ReplayedTraffic::Clock clock)
        : traffic(recording, begin, differences, std::move(clock))
    {
    }

    ReplayedTraffic traffic;
};

}

#endif
