#include "base/Tavbase/Util/TemperatureMonitor.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstddef>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <type_traits>
#include <unistd.h>

namespace Tavbase::Util
{

namespace
{

constexpr const char* THERMAL_ZONE = "/sys/class/thermal/thermal_zone0/temp";
constexpr std::int64_t READING_INTERVAL = 10'000'000'000; // nanoseconds
constexpr std::int64_t ABSOLUTE_ZERO = -273'150;          // thousandths of a degree Celsius

std::int64_t Now() noexcept
{
    std::timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

/// The zone's text is one decimal number and a line end. Below absolute zero is the kernel's "no value".
std::optional<int> ParseDegrees(const char* begin, const char* end) noexcept
{
    std::int64_t thousandths = 0;
    const auto result = std::from_chars(begin, end, thousandths);
    const bool whole = result.ptr == end || (*result.ptr == '\n' && result.ptr + 1 == end);
    if (result.ec != std::errc() || !whole || thousandths < ABSOLUTE_ZERO || thousandths > INT_MAX)
    {
        return std::nullopt;
    }
    return static_cast<int>(thousandths / 1000);
}

std::optional<int> ReadZone() noexcept
{
    const int fd = open(THERMAL_ZONE, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
    {
        return std::nullopt;
    }
    std::array<char, 32> text{};
    ssize_t length = 0;
    do
    {
        length = read(fd, text.data(), text.size());
    } while (length < 0 && errno == EINTR);
    close(fd);
    if (length <= 0 || length == static_cast<ssize_t>(text.size())) // nothing, or too long to be one number
    {
        return std::nullopt;
    }
    return ParseDegrees(text.data(), text.data() + length);
}

}

constinit TemperatureMonitor TemperatureMonitor::instance;
static_assert(std::is_trivially_destructible_v<TemperatureMonitor>);

TemperatureMonitor& TemperatureMonitor::GetInstance() noexcept
{
    // Part of the interface: the flag comes first and the temperature follows it.
    static_assert(offsetof(TemperatureMonitor, available) == 0);
    static_assert(offsetof(TemperatureMonitor, temperature) == sizeof(std::atomic<int>));

    const std::int64_t now = Now();
    std::int64_t last = instance.lastReading;
    const bool due = last == INT64_MIN || now < last || now - last >= READING_INTERVAL;
    if (due && instance.lastReading.compare_exchange_strong(last, now))
    {
        instance.Read();
    }
    return instance;
}

void TemperatureMonitor::Read() noexcept
{
    const int callersErrno = errno;
    const std::optional<int> degrees = ReadZone();
    if (degrees)
    {
        temperature = *degrees;
    }
    available = degrees.has_value();
    errno = callersErrno;
}

}
