#ifndef VIRTUAL_UNIT_PERIPHERALS_POWERSUPPLY_H
#define VIRTUAL_UNIT_PERIPHERALS_POWERSUPPLY_H

#include "base/ThreadSafety.h"
#include "virtual-unit/common/Descriptor.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace VirtualUnit
{

/**
 * The unit's power. Its controller holds it while the power line is 1, and for the length of a pulse of the
 * line while the ignition is on; at first both are. So a line at 0 cuts it at once with the ignition off, and
 * as soon as that is switched off; with the ignition on when it stays at 0.
 *
 * Once cut it stays so. Calling threads: any.
 */
class PowerSupply
{
public:
    enum class State
    {
        On,
        SwitchedOff, ///< by the controller
        Lost         ///< whatever the controller does
    };

    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds LONGEST_PULSE{500};

    void DriveLine(bool high, Clock::time_point now)
    {
        const std::lock_guard lock(access);
        if (high)
        {
            pulseEnds.reset();
        }
        else if (!pulseEnds)
        {
            pulseEnds = now + LONGEST_PULSE;
        }
        Control();
    }

    /// When Advance() has something to do.
    std::optional<Clock::time_point> NextDeadline() const
    {
        const std::lock_guard lock(access);
        return state == State::On ? pulseEnds : std::nullopt;
    }

    void Advance(Clock::time_point now)
    {
        const std::lock_guard lock(access);
        if (pulseEnds && *pulseEnds <= now)
        {
            Cut(State::SwitchedOff);
        }
    }

    void SwitchIgnition(bool on)
    {
        const std::lock_guard lock(access);
        ignition = on;
        Control();
    }

    void Lose()
    {
        const std::lock_guard lock(access);
        Cut(State::Lost);
    }

    State Present() const
    {
        const std::lock_guard lock(access);
        return state;
    }

    bool IsCut() const { return Present() != State::On; }

    int WhenCut() const { return cut.Get(); } ///< a descriptor that is readable once it is cut

private:
    void Control() TAV_REQUIRES(access)
    {
        if (pulseEnds && !ignition)
        {
            Cut(State::SwitchedOff);
        }
    }

    void Cut(State how) TAV_REQUIRES(access)
    {
        if (state == State::On)
        {
            state = how;
            const std::uint64_t one = 1;
            [[maybe_unused]] const ssize_t ignored = write(cut.Get(), &one, sizeof(one)); // it has room
        }
    }

    static Descriptor Event()
    {
        Descriptor event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (event.Get() < 0)
        {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
        return event;
    }

    const Descriptor cut = Event();
    mutable std::mutex access;
    std::optional<Clock::time_point> pulseEnds TAV_GUARDED_BY(access); ///< the line is 0; if it stays so
    bool ignition TAV_GUARDED_BY(access) = true;
    State state TAV_GUARDED_BY(access) = State::On;
};

}

#endif
