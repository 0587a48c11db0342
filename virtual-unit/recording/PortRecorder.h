#ifndef VIRTUAL_UNIT_RECORDING_PORTRECORDER_H
#define VIRTUAL_UNIT_RECORDING_PORTRECORDER_H

#include "base/ThreadSafety.h"
#include "virtual-unit/ports/PortObserver.h"
#include "virtual-unit/recording/Mask.h"
#include "virtual-unit/recording/MaskedPieces.h"
#include "virtual-unit/recording/PortEntry.h"
#include "virtual-unit/recording/RequestRuns.h"

#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/**
 * Writes what goes over one port to a file, as it happens. Kept back are requests that may be repeated (see
 * RequestRuns), and bytes that may be a part of a secret (see MaskedPieces) until something else happens.
 *
 * An event that tells what is so already, "unplugged" of a device that is, is not written.
 *
 * Calling threads: any. When the file cannot be written the calls go on, and Finish() tells.
 */
class PortRecorder : public PortObserver
{
public:
    /// @param begin of the run @throws std::system_error when the file cannot be created
    PortRecorder(const std::string& file, const std::string& port, TimePoint begin, const Mask& mask);
    PortRecorder(const PortRecorder&) = delete;
    PortRecorder& operator=(const PortRecorder&) = delete;
    ~PortRecorder() override;

    void Sent(std::string_view bytes, TimePoint at) override;
    void Received(std::string_view bytes, TimePoint at) override;
    void Answered(const std::string& request, const std::string& answer, TimePoint at) override;
    void Happened(const std::string& event, TimePoint at) override;

    int Finish(); ///< writes what is kept back @return 0, or the errno of what could not be written first

private:
    std::chrono::microseconds Time(const std::string& channel, TimePoint at) TAV_REQUIRES(access);
    void Carried(PortEntry::Kind kind, std::string_view bytes, TimePoint at);
    void WritePieces(const std::vector<MaskedPieces::Piece>& complete) TAV_REQUIRES(access);
    void WriteEntries(const std::vector<PortEntry>& entries) TAV_REQUIRES(access);
    void WriteLine(const std::string& line) TAV_REQUIRES(access);

    const TimePoint begin;
    const Mask mask;

    std::mutex access; ///< guards everything below
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> output TAV_GUARDED_BY(access);
    MaskedPieces pieces TAV_GUARDED_BY(access);
    std::map<std::string, RequestRuns> runs TAV_GUARDED_BY(access);               ///< by channel
    std::map<std::string, std::chrono::microseconds> last TAV_GUARDED_BY(access); ///< by channel
    bool plugged TAV_GUARDED_BY(access) = true;
    int error TAV_GUARDED_BY(access) = 0;
};

}

#endif
