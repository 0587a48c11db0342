#ifndef TESTS_SENSORS_BUZZERTEST_H
#define TESTS_SENSORS_BUZZERTEST_H

#include "Sensors/Alerter.h"
#include "Sensors/Buzzer/BuzzerSerial.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Peer.h"
#include "tests/kit/Terminal.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace SensorTests
{

using namespace std::chrono_literals;
using Tavdevice::Alerter;
using Tavdevice::BuzzerSerial;
using Texts = std::vector<std::string>;

inline constexpr const char* BOARD = "/dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port0";
inline constexpr const char* RESET = "\x02\x03\x02\x03\x04\x04\x02\x02\x03\x03\x03";
inline constexpr const char* PRESENCE = "\r\nbuzzer.processCMD(\"ICMDS:0:ICMDE\")\r\n";
inline constexpr const char* STX = "\x02";

inline const std::string FOUND = std::string("FOUND BUZZER PORT AT: ") + BOARD;
inline const std::string TRYING = std::string("[SERIAL] Try to open device ") + BOARD;
inline constexpr const char* FLASHED = "[SERIAL] Serial port flashed";
inline constexpr const char* ABSENT = "NO BUZZER CONNECTED TO SERIAL PORT";

/// The board at the other end of its line. It is asked 10 ms after the opening, and read from 20 ms on.
class Board
{
public:
    void AnswerAt(std::chrono::milliseconds time, const std::string& reply = "OMSGS ready OMSGE\r\n")
    {
        answers.push_back(std::make_unique<Kit::Peer>(line, Kit::Peer::Script{{time, reply}}));
    }

    std::string Received() { return line.Received(); }

    Kit::Terminal line{BOARD};

private:
    std::vector<std::unique_ptr<Kit::Peer>> answers;
};

/// With no alert device present.
class SensorTest : public Kit::DeviceTest
{
protected:
    SensorTest() { Alerter::isPresent = false; }

    ~SensorTest() override { Alerter::isPresent = false; }

    static std::size_t Count(const char* function) { return Kit::System::CallsOf(function).size(); }
};

class BuzzerTest : public SensorTest
{
protected:
    /// Opens the board, which answers; what that did is not looked at any more.
    void Open()
    {
        board.AnswerAt(30ms);
        ASSERT_TRUE(buzzer.Open());
        board.Received();
        Kit::System::ForgetCalls();
    }

    Board board;
    BuzzerSerial buzzer;
};

}

#endif
