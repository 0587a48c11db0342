#include "virtual-unit/peripherals/Nmea.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <utility>

namespace VirtualUnit::Nmea
{

namespace
{

constexpr std::size_t ADDRESS_LENGTH = 6; // "$GPRMC": '$', talker, type

bool IsRmc(std::string_view line)
{
    return line.substr(0, ADDRESS_LENGTH).ends_with("RMC");
}

std::string Angle(double degrees, int degreeDigits, char positive, char negative)
{
    // In whole ten-thousandths of a minute, so that rounding never gives sixty minutes.
    constexpr long long PER_MINUTE = 10'000;
    const long long units = std::llround(std::fabs(degrees) * 60.0 * static_cast<double>(PER_MINUTE));
    char text[48];
    std::snprintf(text, sizeof(text), "%0*lld%02lld.%04lld,%c", degreeDigits, units / (60 * PER_MINUTE),
                  units / PER_MINUTE % 60, units % PER_MINUTE, degrees < 0 ? negative : positive);
    return text;
}

}

unsigned int CheckSum(std::string_view body)
{
    unsigned int sum = 0;
    for (const char c : body)
    {
        sum ^= static_cast<unsigned char>(c);
    }
    return sum;
}

std::string Sentence(std::string_view body)
{
    char end[8];
    std::snprintf(end, sizeof(end), "*%02X\r\n", CheckSum(body));
    std::string sentence = "$";
    sentence += body;
    sentence += end;
    return sentence;
}

std::string_view Body(std::string_view line)
{
    const std::size_t begin = line.rfind('$');
    const std::size_t star = line.find('*', begin == std::string_view::npos ? 0 : begin);
    if (begin == std::string_view::npos || star == std::string_view::npos)
    {
        return {};
    }
    const std::string_view body = line.substr(begin + 1, star - begin - 1);
    char sum[4];
    std::snprintf(sum, sizeof(sum), "*%02X", CheckSum(body));
    return line.substr(star, 3) == sum ? body : std::string_view();
}

std::string Latitude(double degrees)
{
    return Angle(degrees, 2, 'N', 'S');
}

std::string Longitude(double degrees)
{
    return Angle(degrees, 3, 'E', 'W');
}

std::vector<Epoch> Epochs(std::string_view text, RmcPosition position)
{
    std::vector<Epoch> epochs;
    Epoch epoch;
    bool complete = false; // the epoch has its RMC sentence
    while (!text.empty())
    {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
        if (!line.starts_with('$'))
        {
            continue;
        }
        const bool rmc = IsRmc(line);
        if (complete && (position == RmcPosition::Last || rmc))
        {
            epochs.push_back(std::exchange(epoch, {}));
            complete = false;
        }
        epoch.push_back(std::string(line.substr(0, line.find_last_not_of("\r \t") + 1)) + "\r\n");
        complete = complete || rmc;
    }
    if (!complete && !epochs.empty())
    {
        epochs.back().insert(epochs.back().end(), epoch.begin(), epoch.end());
    }
    else if (!epoch.empty())
    {
        epochs.push_back(std::move(epoch));
    }
    return epochs;
}

}
