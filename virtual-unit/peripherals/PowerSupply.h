#ifndef VIRTUAL_UNIT_PERIPHERALS_POWERSUPPLY_H
#define VIRTUAL_UNIT_PERIPHERALS_POWERSUPPLY_H

#include "virtual-unit/common/Descriptor.h"

#include <cerrno>
#include <cstdint>
#include <mutex>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace VirtualUnit
{

/**
 * The unit's power. Its controller holds it while the ignition is on or the power line is 1, both of which
 * they are at first; so a line at 0 cuts it with the ignition off, at once or when that is switched off.
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

    void DriveLine(bool high)
    {
        const std::lock_guard lock(access);
        line = high;
        Control();
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
    void Control()
    {
        if (!line && !ignition)
        {
            Cut(State::SwitchedOff);
        }
    }

    void Cut(State how)
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

    mutable std::mutex access;
    bool line = true;
    bool ignition = true;
    State state = State::On;
    Descriptor cut = Event();
};

}

#endif
