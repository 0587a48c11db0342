#ifndef VIRTUAL_UNIT_RECORDING_PORTFORMAT_H
#define VIRTUAL_UNIT_RECORDING_PORTFORMAT_H

#include "virtual-unit/recording/PortEntry.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace VirtualUnit
{

/**
 * The text of a port's recording:
 *
 *     # virtual-unit recording 1
 *     # port /dev/ttymxc2
 *        0.512345 ! opened
 *        0.612345 > hex AA 55 02 01 01 00
 *        0.613002 < "$PMTK605*31\r\n"
 *        1.200000 ? "pin 103 = 1" -> "0"  # left LED green
 *        1.300000 ? "read 0x1C:0x0C" -> "00" x 37 until 2.041000
 *        2.100000 ? "pin 102 = 1" -> "0" | "pin 102 = 0" -> "0" x 7 until 5.100000  # left LED red
 *
 * The first two lines are as they stand here. Other lines that begin with '#', and empty ones, are comments.
 * Each line ends with a line feed. What follows "  # " behind a request is a comment, too: the name of the
 * pin.
 *
 * A line is the time since the run began, in seconds with six digits behind the point, and what happened:
 *
 * | Sign | What follows |
 * |---|---|
 * | ! | an event: opened, unplugged, plugged in; or "signal 15", which the program was sent |
 * | > | what the application sent, as ByteText |
 * | < | what it received |
 * | ? | an ioctl and its answer, as RequestText |
 *
 * A request that was made again and again, with the same answer, is one line: "x 37 until 2.041000" says that
 * there were 37 of them, the first at the time of the line, the last at 2.041000. Those behind '|' take turns
 * with the first; there are four at most. "x 7" of two are four of the first and three of the second. No
 * other request of the same channel (see RequestText) was in between.
 *
 * Times do not go back from line to line; only the pins, each of which is a channel of its own, have their
 * lines when they are complete.
 */
class PortFormat
{
public:
    /// A line that cannot be understood; what() says why, as "has no time".
    class Wrong : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    static constexpr std::string_view FIRST_LINE = "# virtual-unit recording 1";
    static constexpr const char* SUFFIX = ".port"; ///< of the name of a file

    static std::string PortLine(const std::string& port); ///< the second line

    static std::optional<std::string> PortOf(std::string_view line); ///< of a second line; none: it is none

    static std::string Line(const PortEntry& entry); ///< without line feed

    /// @param line without line feed @return none: a comment @throws Wrong
    static std::optional<PortEntry> Parse(std::string_view line);
};

}

#endif
