#include "GpsDevice/GpsDevice.h"
#include "tests/GpsDevice/GpsTest.h"
#include "tests/kit/Peer.h"
#include "tests/sweep/Operation.h"

#include <string>

namespace
{

using namespace std::chrono_literals;
using GpsTests::GpsDevice;
using Sweep::Text;

constexpr const char* SENTENCE = "$GPRMC,081500.00,A,4725.95,N,02335.02,E,0.0,0.0,010326,,,A*63\r\n";

struct Gps
{
    explicit Gps(bool prepared = true)
    {
        if (prepared)
        {
            Prepare();
        }
    }

    ~Gps() { device.RunAfter(); }

    Gps(const Gps&) = delete;
    Gps& operator=(const Gps&) = delete;

    void Prepare()
    {
        GpsDevice::IThreadDelegate* delegate = &receiver;
        device.Prepare(delegate);
    }

    Kit::Terminal line{GpsTests::DEVICE};
    GpsTests::Receiver receiver;
    GpsDevice device;
};

SWEEP(GpsDevice, Prepare)
{
    Gps gps(false);
    Sweep::Try([&] {
        gps.Prepare();
        return Text(gps.device.HasError());
    });
}

SWEEP(GpsDevice, Run)
{
    Gps gps;
    gps.line.Send(SENTENCE);
    Sweep::Try([&] {
        gps.device.Run();
        return Text(static_cast<int>(gps.receiver.Count()));
    });
}

SWEEP(GpsDevice, RunBefore)
{
    Gps gps;
    Sweep::Try([&] { return Text(gps.device.RunBefore()); });
}

SWEEP(GpsDevice, RunAfter)
{
    Gps gps;
    Sweep::Try([&] {
        gps.device.RunAfter();
        return std::string("done");
    });
}

SWEEP(GpsDevice, FindDeviceType)
{
    Gps gps;
    gps.line.Send("$GPRMC\r\n");
    Sweep::Try([&] {
        gps.device.FindDeviceType();
        return Text(static_cast<int>(gps.device.GetModule()));
    });
}

SWEEP(GpsDevice, FindDeviceReset)
{
    Gps gps;
    Sweep::Try([&] {
        gps.device.FindDeviceReset();
        return std::string("done");
    });
}

SWEEP(GpsDevice, CheckL26Gps)
{
    Gps gps;
    gps.line.Send("$GPRMC\r\n");
    Sweep::Try([&] { return Text(gps.device.CheckL26Gps()); });
}

/// The thread and all.
SWEEP(GpsDevice, Start)
{
    Gps gps;
    Sweep::Try([&] {
        const bool started = gps.device.Start();
        gps.device.Stop();
        return Text(started);
    });
}

}
