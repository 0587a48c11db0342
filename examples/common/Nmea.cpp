#include "examples/common/Nmea.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <numbers>

namespace Examples
{

namespace
{

constexpr double KILOMETRES_PER_HOUR_PER_KNOT = 1.852;
constexpr double EARTH_RADIUS_METRES = 6'371'000.0;
constexpr double RADIANS = std::numbers::pi / 180.0;

/// Fields of a sentence by their number; 0 is the address, for example "GPRMC".
namespace Rmc
{
constexpr std::size_t TIME = 1, STATUS = 2, LATITUDE = 3, LONGITUDE = 5, KNOTS = 7, COURSE = 8, DATE = 9;
}

namespace Gga
{
constexpr std::size_t TIME = 1, SATELLITES = 7;
}

constexpr std::size_t MOST_FIELDS = 32;
using Fields = std::array<std::string_view, MOST_FIELDS>;

Fields Split(std::string_view body)
{
    Fields fields;
    for (std::string_view& field : fields)
    {
        field = body.substr(0, body.find(','));
        body.remove_prefix(field.size());
        if (body.empty())
        {
            break;
        }
        body.remove_prefix(1);
    }
    return fields;
}

template <class Number>
std::optional<Number> Parse(std::string_view text)
{
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

/// "dddmm.mmmm": whole degrees, and minutes in the last two digits before the point.
std::optional<double> Angle(std::string_view text, std::string_view hemisphere, std::string_view negative)
{
    const std::optional<double> value = Parse<double>(text);
    if (!value || hemisphere.empty())
    {
        return std::nullopt;
    }
    const double degrees = std::floor(*value / 100.0);
    const double angle = degrees + (*value - degrees * 100.0) / 60.0;
    return hemisphere == negative ? -angle : angle;
}

/// "hhmmss.sss" as people write it; empty when it is not one.
std::string Time(std::string_view text)
{
    if (text.size() < 6 || !Parse<unsigned int>(text.substr(0, 6)))
    {
        return {};
    }
    const std::string digits(text.substr(0, 6));
    return digits.substr(0, 2) + ":" + digits.substr(2, 2) + ":" + digits.substr(4, 2);
}

/// "ddmmyy" as people write it; empty when it is not one.
std::string Date(std::string_view text)
{
    if (text.size() != 6 || !Parse<unsigned int>(text))
    {
        return {};
    }
    const std::string digits(text);
    return "20" + digits.substr(4) + "-" + digits.substr(2, 2) + "-" + digits.substr(0, 2);
}

void ReadRmc(const Fields& fields, Block& block)
{
    block.hasRmc = true;
    block.time = Time(fields[Rmc::TIME]);
    block.date = Date(fields[Rmc::DATE]);
    block.fix = fields[Rmc::STATUS] == "A";
    const auto latitude = Angle(fields[Rmc::LATITUDE], fields[Rmc::LATITUDE + 1], "S");
    const auto longitude = Angle(fields[Rmc::LONGITUDE], fields[Rmc::LONGITUDE + 1], "W");
    if (block.fix && latitude && longitude)
    {
        block.position = Coordinates{*latitude, *longitude};
        block.course = Parse<double>(fields[Rmc::COURSE]);
        if (const auto knots = Parse<double>(fields[Rmc::KNOTS]))
        {
            block.kilometresPerHour = *knots * KILOMETRES_PER_HOUR_PER_KNOT;
        }
    }
}

void ReadGga(const Fields& fields, Block& block)
{
    if (block.time.empty())
    {
        block.time = Time(fields[Gga::TIME]);
    }
    block.satellites = Parse<int>(fields[Gga::SATELLITES]);
}

void ReadSentence(std::string_view sentence, Block& block)
{
    ++block.sentences;
    if (CheckSumOf(sentence) == CheckSum::Wrong)
    {
        ++block.badSentences;
        return;
    }
    const Fields fields = Split(sentence.substr(1, sentence.find_first_of("*\r\n") - 1));
    if (fields[0].ends_with("RMC"))
    {
        ReadRmc(fields, block);
    }
    else if (fields[0].ends_with("GGA"))
    {
        ReadGga(fields, block);
    }
}

}

CheckSum CheckSumOf(std::string_view sentence)
{
    const std::size_t star = sentence.find('*');
    if (star == std::string_view::npos)
    {
        return CheckSum::Missing;
    }
    unsigned int sum = 0;
    for (const char c : sentence.substr(1, star - 1))
    {
        sum ^= static_cast<unsigned char>(c);
    }
    unsigned int stated = 0;
    const std::string_view digits = sentence.substr(star + 1, 2);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), stated, 16);
    return error == std::errc() && end == digits.data() + 2 && stated == sum ? CheckSum::Right
                                                                             : CheckSum::Wrong;
}

Block ParseBlock(std::string_view text)
{
    Block block;
    for (std::size_t begin = text.find('$'); begin != std::string_view::npos;)
    {
        const std::size_t end = text.find_first_of("$\n", begin + 1);
        ReadSentence(text.substr(begin, end - begin), block);
        begin = text.find('$', begin + 1);
    }
    return block;
}

std::string Readable(const Coordinates& position)
{
    std::array<char, 64> text = {};
    std::snprintf(text.data(), text.size(), "%8.5f° %c %9.5f° %c", std::fabs(position.latitude),
                  position.latitude < 0 ? 'S' : 'N', std::fabs(position.longitude),
                  position.longitude < 0 ? 'W' : 'E');
    return text.data();
}

double MetresBetween(const Coordinates& from, const Coordinates& to)
{
    const double north = std::sin((to.latitude - from.latitude) * RADIANS / 2.0);
    const double east = std::sin((to.longitude - from.longitude) * RADIANS / 2.0);
    const double haversine =
        north * north + std::cos(from.latitude * RADIANS) * std::cos(to.latitude * RADIANS) * east * east;
    return 2.0 * EARTH_RADIUS_METRES * std::asin(std::sqrt(haversine));
}

}
