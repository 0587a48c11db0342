#ifndef EXAMPLES_GPS_MONITOR_MONITOR_H
#define EXAMPLES_GPS_MONITOR_MONITOR_H

#include "base/Tavbase/Interfaces/IThread.h"
#include "examples/common/Nmea.h"

#include <optional>
#include <string>
#include <string_view>

namespace GpsMonitor
{

/**
 * Receives the blocks of a GpsDevice, prints a line for each, and keeps what the summary needs.
 *
 * ThreadCallback() is called on the device's thread. The other operations are for the time after that
 * thread has been stopped.
 */
class Monitor : public Tavbase::Interfaces::IThread::IThreadDelegate
{
public:
    /// The device hands over an empty text for each second of silence, and an L26 once before its first
    /// block.
    void ThreadCallback(void* value) override;

    int Blocks() const { return blocks; }

    void PrintSummary() const;

private:
    struct Seen
    {
        std::string time;
        Examples::Coordinates position;
    };

    void TakeBlock(const Examples::Block& block);

    int blocks = 0;
    int blocksWithFix = 0;
    int blocksWithBadCheckSums = 0;
    int emptyReads = 0;
    std::optional<Seen> first;
    std::optional<Seen> last;
    double metres = 0; ///< along all positions
};

}

#endif
