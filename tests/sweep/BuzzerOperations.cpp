#include "Sensors/Buzzer/BuzzerSerial.h"
#include "tests/Sensors/BuzzerTest.h"
#include "tests/sweep/Operation.h"

#include <string>

namespace
{

using namespace std::chrono_literals;
using SensorTests::Board;
using Sweep::Text;
using Tavdevice::Alerter;
using Tavdevice::BuzzerSerial;

struct Buzzer
{
    explicit Buzzer(bool opened = true)
    {
        Alerter::isPresent = false;
        if (opened)
        {
            board.AnswerAt(30ms);
            buzzer.Open();
        }
    }

    ~Buzzer()
    {
        Alerter::isPresent = true; // else a port that is open stays so
        buzzer.Close();
        Alerter::isPresent = false;
    }

    Buzzer(const Buzzer&) = delete;
    Buzzer& operator=(const Buzzer&) = delete;

    Board board;
    BuzzerSerial buzzer;
};

SWEEP(BuzzerSerial, Open)
{
    Buzzer made(false);
    made.board.AnswerAt(30ms);
    Sweep::Try([&] { return Text(made.buzzer.Open()); });
}

SWEEP(BuzzerSerial, Close)
{
    Buzzer made;
    Sweep::Try([&] { return Text(made.buzzer.Close()); });
}

SWEEP(BuzzerSerial, CheckPresence)
{
    Buzzer made(false);
    made.board.AnswerAt(30ms);
    Sweep::Try([&] { return Text(made.buzzer.CheckPresence()); });
}

SWEEP(BuzzerSerial, Alert)
{
    Buzzer made(false);
    made.board.AnswerAt(30ms);
    Sweep::Try([&] { return Text(made.buzzer.Alert()); });
}

}
