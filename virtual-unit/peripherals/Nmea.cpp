#include "virtual-unit/peripherals/Nmea.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <utility>

namespace VirtualUnit::Nmea
{

namespace
{

using std::chrono::milliseconds;
using namespace std::chrono_literals;

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

/// A sentence that can be changed field by field.
class Fields
{
public:
    explicit Fields(const std::string& line)
    {
        const std::size_t dollar = line.rfind('$');
        head = line.substr(0, dollar == std::string::npos ? 0 : dollar);
        const std::string sentence = line.substr(head.size());
        const std::size_t end = std::min(sentence.find('*'), sentence.find_last_not_of("\r\n") + 1);
        tail = sentence.substr(end);
        sumIsRight = !Body(sentence).empty();
        std::size_t begin = 0;
        for (std::size_t comma = 0; comma != std::string::npos; begin = comma + 1)
        {
            comma = sentence.find(',', begin);
            comma = comma < end ? comma : std::string::npos;
            fields.push_back(sentence.substr(begin, std::min(comma, end) - begin));
        }
    }

    /// "RMC" whatever the talker is; empty for a sentence of a maker's own.
    std::string Type() const
    {
        const std::string& address = fields.front();
        return address.size() == ADDRESS_LENGTH && address[1] != 'P' ? address.substr(3) : std::string();
    }

    std::size_t Count() const { return fields.size(); }

    std::string At(std::size_t index) const { return index < fields.size() ? fields[index] : std::string(); }

    void Set(std::size_t index, const std::string& value)
    {
        if (index < fields.size())
        {
            fields[index] = value;
        }
    }

    void Clear(std::size_t first, std::size_t last)
    {
        for (std::size_t i = first; i <= last; ++i)
        {
            Set(i, "");
        }
    }

    std::string Text() const
    {
        std::string text = fields.front();
        for (std::size_t i = 1; i < fields.size(); ++i)
        {
            text += "," + fields[i];
        }
        return head + (sumIsRight ? Sentence(std::string_view(text).substr(1)) : text + tail);
    }

private:
    std::string head;                ///< a sentence that was cut off: the line goes on with another's '$'
    std::vector<std::string> fields; ///< the first one with its '$'
    std::string tail;                ///< behind the fields
    bool sumIsRight;
};

/// The number that `count` digits are; none when they are none.
std::optional<int> Digits(const std::string& text, std::size_t begin, std::size_t count)
{
    int value = 0;
    for (std::size_t i = begin; i < begin + count; ++i)
    {
        if (i >= text.size() || text[i] < '0' || text[i] > '9')
        {
            return std::nullopt;
        }
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

/// "hhmmss", with or without decimals.
std::optional<milliseconds> TimeOfDay(const std::string& text)
{
    const auto hours = Digits(text, 0, 2);
    const auto minutes = Digits(text, 2, 2);
    const auto seconds = Digits(text, 4, 2);
    if (!hours || !minutes || !seconds)
    {
        return std::nullopt;
    }
    const std::string decimals = text.size() > 7 ? (text.substr(7) + "00").substr(0, 3) : "000";
    return *hours * 1h + *minutes * 1min + *seconds * 1s + Digits(decimals, 0, 3).value_or(0) * 1ms;
}

/// With as many decimals as there were.
std::string TimeOfDayText(milliseconds time, const std::string& former)
{
    const std::chrono::hh_mm_ss<milliseconds> clock(time);
    char text[32];
    std::snprintf(text, sizeof(text), "%02d%02d%02d.%03d000000", static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                  static_cast<int>(clock.subseconds().count()));
    return std::string(text).substr(0, former.size());
}

/// "ddmmyy"
std::optional<std::chrono::sys_days> Date(const std::string& text)
{
    constexpr int FIRST_YEAR = 80; // GPS began in 1980
    const auto day = Digits(text, 0, 2);
    const auto month = Digits(text, 2, 2);
    const auto year = Digits(text, 4, 2);
    if (!day || !month || !year)
    {
        return std::nullopt;
    }
    const std::chrono::year_month_day date(std::chrono::year(*year + (*year < FIRST_YEAR ? 2000 : 1900)),
                                           std::chrono::month(static_cast<unsigned int>(*month)),
                                           std::chrono::day(static_cast<unsigned int>(*day)));
    return date.ok() ? std::optional(std::chrono::sys_days(date)) : std::nullopt;
}

std::string DateText(const std::chrono::year_month_day& date)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%02u%02u%02d", static_cast<unsigned int>(date.day()),
                  static_cast<unsigned int>(date.month()), static_cast<int>(date.year()) % 100);
    return text;
}

/// Which field is the time of day; 0: none.
std::size_t TimeField(const std::string& type)
{
    constexpr std::string_view FIRST_FIELD[] = {"RMC", "GGA", "GNS", "GST", "GBS", "ZDA", "GRS"};
    return type == "GLL" ? 5 : std::ranges::find(FIRST_FIELD, type) != std::end(FIRST_FIELD) ? 1 : 0;
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

std::optional<Moment> TimeOf(const Epoch& epoch)
{
    const auto rmc = std::ranges::find_if(epoch, IsRmc);
    if (rmc == epoch.end())
    {
        return std::nullopt;
    }
    const Fields fields(*rmc);
    const std::optional<milliseconds> time = TimeOfDay(fields.At(1));
    return time ? std::optional(Date(fields.At(9)).value_or(std::chrono::sys_days()) + *time) : std::nullopt;
}

std::string Later(const std::string& sentence, milliseconds time)
{
    Fields fields(sentence);
    const std::string type = fields.Type();
    const std::size_t timeField = TimeField(type);
    const std::optional<milliseconds> timeOfDay = TimeOfDay(fields.At(timeField));
    if (timeField == 0 || !timeOfDay)
    {
        return sentence;
    }
    const std::optional<std::chrono::sys_days> rmcDate =
        type == "RMC" ? Date(fields.At(9)) : std::optional<std::chrono::sys_days>();
    const Moment moved = rmcDate.value_or(std::chrono::sys_days()) + *timeOfDay + time;
    const auto day = std::chrono::floor<std::chrono::days>(moved);
    fields.Set(timeField, TimeOfDayText(moved - day, fields.At(timeField)));
    if (rmcDate)
    {
        fields.Set(9, DateText(day));
    }
    const auto zdaDay = Digits(fields.At(2), 0, 2);
    const auto zdaMonth = Digits(fields.At(3), 0, 2);
    const auto zdaYear = Digits(fields.At(4), 0, 4);
    if (type == "ZDA" && zdaDay && zdaMonth && zdaYear)
    {
        const std::chrono::sys_days former = std::chrono::year(*zdaYear) /
                                             std::chrono::month(static_cast<unsigned int>(*zdaMonth)) /
                                             std::chrono::day(static_cast<unsigned int>(*zdaDay));
        const std::chrono::year_month_day date(
            std::chrono::floor<std::chrono::days>(former + *timeOfDay + time));
        const std::string text = DateText(date);
        fields.Set(2, text.substr(0, 2));
        fields.Set(3, text.substr(2, 2));
        fields.Set(4, std::to_string(static_cast<int>(date.year())));
    }
    return fields.Text();
}

std::string WithoutFix(const std::string& sentence)
{
    constexpr const char* NO_PRECISION = "99.99";
    Fields fields(sentence);
    const std::string type = fields.Type();
    if (type == "RMC")
    {
        fields.Set(2, "V");
        fields.Clear(3, 6);
        fields.Set(7, "0.00");
        fields.Set(8, "0.00");
        fields.Set(12, "N");
    }
    else if (type == "VTG")
    {
        fields.Set(1, "0.00");
        fields.Clear(3, 3);
        fields.Set(5, "0.00");
        fields.Set(7, "0.00");
        fields.Set(9, "N");
    }
    else if (type == "GGA" || type == "GNS")
    {
        fields.Clear(2, 5);
        fields.Set(6, type == "GGA" ? "0" : std::string(fields.At(6).size(), 'N'));
        fields.Set(7, "00");
        fields.Set(8, NO_PRECISION);
        fields.Clear(9, 9);
        fields.Clear(type == "GGA" ? 11 : 10, type == "GGA" ? 11 : 10);
    }
    else if (type == "GLL")
    {
        fields.Clear(1, 4);
        fields.Set(6, "V");
        fields.Set(7, "N");
    }
    else if (type == "GSA")
    {
        fields.Set(2, "1");
        fields.Clear(3, 14);
        for (const std::size_t precision : {15, 16, 17})
        {
            fields.Set(precision, NO_PRECISION);
        }
    }
    else if (type == "GSV")
    {
        for (std::size_t signal = 7; signal < fields.Count(); signal += 4)
        {
            fields.Clear(signal, signal);
        }
    }
    else
    {
        return sentence;
    }
    return fields.Text();
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
