#include "Serial/Serial.h"
#include "base/Tavbase/TavubufferDynamic.h"
#include "tests/kit/Terminal.h"
#include "tests/sweep/Operation.h"

#include <chrono>
#include <string>
#include <termios.h>

namespace
{

using Sweep::Text;
using Tavdevice::SerialPort::Serial;

constexpr const char* DEVICE = "/dev/ttymxc1";

/// A port with lines waiting in it.
struct Surroundings
{
    explicit Surroundings(bool opened = true)
    {
        if (opened)
        {
            port.Open();
            line.Send("first\nsecond\n");
        }
    }

    ~Surroundings() { port.Close(); }

    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    Kit::Terminal line{DEVICE};
    Serial port{DEVICE, B9600};
};

SWEEP(Serial, Open)
{
    Surroundings made(false);
    Sweep::Try([&] { return Text(made.port.Open()); });
}

SWEEP(Serial, OpenRaw)
{
    Surroundings made(false);
    made.port.mode = 1;
    Sweep::Try([&] { return Text(made.port.Open()); });
}

SWEEP(Serial, Close)
{
    Surroundings made;
    Sweep::Try([&] { return Text(made.port.Close()); });
}

SWEEP(Serial, CloseWithoutWaiting)
{
    Surroundings made;
    Sweep::Try([&] { return Text(made.port.CloseWithoutWaiting()); });
}

SWEEP(Serial, Send)
{
    Surroundings made;
    unsigned char bytes[] = {'t', 'e', 'x', 't'};
    Sweep::Try([&] { return Text(made.port.Send(bytes, sizeof bytes)); });
}

SWEEP(Serial, ReadText)
{
    Surroundings made;
    std::string text;
    Sweep::Try([&] { return Text(made.port.Read(text)) + " \"" + text + "\""; });
}

SWEEP(Serial, ReadBuffer)
{
    Surroundings made;
    TavubufferDynamic buffer(64);
    Sweep::Try([&] { return Text(made.port.Read(buffer, 1)) + " " + Text(static_cast<int>(buffer.length)); });
}

SWEEP(Serial, ReadLoop)
{
    Surroundings made;
    char c = '?';
    Sweep::Try([&] { return Text(made.port.ReadLoop(&c)) + " " + c; });
}

SWEEP(Serial, Drain)
{
    Surroundings made;
    Sweep::Try([&] { return Text(made.port.Drain()); });
}

SWEEP(Serial, Flush)
{
    Surroundings made;
    Sweep::Try([&] {
        made.port.Flush();
        return std::string("done");
    });
}

SWEEP(Serial, AwaitOutput)
{
    Surroundings made;
    Sweep::Try([&] { return Text(made.port.AwaitOutput(std::chrono::milliseconds(100))); });
}

}
