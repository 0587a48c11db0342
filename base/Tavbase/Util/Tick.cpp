#include "base/Tavbase/Util/Tick.h"

#include <ctime>
#include <type_traits>

namespace Tavbase::Util
{

namespace
{

constexpr std::int64_t NANOSECONDS = 1'000'000'000; // in a second

std::int64_t Now() noexcept
{
    std::timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * NANOSECONDS + now.tv_nsec;
}

/// Runs as the library is loaded, before the constructors of its own static objects, which may log.
__attribute__((constructor(101))) void StartCount() noexcept
{
    Tick::GetInstance().Set(0);
}

}

// Usable without a constructor and after the end of main: it is constant from the start and never destroyed.
constinit Tick Tick::instance;
static_assert(std::is_trivially_destructible_v<Tick>);

Tick& Tick::GetInstance() noexcept
{
    return instance;
}

std::uint64_t Tick::Count() const noexcept
{
    const std::scoped_lock lock(access);
    const std::int64_t passed = Now() - since;
    return passed < 0 ? count : count + static_cast<std::uint64_t>(passed / NANOSECONDS);
}

void Tick::Set(std::uint64_t seconds) noexcept
{
    const std::scoped_lock lock(access);
    count = seconds;
    since = Now();
}

}
