#ifndef VIRTUAL_UNIT_PRELOAD_ASK_H
#define VIRTUAL_UNIT_PRELOAD_ASK_H

#include "virtual-unit/time/Real.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <type_traits>

/// Asking the supervisor about a system call. Calling threads: any, also within signal handlers and behind a
/// vfork(): nothing here allocates, and no connection outlives its call.
namespace VirtualUnit::Preload
{

using Arguments = std::array<std::uint64_t, 6>;

/// The supervisor's answer.
struct Reply
{
    bool goesOn = true; ///< the call is to be made as it is
    long value = 0;     ///< otherwise what it returns; below 0 a negated errno

    /// @return false, with errno, when the call has failed
    bool Succeeded() const
    {
        if (value < 0)
        {
            errno = static_cast<int>(-value);
        }
        return value >= 0;
    }
};

/// @param paths which of the arguments are paths: their indices; below 0: none
Reply AskAbout(long number, const Arguments& arguments, std::array<int, 2> paths);

template <class Argument>
std::uint64_t AsArgument(Argument argument)
{
    if constexpr (std::is_pointer_v<Argument>)
    {
        return reinterpret_cast<std::uint64_t>(argument);
    }
    else
    {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(argument));
    }
}

/// The same for a call with arguments of any type. Texts among them are the paths.
template <class... Each>
Reply Ask(long number, Each... each)
{
    std::array<int, 2> paths = {-1, -1};
    int index = 0;
    int count = 0;
    [[maybe_unused]] const auto look = [&]<class Argument>(Argument) {
        if (std::is_same_v<Argument, const char*> && count < 2)
        {
            paths[static_cast<std::size_t>(count++)] = index;
        }
        ++index;
    };
    (look(each), ...);
    return AskAbout(number, {AsArgument(each)...}, paths);
}

/// The result of a call that was asked about. @param real makes it, where it goes on
template <class Real>
auto Either(const Reply& reply, Real real) -> decltype(real())
{
    using Result = decltype(real());
    return reply.goesOn ? real() : static_cast<Result>(reply.Succeeded() ? reply.value : -1);
}

}

#endif
