#ifndef VIRTUAL_UNIT_PRELOAD_PROTOCOL_H
#define VIRTUAL_UNIT_PRELOAD_PROTOCOL_H

#include <array>
#include <cstdint>

/**
 * What the preloaded library and the supervisor say to each other, over a socket that keeps messages apart:
 * one connection for each call, which outlives neither a fork() nor the call. The library sends a Call; the
 * supervisor sends Orders, the last of which ends the call. Both are of one installation, on one machine.
 */
namespace VirtualUnit::Preload
{

/// The socket's name, without the zero that it begins with, in the environment of each program.
constexpr const char* VARIABLE = "VIRTUAL_UNIT_CALLS";

/// The library's path as in LD_PRELOAD, likewise.
constexpr const char* LIBRARY_VARIABLE = "VIRTUAL_UNIT_PRELOAD";

constexpr std::uint32_t MAGIC = 0x54415643;

constexpr std::uint32_t LONGEST_MEMORY = 65'536; ///< of what is read or written by one order, in bytes

/// A part of the caller's memory, sent along so that it need not be asked for.
struct Part
{
    std::uint64_t address;
    std::uint32_t size;
    std::uint32_t unused;
};

constexpr std::uint32_t LONGEST_PART = 512; ///< more of a path is asked for

struct Call
{
    std::uint32_t magic;
    std::int32_t number; ///< of the system call
    std::array<std::uint64_t, 6> arguments;
    std::array<Part, 2> parts; ///< their bytes follow, one behind the other
};

/// The last argument of an execve() that a child of the caller is going to make.
constexpr std::uint64_t BY_CHILD = MAGIC;

enum class Action : std::uint32_t
{
    GoOn,       ///< the library makes the call itself: the end
    Result,     ///< `value` is what the call returns, below 0 a negated errno: the end
    Descriptor, ///< comes along, and its number is what the call returns: the end
    Read,       ///< sends `size` bytes from `address`, as a Reading
    Write       ///< puts the next message, `size` bytes, to `address`; fails the call where that fails
};

struct Order
{
    Action action = Action::Result;
    std::uint32_t size = 0;
    std::uint64_t address = 0;
    std::int64_t value = 0;
    std::uint32_t closeOnExec = 0;
    std::uint32_t holdsWrites = 0; ///< the descriptor is placed where writes are held up, if there is room
};

/// The library's answer to Action::Read.
struct Reading
{
    std::int32_t error; ///< 0, and the bytes follow
    std::uint32_t unused;
};

}

#endif
