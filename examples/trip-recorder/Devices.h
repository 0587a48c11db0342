#ifndef EXAMPLES_TRIP_RECORDER_DEVICES_H
#define EXAMPLES_TRIP_RECORDER_DEVICES_H

#include "AccDevice/AccDevice.h"
#include "DriverId/DriverId.h"
#include "GpsDevice/GpsDevice.h"
#include "base/Tavbase/TavubufferDynamic.h"
#include "examples/common/Mailbox.h"
#include "examples/common/Nmea.h"
#include "examples/common/Sample.h"

#include <chrono>
#include <string>
#include <vector>

/// What the devices tell, each on a thread of its own, which puts it into a mailbox and goes on.
namespace TripRecorder
{

/// The GPS receiver: each block that tells of a fix, or of none.
class Positions : public Tavbase::Interfaces::IThread::IThreadDelegate
{
public:
    Examples::Mailbox<Examples::Block> blocks;

    bool Start()
    {
        IThreadDelegate* delegate = this;
        device.Prepare(delegate);
        return !device.HasError() && device.Start();
    }

    void ThreadCallback(void* value) override
    {
        if (Examples::Block block = Examples::ParseBlock(static_cast<const char*>(value)); block.hasRmc)
        {
            blocks.Put(std::move(block));
        }
    }

private:
    Tavdevice::GpsDevice::GpsDevice device; // last, so that its thread ends first
};

/// The accelerometer, mounted with its X axis ahead: each harsh braking when it begins, in g.
class Brakings : public Tavbase::Interfaces::IThread::IThreadDelegate
{
public:
    Examples::Mailbox<double> harsh;

    bool Start()
    {
        IThreadDelegate* delegate = this;
        return device.Prepare(delegate) && device.Start();
    }

    void ThreadCallback(void* value) override
    {
        // The mean of a batch, a fifth of a second: for shorter the road shakes more than that.
        const std::vector<Examples::Sample> samples =
            Examples::Sample::Of(*static_cast<const TavubufferDynamic*>(value), SCALE);
        double g = 0;
        for (const Examples::Sample& sample : samples)
        {
            g -= sample.x / static_cast<double>(samples.size());
        }
        if (!braking && g > HARSH_G)
        {
            harsh.Put(g);
        }
        braking = g > (braking ? OVER_G : HARSH_G);
    }

private:
    using AccDevice = Tavdevice::ACC::AccDevice;

    static constexpr AccDevice::GForceScale SCALE = AccDevice::GForceScale::Two;
    static constexpr double HARSH_G = 0.4;
    static constexpr double OVER_G = 0.2;

    bool braking = false;
    AccDevice device{1, 0x1C, SCALE, AccDevice::ODR::Hz50};
};

/// The driver-ID reader: each key that the one before it was not.
class Drivers : public Tavbase::Interfaces::IThread
{
public:
    Examples::Mailbox<std::string> ids;

    Drivers() { name = "DRIVERS"; }

    ~Drivers() override { Stop(); }

    void Run() override
    {
        std::string id;
        ready = ready || reader.Init();
        if (ready && reader.RequestDriverId(id) && !id.empty())
        {
            reader.RequestDriverIdReset(); // it tells a key that was taken away until then
            if (id != latest)
            {
                ids.Put(latest = id);
            }
        }
        ThreadSleep(BETWEEN_REQUESTS, {});
    }

private:
    static constexpr std::chrono::milliseconds BETWEEN_REQUESTS{500};

    TavDevice::DriverId reader;
    bool ready = false;
    std::string latest;
};

}

#endif
