#ifndef TESTS_GPIO_EVENTDRIVER_H
#define TESTS_GPIO_EVENTDRIVER_H

#include "tests/kit/Clock.h"
#include "tests/kit/MessageDevice.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace GpioTests
{

inline constexpr const char* DEVICE = "/dev/tav_event";

/// A pin and what it was set to.
using Pin = std::pair<unsigned long, std::uintptr_t>;
using Pins = std::vector<Pin>;

struct PinWrite
{
    unsigned long pin = 0;
    std::uintptr_t value = 0;
    std::chrono::nanoseconds at{}; ///< virtual time

    bool operator==(const PinWrite&) const = default;
};

inline void PrintTo(const PinWrite& write, std::ostream* out)
{
    *out << write.pin << '=' << write.value << " at "
         << std::chrono::duration_cast<std::chrono::microseconds>(write.at).count() << " us";
}

/// The driver behind the event device: keeps what is written to its pins and sends triggers.
class EventDriver
{
public:
    /// What the driver answers a write; called on the writing thread. Below 0: a negated errno.
    using Answer = std::function<int(const PinWrite&)>;

    EventDriver()
        : device(DEVICE, [this](unsigned long request, void* argument) {
              return TakeWrite({request, reinterpret_cast<std::uintptr_t>(argument), Kit::Clock::Elapsed()});
          })
    {
    }

    /// From now on. Set while nobody writes.
    void AnswerBy(Answer wanted) { answer = std::move(wanted); }

    void Send(std::string_view message) { device.Send(message); }

    void Trigger(int code)
    {
        const char message[] = {static_cast<char>(code), '\x7F', '\1', '\xFF', '\5'};
        Send({message, sizeof message});
    }

    void HangUp() { device.HangUp(); }

    std::vector<PinWrite> Writes() const
    {
        const std::scoped_lock lock(access);
        return writes;
    }

    Pins Written() const
    {
        Pins pins;
        for (const PinWrite& write : Writes())
        {
            pins.emplace_back(write.pin, write.value);
        }
        return pins;
    }

    void Forget()
    {
        const std::scoped_lock lock(access);
        writes.clear();
    }

private:
    int TakeWrite(const PinWrite& write)
    {
        {
            const std::scoped_lock lock(access);
            writes.push_back(write);
        }
        return answer ? answer(write) : 0;
    }

    mutable std::mutex access;
    std::vector<PinWrite> writes;
    Answer answer;
    Kit::MessageDevice device;
};

}

#endif
