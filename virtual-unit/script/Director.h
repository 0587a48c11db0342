#ifndef VIRTUAL_UNIT_SCRIPT_DIRECTOR_H
#define VIRTUAL_UNIT_SCRIPT_DIRECTOR_H

#include "base/ThreadSafety.h"
#include "virtual-unit/ports/PortObserver.h"
#include "virtual-unit/script/Heard.h"
#include "virtual-unit/script/PinHistory.h"
#include "virtual-unit/script/Script.h"
#include "virtual-unit/script/Verdict.h"
#include "virtual-unit/unit/Unit.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/**
 * Carries a script out, on a thread of its own.
 *
 * Calling threads: one for all operations; the listener is called on the director's thread, and on that which
 * stops it.
 */
class Director
{
public:
    using Duration = std::chrono::duration<double>;

    /// Whom it tells what it does.
    struct Listener
    {
        std::function<void(const std::string& step)> step;
        std::function<void(const Verdict& verdict)> verdict; ///< on an expectation
    };

    /// @param theUnit stays the caller's and outlives this object
    Director(Script theScript, Unit& theUnit, Listener theListener);
    Director(const Director&) = delete;
    Director& operator=(const Director&) = delete;
    ~Director(); ///< stops

    void Prepare(); ///< does the steps of time 0 that stand first: the program finds them done
    void Start();   ///< the program begins now
    void Stop();    ///< an expectation that still lasts is decided

    /// Takes what the program prints, if the script waits for that.
    PortObserver* ProgramListener();

    /// The lines of the script that have not been carried out. After Stop().
    std::vector<Verdict> NotReached() const;

private:
    using Clock = std::chrono::steady_clock;

    /// What has gone over a port and is waited for.
    struct Noticed
    {
        /// Looks for a sign and forgets what precedes its end. @return when it came; none: it has not
        std::optional<Clock::time_point> Take(const Script::Sign& sign, Clock::time_point since);

        /// What came in place of a sign, for people.
        std::string Instead(const Script::Sign& sign, Clock::time_point since, Clock::time_point begin) const;

        Heard hears;
        Heard says;
        std::deque<Clock::time_point> openings;
        PinHistory pins;
    };

    /// Keeps it. Its thread is the port's.
    class Ear : public PortObserver
    {
    public:
        Ear(Director& whose, std::string itsPort) : owner(whose), port(std::move(itsPort)) {}

        void Sent(std::string_view bytes, TimePoint at) override { Keep(&Noticed::hears, bytes, at); }

        void Received(std::string_view bytes, TimePoint at) override { Keep(&Noticed::says, bytes, at); }

        void Answered(const std::string& request, const std::string& answer, TimePoint at) override;
        void Happened(const std::string& event, TimePoint at) override;

    private:
        void Keep(Heard Noticed::*heard, std::string_view bytes, TimePoint at);

        Director& owner;
        const std::string port; ///< its name
    };

    std::size_t Done() const;

    void Perform();
    void Do(const Step& step);
    bool AwaitTime(Clock::time_point time);
    std::optional<Clock::time_point> AwaitSign(const Script::Sign& sign, Clock::time_point since);
    std::optional<Clock::time_point> Expect(const Script::Cue& cue, Clock::time_point before,
                                            Clock::time_point since);

    Script script;
    Unit& unit;
    Listener listener;

    Clock::time_point begin; ///< of the program

    std::map<std::string, Ear> ears; ///< by the port's name

    mutable std::mutex access; ///< guards what follows
    std::condition_variable changed;
    std::map<std::string, Noticed> noticed TAV_GUARDED_BY(access); ///< by the port's name; of all the ears
    bool ending TAV_GUARDED_BY(access) = false;
    std::size_t done TAV_GUARDED_BY(access) = 0; ///< cues

    std::thread thread;
};

}

#endif
