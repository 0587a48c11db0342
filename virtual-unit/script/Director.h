#ifndef VIRTUAL_UNIT_SCRIPT_DIRECTOR_H
#define VIRTUAL_UNIT_SCRIPT_DIRECTOR_H

#include "virtual-unit/ports/PortObserver.h"
#include "virtual-unit/script/Script.h"
#include "virtual-unit/unit/Unit.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace VirtualUnit
{

/**
 * Carries a script out, on a thread of its own.
 *
 * Calling threads: one for all operations; `tell` is called on the director's thread.
 */
class Director
{
public:
    /// @param theUnit stays the caller's and outlives this object @param tell takes a line for each step
    Director(Script theScript, Unit& theUnit, std::function<void(const std::string& line)> tell);
    Director(const Director&) = delete;
    Director& operator=(const Director&) = delete;
    ~Director(); ///< stops

    void Prepare(); ///< does the steps of time 0 that stand first: the program finds them done
    void Start();   ///< the program begins now
    void Stop();

    /// The first line of the script that has not been carried out; none: it has come to its end.
    std::optional<int> LineNotReached() const;

private:
    using Clock = std::chrono::steady_clock;

    /// Keeps what has gone over a port and is waited for. Its thread is the port's.
    class Ear : public PortObserver
    {
    public:
        explicit Ear(Director& whose) : owner(whose) {}

        void Sent(std::string_view bytes, TimePoint at) override { Keep(hears, bytes, at); }

        void Received(std::string_view bytes, TimePoint at) override { Keep(says, bytes, at); }

        void Answered(const std::string& request, const std::string& answer, TimePoint at) override;
        void Happened(const std::string& event, TimePoint at) override;

        /// Looks for a sign and forgets what precedes its end. @return when it came; none: it has not
        std::optional<TimePoint> Take(const Script::Sign& sign);

    private:
        /// Text that is looked through, and when its last piece came.
        struct Heard
        {
            std::string text;
            TimePoint latest;
        };

        void Keep(Heard& heard, std::string_view bytes, TimePoint at);

        Director& owner;
        Heard hears;
        Heard says;
        std::vector<TimePoint> openings;
    };

    void Perform();
    void Do(const Step& step);
    bool AwaitTime(Clock::time_point time);
    std::optional<Clock::time_point> AwaitSign(const Script::Sign& sign);

    Script script;
    Unit& unit;
    std::function<void(const std::string&)> tellLine;

    mutable std::mutex access; ///< guards what follows
    std::condition_variable changed;
    std::map<std::string, Ear> ears; ///< by the port's name
    bool ending = false;
    std::size_t done = 0; ///< cues

    std::thread thread;
};

}

#endif
