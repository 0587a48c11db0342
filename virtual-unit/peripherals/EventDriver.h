#ifndef VIRTUAL_UNIT_PERIPHERALS_EVENTDRIVER_H
#define VIRTUAL_UNIT_PERIPHERALS_EVENTDRIVER_H

#include "virtual-unit/peripherals/MessagePeripheral.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/**
 * The emulated event driver behind "/dev/tav_event": output pins 100 to 106, and triggers.
 *
 * A pin is driven by the ioctl of its number, with 0 or 1 as the argument; another argument is EINVAL,
 * another request ENOTTY. Each trigger is a message of five bytes: its code, and four more that nobody uses.
 */
class EventDriver : public MessagePeripheral
{
public:
    static constexpr unsigned int FIRST_PIN = 100;
    static constexpr unsigned int LAST_PIN = 106;
    static constexpr std::size_t MESSAGE_BYTES = 5;
    static constexpr std::size_t LONGEST_HISTORY = 10'000;
    static constexpr std::size_t MOST_CHANGES = 1'000'000; ///< five days of an LED that blinks

    /// A trigger of the script. Any code is sent, also 0 and those above 5, which are no events.
    struct Event
    {
        std::chrono::milliseconds after{0}; ///< so long after the first call that gives a time
        unsigned char code = 1;
    };

    struct PinWrite
    {
        TimePoint at;
        unsigned int pin = 0;
        unsigned int value = 0;

        bool operator==(const PinWrite&) const = default;
    };

    /// What goes wrong; each may be switched on and off at any time.
    struct Faults
    {
        std::map<unsigned int, int> pins;         ///< errno by pin: a write is refused and has no effect
        std::size_t messageBytes = MESSAGE_BYTES; ///< of each trigger from then on, 1 to 5
    };

    EventDriver() = default;
    explicit EventDriver(std::vector<Event> theScript); ///< in any order

    Faults faults;
    std::array<unsigned char, MESSAGE_BYTES - 1> rest{}; ///< the four bytes behind the code

    /// @param listener is told of each trigger when it is sent, also of those of the script, on the thread
    /// that sends it
    void Tell(std::function<void(unsigned char code)> listener) { triggered = std::move(listener); }

    /// @param listener is told of each pin that was driven, on the thread that answers the ioctl
    void TellPins(std::function<void(const PinWrite& write)> listener) { driven = std::move(listener); }

    void Trigger(unsigned char code, std::size_t times = 1); ///< at once
    void HangUp();                                           ///< it cannot be undone

    static std::string_view
    NameOf(unsigned int pin); ///< what it drives, for people; empty: there is no such pin

    std::optional<unsigned int> Pin(unsigned int pin) const; ///< none: never written

    /// All writes that were carried out, oldest first; the latest LONGEST_HISTORY of them.
    std::vector<PinWrite> History() const { return {history.begin(), history.end()}; }

    /// The first write of each pin, and those by which it changed, oldest first; the latest MOST_CHANGES of
    /// them.
    std::vector<PinWrite> Changes() const { return {changes.begin(), changes.end()}; }

    int Receive(std::string_view message, TimePoint now) override; ///< there is nothing to write: EINVAL
    int Answer(const Ioctl& call, TimePoint now) override;
    std::optional<TimePoint> NextDeadline() const override;
    void Advance(TimePoint now) override;
    std::vector<std::string> TakeOutput() override;

    bool IsConnected() const override { return connected; }

    void Attach(const std::function<void()>& wakeHost) override { wake = wakeHost; }

private:
    void Send(unsigned char code);
    void WakeHost() const;

    std::deque<Event> script; ///< what is still to come, in order
    std::optional<TimePoint> switchedOn;
    bool connected = true;
    std::deque<PinWrite> history;
    std::deque<PinWrite> changes;
    std::map<unsigned int, unsigned int> pins;
    std::vector<std::string> output;
    std::function<void()> wake;
    std::function<void(unsigned char code)> triggered;
    std::function<void(const PinWrite& write)> driven;
};

}

#endif
