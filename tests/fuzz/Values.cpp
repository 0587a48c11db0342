// What a user writes as a number, a time, a key: each reader refuses it, or gives what it promises.

#include "virtual-unit/unit/Values.h"

#include "tests/fuzz/Target.h"
#include "virtual-unit/script/Step.h"
#include "virtual-unit/unit/UnitOptions.h"

#include <chrono>
#include <climits>
#include <string>

namespace
{

template <class Read>
void TryValue(Read read)
{
    try
    {
        read();
    }
    catch (const VirtualUnit::Values::Wrong&)
    {
    }
}

}

FUZZ_TARGET(Values)
{
    using namespace VirtualUnit;
    using namespace std::chrono_literals;
    const std::string text(input);
    TryValue([&] {
        const std::chrono::milliseconds time = Values::Seconds(text);
        FUZZ_REQUIRE(time >= 0ms && time <= 24h);
        FUZZ_REQUIRE(Values::Seconds(Values::SecondsText(time)) == time);
    });
    TryValue([&] {
        const unsigned int number = Values::Number(text, 3, 99);
        FUZZ_REQUIRE(number >= 3 && number <= 99);
    });
    TryValue([&] {
        const double number = Values::Real(text, -90, 90);
        FUZZ_REQUIRE(number >= -90 && number <= 90);
        FUZZ_REQUIRE(text.find_first_of("+-", 1) == std::string::npos ||
                     text.find_first_of("eE") != std::string::npos);
    });
    TryValue([&] {
        const auto moment = Values::Moment(text);
        FUZZ_REQUIRE(moment > std::chrono::sys_days(std::chrono::year(-1000) / 1 / 1));
        FUZZ_REQUIRE(moment < std::chrono::sys_days(std::chrono::year(10001) / 1 / 1));
    });
    TryValue([&] {
        const std::string key = Values::Key(text);
        FUZZ_REQUIRE(key.empty() || key.size() == 12);
    });
    TryValue([&] {
        const int signal = Values::Signal(text);
        FUZZ_REQUIRE((signal >= 0 && signal <= 31) || signal == 99);
    });
    TryValue([&] { Values::Registration(text); });
    TryValue([&] {
        const Step step = Step::Parse(text);
        FUZZ_REQUIRE(Step::Parse(step.Words()).Words() == step.Words());
    });
    TryValue([&] {
        const std::size_t blank = text.find(' ');
        UnitOptions options;
        options.Take(text.substr(0, blank), blank == std::string::npos ? "" : text.substr(blank + 1));
        FUZZ_REQUIRE(UnitOptions::Has(text.substr(0, blank)));
    });
}
