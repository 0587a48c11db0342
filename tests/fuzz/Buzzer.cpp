// The buzzer board's replies: the parts of a text, and a board that says anything before it answers.

#include "Sensors/Alerter.h"
#include "Sensors/Buzzer/BuzzerSerial.h"
#include "tests/fuzz/Target.h"
#include "tests/kit/Clock.h"
#include "tests/kit/Peer.h"
#include "tests/kit/Terminal.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>

FUZZ_TARGET(Buzzer)
{
    using namespace std::chrono_literals;
    Fuzz::Input rest(input);
    const bool onTheLine = rest.Byte() == 'L';
    std::string text(rest.Rest());
    {
        Tavdevice::BuzzerSerial buzzer;
        const std::string before = text;
        FUZZ_REQUIRE(text.find(buzzer.UnpackOutput(text)) != std::string::npos);
        const std::string last = buzzer.SplitLastLine(text);
        FUZZ_REQUIRE(last.find('\n') == std::string::npos);
        FUZZ_REQUIRE(text.ends_with(last) || text.ends_with(last + "\n"));
        FUZZ_REQUIRE(text == before);

        const std::string output(text.substr(0, text.find("OMSG")));
        std::string reply = "OMSGS " + output + " OMSGE\r\n";
        FUZZ_REQUIRE(buzzer.UnpackOutput(reply) == output);
    }
    if (onTheLine)
    {
        const Kit::Clock clock;
        Kit::Terminal line("/dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port0");
        text.resize(std::min<std::size_t>(text.size(), 1000)); // what a line holds that nobody reads
        Tavdevice::BuzzerSerial buzzer;
        const Kit::Peer board(line,
                              {{30ms, text}, {60ms, "\r\nOMSGS ready OMSGE\r\n"}, {90ms, "\r\nOMSGE\r\n"}});
        FUZZ_REQUIRE(buzzer.Open());
        FUZZ_REQUIRE(buzzer.Close());
        Tavdevice::Alerter::isPresent = false;
    }
}
