#ifndef VIRTUAL_UNIT_RECORDING_REPLAYEDREQUESTS_H
#define VIRTUAL_UNIT_RECORDING_REPLAYEDREQUESTS_H

#include "virtual-unit/recording/Differences.h"
#include "virtual-unit/recording/PortRecording.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace VirtualUnit
{

/**
 * The requests of a port's recording, and their answers.
 *
 * The requests of each channel (see RequestText) come in the order of the recording. One that was repeated
 * may come any number of times, once at least, and so may those that take turns. Where a request may be the
 * same one again or the next line, and the answers differ, the time of that line tells whether it is its
 * turn.
 *
 * Another request is a difference. It is answered as its like was the last time, or with EIO. Then requests
 * may go on as if it had not been made, or further on in the recording, where the first request that fits
 * next is found. Until then other requests are no more differences.
 *
 * Threads: no lock; one call at a time.
 */
class ReplayedRequests
{
public:
    ReplayedRequests(const PortRecording& recording, Differences& differences);

    bool Expects(const std::string& request) const; ///< it may come now

    /// @param recordedTime what time the recording had @return the answer, as RequestText
    std::string Answer(const std::string& request, std::chrono::microseconds recordedTime);

    /// Everything has been requested that had when the recording was so old.
    bool HasReached(std::chrono::microseconds recordedTime) const;

    void Finish(); ///< the program has ended; the requests that it has not made are a difference

private:
    /// A request that has been made or may be made next.
    struct Position
    {
        std::size_t step = 0;     ///< line of the recording, of those of the channel
        std::size_t exchange = 0; ///< of those that take turns there

        bool operator==(const Position&) const = default;

        bool operator<(const Position& other) const
        {
            return std::tie(step, exchange) < std::tie(other.step, other.exchange);
        }
    };

    using Positions = std::vector<Position>; ///< in order, each once

    struct Channel
    {
        const PortEntry::Exchange& At(const Position& position) const
        {
            return steps[position.step].exchanges[position.exchange];
        }

        Positions Expected() const;
        Positions Expected(const std::string& request) const;
        Positions Ahead(const std::string& request) const;
        bool OnlyPollsFrom(std::size_t step) const;
        Positions Chosen(const Positions& possible, std::chrono::microseconds recordedTime) const;

        std::vector<PortEntry> steps;
        Positions made;    ///< where the program may be: the latest request; none: before the first
        bool lost = false; ///< since a request that does not fit
        std::map<std::string, std::string> answers; ///< the latest, by request
    };

    void Tell(const Channel& channel, const Positions& expected, const std::string& program,
              std::chrono::microseconds at);

    std::string port;
    Differences& differences;
    std::map<std::string, Channel> channels;
};

}

#endif
