#ifndef VIRTUAL_UNIT_RECORDING_DIFFERENCE_H
#define VIRTUAL_UNIT_RECORDING_DIFFERENCE_H

#include <cstddef>
#include <string>

namespace VirtualUnit
{

/// Something that a program did otherwise than the one that was recorded.
struct Difference
{
    /// One line: "/dev/ttymxc2: recording line 17, byte 6: expected 0x03 in hex AA 55 02 01 01 03 .., the
    /// program sent 0x04 in hex AA 55 02 01 01 04".
    std::string Text() const
    {
        if (line == 0)
        {
            return port + ": the recording has nothing more, the program " + program;
        }
        return port + ": recording line " + std::to_string(line) +
               (byte != 0 ? ", byte " + std::to_string(byte) : "") + ": expected " + expected +
               ", the program " + program;
    }

    /// The begin of Text(), for a difference among others.
    std::string Place() const
    {
        return port +
               (line == 0 ? ": behind the end of the recording" : ": recording line " + std::to_string(line));
    }

    bool operator==(const Difference&) const = default;

    std::string port;
    std::size_t line = 0; ///< of the port's recording; 0: behind its end
    std::size_t byte = 0; ///< of those of the line, the first is 1; 0: of none
    std::string expected; ///< by the recording; empty behind its end
    std::string program;  ///< did what instead: "sent 0x04 in hex AA 04"
};

}

#endif
