#ifndef VIRTUAL_UNIT_RECORDING_REPLAYEDI2CADAPTER_H
#define VIRTUAL_UNIT_RECORDING_REPLAYEDI2CADAPTER_H

#include "virtual-unit/peripherals/I2cPeripheral.h"
#include "virtual-unit/recording/Differences.h"
#include "virtual-unit/recording/PortRecording.h"
#include "virtual-unit/recording/ReplayedRequests.h"

#include <chrono>
#include <cstdint>
#include <linux/i2c.h>
#include <optional>
#include <string>

namespace VirtualUnit
{

/**
 * An I2C adapter that answers from a recording, as ReplayedRequests says. Times are counted from the first
 * request, here and in the recording. Selecting the slave that is selected already succeeds, unless the
 * recording has that selection there.
 */
class ReplayedI2cAdapter : public I2cPeripheral
{
public:
    /// @param differences stay the caller's and outlive this object
    ReplayedI2cAdapter(const PortRecording& recording, Differences& differences);

    int Select(std::uint64_t address, bool force, TimePoint now) override;
    int Transfer(unsigned char direction, unsigned char reg, std::uint32_t type, i2c_smbus_data& data,
                 TimePoint now) override;

    /// Everything has been requested that had when the recording was so old.
    bool HasReached(std::chrono::microseconds recordedTime) const
    {
        return requests.HasReached(recordedTime);
    }

    void Finish() { requests.Finish(); } ///< the program has ended; the rest of the recording is a difference

private:
    std::chrono::microseconds RecordedTime(TimePoint now);

    ReplayedRequests requests;
    std::chrono::microseconds firstRecorded{0};
    std::optional<TimePoint> first;
    std::optional<std::uint64_t> selected;
};

}

#endif
