// What the cellular module replies to each query: a value in its range, a reason, or the exceptions that are
// told.

#include "Modem/Replies.h"

#include "tests/fuzz/Target.h"

#include <algorithm>
#include <iterator>
#include <list>
#include <stdexcept>
#include <string>

namespace
{

namespace Replies = Tavdevice::Modem::Replies;

enum Thrown : unsigned int
{
    NOTHING = 0,
    INVALID = 1,
    RANGE = 2
};

/// @param read gives a Reading @param check what a value must hold @param allowed exceptions
template <class Read, class Check>
void TryReply(Read read, unsigned int allowed, Check check)
{
    try
    {
        const auto reading = read();
        FUZZ_REQUIRE(reading.value.has_value() == reading.reason.empty());
        FUZZ_REQUIRE(!reading.value || check(*reading.value));
    }
    catch (const std::invalid_argument&)
    {
        FUZZ_REQUIRE((allowed & INVALID) != 0);
    }
    catch (const std::out_of_range&)
    {
        FUZZ_REQUIRE((allowed & RANGE) != 0);
    }
}

}

FUZZ_TARGET(Replies)
{
    const std::string reply(input);
    const auto part = [&reply](const std::string& text) { return reply.find(text) != std::string::npos; };
    const auto fifteen = [](const std::string& text) {
        return text.size() == 15 && text.find_first_of("\r\n") == std::string::npos;
    };
    const auto any = [](int) { return true; };

    TryReply([&] { return Replies::Imei(reply); }, RANGE, fifteen);
    TryReply([&] { return Replies::Imsi(reply); }, RANGE, fifteen);
    TryReply(
        [&] { return Replies::Iccid(reply); }, RANGE,
        [&part](const std::string& text) { return text.size() >= 7 && text.size() <= 20 && part(text); });
    TryReply([&] { return Replies::FirmwareRevision(reply); }, RANGE, part);
    TryReply([&] { return Replies::Voltage(reply); }, RANGE, any);
    TryReply([&] { return Replies::SignalQuality(reply); }, INVALID | RANGE, any);
    TryReply([&] { return Replies::RegistrationState(reply); }, INVALID,
             [](int state) { return state >= 0 && state <= 9; });
    TryReply([&] { return Replies::CarrierName(reply); }, NOTHING,
             [](const std::string& text) { return text.find('"') == std::string::npos; });

    std::list<Tavdevice::Modem::Operator> list(1);
    TryReply([&] { return Replies::Operators(reply, list); }, INVALID | RANGE,
             [&](std::size_t count) { return count == list.size() - 1; });
    FUZZ_REQUIRE(std::all_of(std::next(list.begin()), list.end(), [&part](const auto& found) {
        return part(found.longName) && part(found.shortName) && part(found.numeric);
    }));
}
