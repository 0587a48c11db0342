#include "DriverId/DriverId.h"
#include "tests/DriverId/DriverIdTest.h"
#include "tests/SerialProtocol/Frames.h"
#include "tests/SerialProtocol/Peripheral.h"
#include "tests/kit/Peer.h"
#include "tests/sweep/Operation.h"

#include <string>

namespace
{

using namespace std::chrono_literals;
using DriverIdTests::ACKNOWLEDGE;
using Sweep::Text;
using TavDevice::DriverId;

/// A reader that acknowledges what is asked of it in the first two seconds.
struct Reader
{
    explicit Reader(bool found = true)
    {
        if (found)
        {
            const Kit::Peer peer(line, {{50ms, ACKNOWLEDGE}, {150ms, ACKNOWLEDGE}});
            reader.Init();
        }
    }

    ~Reader() { reader.Dispose(); }

    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    DriverIdTests::Card card;
    Kit::Terminal line{DriverIdTests::DEVICE};
    DriverId reader;
};

SWEEP(DriverId, Init)
{
    Reader made(false);
    const Kit::Peer peer(made.line, {{50ms, ACKNOWLEDGE}, {150ms, ACKNOWLEDGE}});
    Sweep::Try([&] { return Text(made.reader.Init()); });
}

SWEEP(DriverId, CheckDevicePresence)
{
    Reader made;
    const Kit::Peer peer(made.line, {{50ms, ACKNOWLEDGE}});
    Sweep::Try([&] { return Text(made.reader.CheckDevicePresence()); });
}

SWEEP(DriverId, StartAnnoying)
{
    Reader made;
    const Kit::Peer peer(made.line, {{50ms, ACKNOWLEDGE}});
    Sweep::Try([&] { return Text(made.reader.StartAnnoying()); });
}

SWEEP(DriverId, RequestDriverId)
{
    Reader made;
    const Kit::Peer peer(made.line, {{50ms, Frames::Short(0x05)}});
    std::string id = "before";
    Sweep::Try([&] { return Text(made.reader.RequestDriverId(id)) + " " + id; });
}

SWEEP(DriverId, RequestDriverIdReset)
{
    Reader made;
    const Kit::Peer peer(made.line, {{50ms, ACKNOWLEDGE}});
    Sweep::Try([&] { return Text(made.reader.RequestDriverIdReset()); });
}

SWEEP(DriverId, Dispose)
{
    Reader made;
    Sweep::Try([&] {
        made.reader.Dispose();
        return std::string("done");
    });
}

SWEEP(DriverId, SaveToFile)
{
    Reader made;
    std::string id = "0123456789AB";
    Sweep::Try([&] {
        made.reader.SaveToFile(id);
        return std::string("done");
    });
}

SWEEP(DriverId, LoadFromFile)
{
    Reader made;
    std::string id = "0123456789AB";
    made.reader.SaveToFile(id);
    id = "before";
    Sweep::Try([&] { return Text(made.reader.LoadFromFile(id)) + " " + id; });
}

SWEEP(DriverId, RemoveFile)
{
    Reader made;
    std::string id = "0123456789AB";
    made.reader.SaveToFile(id);
    Sweep::Try([&] {
        made.reader.RemoveFile();
        return std::string("done");
    });
}

SWEEP(DriverId, Constructor)
{
    const DriverIdTests::Card card;
    Sweep::Try([] {
        const DriverId reader;
        return std::string("done");
    });
}

/// The protocol without a port behind it, which alone could fail in the system.
SWEEP(ISerialComm, SendCmdMsg)
{
    SerialProtocolTests::Peripheral peripheral;
    Sweep::Try([&] { return Text(peripheral.SendCmdMsg(0)); });
}

SWEEP(ISerialComm, ReadCmdMsg)
{
    SerialProtocolTests::Peripheral peripheral;
    peripheral.Hear(Frames::Short(0));
    Sweep::Try([&] { return Text(peripheral.ReadCmdMsg(10)); });
}

SWEEP(ISerialComm, ParseRcvMsg)
{
    SerialProtocolTests::Peripheral peripheral;
    peripheral.Hear(Frames::Short(0));
    peripheral.ReadCmdMsg(10);
    Sweep::Try([&] { return Text(peripheral.ParseRcvMsg(nullptr)); });
}

}
