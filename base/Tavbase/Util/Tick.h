#ifndef BASE_TAVBASE_UTIL_TICK_H
#define BASE_TAVBASE_UTIL_TICK_H

#include "base/Export.h"
#include "base/ThreadSafety.h"

#include <cstdint>
#include <mutex>

namespace Tavbase::Util
{

/**
 * The running tick count of the process: whole seconds since the base library was loaded.
 *
 * It runs by the monotonic clock, which does not follow changes of the date and stands still while the
 * board is suspended. There is no thread behind it.
 *
 * Threads: any, also in static constructors and destructors.
 */
class TAVBASE_API Tick
{
public:
    static Tick& GetInstance() noexcept; ///< the only one

    Tick(const Tick&) = delete;
    Tick& operator=(const Tick&) = delete;

    std::uint64_t Count() const noexcept; ///< seconds

    /**
     * Sets the count, for an application that starts a period anew: Count() gives `seconds` from now on,
     * one more after a whole second, and so on; after the largest value it goes on with 0.
     */
    void Set(std::uint64_t seconds) noexcept;

private:
    constexpr Tick() noexcept = default;

    mutable std::mutex access;
    std::uint64_t count TAV_GUARDED_BY(access) = 0; ///< the count at the time `since`
    std::int64_t since TAV_GUARDED_BY(access) = 0;  ///< nanoseconds of the monotonic clock

    static Tick instance;
};

}

#endif
