// Recorded NMEA text: cut into seconds, moved in time, robbed of its fix.

#include "virtual-unit/peripherals/Nmea.h"

#include "tests/fuzz/Target.h"

#include <chrono>
#include <string>

namespace
{

using namespace VirtualUnit;

bool IsRmc(const std::string& sentence)
{
    return sentence.size() > 6 && sentence.substr(3, 3) == "RMC";
}

/// Sentences keep their line end, and a right check sum stays right.
void RequireKept(const std::string& before, const std::string& after)
{
    FUZZ_REQUIRE(Nmea::Body(before).empty() || !Nmea::Body(after).empty());
    FUZZ_REQUIRE(after.starts_with('$') && after.ends_with("\r\n"));
}

}

FUZZ_TARGET(Nmea)
{
    using namespace std::chrono_literals;
    static_cast<void>(Nmea::Body(input));
    for (const auto position : {Nmea::RmcPosition::First, Nmea::RmcPosition::Last})
    {
        std::string all;
        for (const Nmea::Epoch& epoch : Nmea::Epochs(input, position))
        {
            FUZZ_REQUIRE(!epoch.empty());
            int rmc = 0;
            for (const std::string& sentence : epoch)
            {
                rmc += IsRmc(sentence) ? 1 : 0;
                FUZZ_REQUIRE(sentence.starts_with('$') && sentence.ends_with("\r\n"));
                for (const auto time : {0ms, 1ms, 999ms, 86'400'000ms, 40'000'000'000ms})
                {
                    RequireKept(sentence, Nmea::Later(sentence, time));
                }
                RequireKept(sentence, Nmea::WithoutFix(sentence));
                all += sentence;
            }
            if (const auto time = Nmea::TimeOf(epoch))
            {
                const auto year =
                    std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(*time)).year();
                FUZZ_REQUIRE(static_cast<int>(year) >= 1970 && static_cast<int>(year) < 2100);
            }
        }
        // What was cut is cut again in the same way.
        std::string again;
        for (const Nmea::Epoch& epoch : Nmea::Epochs(all, position))
        {
            for (const std::string& sentence : epoch)
            {
                again += sentence;
            }
        }
        FUZZ_REQUIRE(again == all);
    }
}
