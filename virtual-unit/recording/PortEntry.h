#ifndef VIRTUAL_UNIT_RECORDING_PORTENTRY_H
#define VIRTUAL_UNIT_RECORDING_PORTENTRY_H

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/// One line of a port's recording.
struct PortEntry
{
    enum class Kind
    {
        Event,
        Sent,     ///< by the application
        Received, ///< by the application
        Requests
    };

    /// An ioctl and its answer, as RequestText tells them.
    struct Exchange
    {
        std::string request;
        std::string answer;

        bool operator==(const Exchange&) const = default;
    };

    static constexpr std::size_t MOST_TURNS = 4;

    static constexpr std::string_view OPENED = "opened";
    static constexpr std::string_view UNPLUGGED = "unplugged";
    static constexpr std::string_view PLUGGED_IN = "plugged in";
    static constexpr std::string_view SIGNAL = "signal "; ///< and its number: the program was sent it

    static std::string SignalEvent(int number) { return std::string(SIGNAL) + std::to_string(number); }

    bool IsEvent(std::string_view name) const { return kind == Kind::Event && bytes == name; }

    Kind kind = Kind::Event;
    std::chrono::microseconds at{0};    ///< since the run began; the first of several requests
    std::string bytes;                  ///< what was sent or received, or the name of an event
    std::vector<Exchange> exchanges;    ///< that take turns: one, or a few
    std::size_t count = 1;              ///< of all exchanges
    std::chrono::microseconds until{0}; ///< the last request; with one alone: `at`
    std::size_t line = 0;               ///< of the file, the first is 1; 0: it is not from a file

    bool operator==(const PortEntry&) const = default;
};

}

#endif
