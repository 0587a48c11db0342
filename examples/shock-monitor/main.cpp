// shock-monitor: an application of the device library that shows what the accelerometer measures after a
// shock.

#include "AccDevice/AccDevice.h"
#include "base/Tavbase/TavubufferDynamic.h"
#include "examples/common/EndingSignals.h"
#include "examples/common/Options.h"
#include "examples/common/Sample.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <vector>

namespace
{

using Examples::Sample;
using Tavbase::Interfaces::IThread;
using Tavdevice::ACC::AccDevice;

constexpr const char* USAGE =
    "usage: shock-monitor [--seconds N] [--log FILE]\n"
    "\n"
    "Shows each batch of samples from the accelerometer on /dev/i2c-1 that holds a shock (more than 2 g), as "
    "bytes\n"
    "and in g.\n"
    "\n"
    "  --seconds N  end after N seconds\n"
    "  --log FILE   append the device library's log to FILE\n"
    "\n"
    "Exit status: 0 when there was a shock, 1 when not, 2 for a wrong command line.\n";

constexpr int NO_SHOCK = 1;

constexpr unsigned char ADAPTER = 1;
constexpr unsigned char ADDRESS = 0x1C;
constexpr AccDevice::GForceScale SCALE = AccDevice::GForceScale::Eight;

constexpr double SHOCK_G = 2.0;

class Receiver : public IThread::IThreadDelegate
{
public:
    void ThreadCallback(void* value) override // on the accelerometer's thread
    {
        const auto& batch = *static_cast<const TavubufferDynamic*>(value);
        const std::span<const unsigned char> bytes(batch.data, static_cast<std::size_t>(batch.length));
        ++batches;
        const std::vector<Sample> samples = Sample::Of(batch, SCALE);
        double magnitude = 0;
        for (const Sample& sample : samples)
        {
            magnitude = std::max(magnitude, sample.Magnitude());
        }
        strongest = std::max(strongest, magnitude);
        if (magnitude > SHOCK_G)
        {
            ++shocks;
            Show(bytes, samples);
        }
    }

    // Once the thread has ended.

    unsigned int Batches() const { return batches; }

    unsigned int Shocks() const { return shocks; }

    double Strongest() const { return strongest; } ///< in g

private:
    void Show(std::span<const unsigned char> bytes, const std::vector<Sample>& samples) const
    {
        std::printf("batch %u, %zu bytes:", batches, bytes.size());
        for (const unsigned char byte : bytes)
        {
            std::printf(" %02X", byte);
        }
        std::printf("\n");
        for (const Sample& sample : samples)
        {
            std::printf("  x %6.2f g   y %6.2f g   z %6.2f g   |a| %5.2f g\n", sample.x, sample.y, sample.z,
                        sample.Magnitude());
        }
    }

    unsigned int batches = 0;
    unsigned int shocks = 0; ///< batches that hold one
    double strongest = 0;
};

}

int main(int argc, char** argv)
{
    const Examples::Options options = Examples::Options::ParseOrExit(argc, argv, USAGE);
    const Examples::EndingSignals endingSignals;
    options.SetUpLog();
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    Receiver receiver;
    IThread::IThreadDelegate* delegate = &receiver;
    AccDevice accelerometer(ADAPTER, ADDRESS, SCALE, AccDevice::ODR::Hz50);
    if (!accelerometer.Prepare(delegate))
    {
        std::fprintf(stderr, "no accelerometer: %s\n", accelerometer.GetErrorMessage().c_str());
        return NO_SHOCK;
    }
    if (!accelerometer.Start())
    {
        std::fprintf(stderr, "the accelerometer's thread could not be started\n");
        return NO_SHOCK;
    }
    std::printf("The accelerometer waits for a shock.\n");
    endingSignals.Await(options.seconds);
    accelerometer.Stop();

    std::printf("batches %u, with a shock %u, strongest %.2f g\n", receiver.Batches(), receiver.Shocks(),
                receiver.Strongest());
    return receiver.Shocks() > 0 ? EXIT_SUCCESS : NO_SHOCK;
}
