#ifndef BASE_TAVBASE_UTIL_TEMPERATUREMONITOR_H
#define BASE_TAVBASE_UTIL_TEMPERATUREMONITOR_H

#include "base/Export.h"

#include <atomic>
#include <cstdint>

namespace Tavbase::Util
{

/**
 * The temperature of the board, from the kernel's first thermal zone
 * ("/sys/class/thermal/thermal_zone0/temp", in thousandths of a degree Celsius).
 *
 * GetInstance() reads the zone when ten seconds have passed since the last reading, so a caller that keeps
 * the reference keeps the values of that reading. There is no thread behind it.
 *
 * Threads: any, also in static constructors and destructors. One of several callers does the reading; the
 * others go on with the values of the reading before. Nothing is thrown, and errno is left as it was.
 */
class TAVBASE_API TemperatureMonitor
{
public:
    static TemperatureMonitor& GetInstance() noexcept; ///< reads the zone when that is due

    TemperatureMonitor(const TemperatureMonitor&) = delete;
    TemperatureMonitor& operator=(const TemperatureMonitor&) = delete;

    /// False where there is no thermal zone, or when the last reading failed or gave no temperature.
    bool IsAvailable() const noexcept { return available; }

    /// Whole degrees Celsius, the fraction dropped; means something only while IsAvailable().
    int GetTemperature() const noexcept { return temperature; }

private:
    constexpr TemperatureMonitor() noexcept = default;

    void Read() noexcept;

    std::atomic<bool> available{false};
    std::atomic<int> temperature{0};
    std::atomic<std::int64_t> lastReading{INT64_MIN}; ///< monotonic nanoseconds; INT64_MIN: none yet

    static TemperatureMonitor instance;
};

}

#endif
