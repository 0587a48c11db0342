#ifndef VIRTUAL_UNIT_RECORDING_REPLAYEDTRAFFIC_H
#define VIRTUAL_UNIT_RECORDING_REPLAYEDTRAFFIC_H

#include "virtual-unit/recording/Differences.h"
#include "virtual-unit/recording/PortRecording.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/**
 * The bytes of a port's recording, as a device sends and expects them, and when the device is there.
 *
 * What the application sends is compared with what was sent, in order. Where it differs the recording goes on
 * as if it were equal, byte for byte, or message for message. Each line of the recording is at most one
 * difference; what is sent behind the last one is one as well.
 *
 * When nothing counts any more (Differences), something that the application had sent before gets the answer
 * that it got then; what does not fit otherwise is passed over.
 *
 * What the application received is sent again in order, when all has come that was sent before it; as long
 * after that came as it was then, or as long after what was received before it was due, or after the port was
 * opened. Being opened is the first call that gives a time, and in the recording the event "opened" before
 * what went over the port first; without it the time when the device came, or the first line.
 *
 * The device leaves and comes at the times of the recording, counted from the begin of the run; it leaves
 * when all has gone over an open port that had by then, or PATIENCE later. Whoever was the host then gets
 * nothing more, and nothing is expected of it; a new one (NewHost()) begins with what follows "plugged in".
 *
 * Threads: no lock; one call at a time.
 */
class ReplayedTraffic
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Clock = std::function<TimePoint()>;

    static constexpr std::chrono::seconds PATIENCE{2};

    /// @param beginOfRun  when this run began
    /// @param differences stay the caller's and outlive this object
    /// @param clock       is asked while nobody gives a time: whether a device is there that is not opened
    ReplayedTraffic(const PortRecording& recording, TimePoint beginOfRun, Differences& differences,
                    Clock clock);

    void SentBytes(std::string_view bytes, TimePoint now);     ///< by the application, cut anyhow
    void SentMessage(std::string_view message, TimePoint now); ///< the same, a whole message
    void Advance(TimePoint now);
    std::optional<TimePoint> NextDeadline() const;
    std::vector<std::string> TakeOutput();

    bool IsConnected() const; ///< for the present host
    bool IsPlugged() const;   ///< for a new host
    void NewHost();

    /// What time the recording had, as the port's opening tells it. Not before the first call with a time.
    std::chrono::microseconds RecordedTime(TimePoint now) const;

    /// Everything has gone over the port that had when the recording was so old.
    bool HasReached(std::chrono::microseconds recordedTime) const;

    void Finish(); ///< the program has ended; what it has not sent is a difference

private:
    /// A time of the recording and the same one of this run.
    struct Reference
    {
        std::chrono::microseconds recorded{0};
        TimePoint actual;
    };

    void Elapse(TimePoint now);
    std::chrono::microseconds OpenedAt() const;
    void Release(TimePoint now);
    TimePoint Due() const;
    bool Expects() const;
    void Compare(char byte);
    void TakeUncompared(char byte, TimePoint now);
    void CompleteSent(TimePoint now);
    void SkipTo(std::size_t entry);
    void TellMissing(const std::string& program);
    void Tell(std::size_t position, const std::string& expected, const std::string& program,
              std::chrono::microseconds earliestTime);
    std::chrono::microseconds Now() const;
    std::size_t PresenceChanges(TimePoint now) const;

    std::string port;
    std::vector<PortEntry> entries;
    std::vector<PortRecording::PresenceChange> presence;
    TimePoint begin;
    Differences& differences;
    Clock clock;

    std::size_t attachedAfter = 0;   ///< so many changes of presence the present host came
    std::optional<TimePoint> latest; ///< time that it gave
    std::optional<Reference> opening;
    Reference reference; ///< of what is received next
    TimePoint earliest;  ///< that it may be: what was received before it was due then

    std::size_t received = 0; ///< the first entry that has not happened to the application
    std::size_t sent = 0;     ///< the entry that it is expected to send, or that tells that nothing is
    std::string sentBytes;    ///< by it, of that entry
    bool told = false;        ///< a difference in that entry, or behind the end
    std::map<std::size_t, TimePoint> arrivals; ///< of the entries that it has sent, by their place
    std::vector<std::string> output;
};

}

#endif
