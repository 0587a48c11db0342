#ifndef VIRTUAL_UNIT_PERIPHERALS_TRANSMITTER_H
#define VIRTUAL_UNIT_PERIPHERALS_TRANSMITTER_H

#include "virtual-unit/peripherals/SerialPeripheral.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/**
 * The sending half of an emulated UART: takes texts, and gives them out in order, piece by piece, when
 * their time has come.
 */
class Transmitter
{
public:
    using TimePoint = SerialPeripheral::TimePoint;

    struct Options
    {
        std::size_t pieceBytes = 0;            ///< a text is cut into pieces of this size; 0: not cut
        std::chrono::milliseconds pieceGap{0}; ///< silence between the pieces of one text
        unsigned int bytesPerSecond = 0;       ///< speed of the line, 960 at 9600 baud; 0: no time at all
    };

    Options options; ///< may be changed at any time; holds for the texts sent from then on

    /// Queues a text, to begin at `at` or when everything queued before is out.
    void Send(std::string_view text, TimePoint at);

    void Discard(); ///< forgets what is not out yet

    std::optional<TimePoint> NextDeadline() const; ///< when the next piece is complete

    /// Moves the pieces that are complete by `now` to the end of `output`.
    void Take(TimePoint now, std::vector<std::string>& output);

private:
    struct Piece
    {
        TimePoint complete;
        std::string bytes;
    };

    std::deque<Piece> queue;
};

}

#endif
