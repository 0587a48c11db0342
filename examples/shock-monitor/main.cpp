// shock-monitor: an application of the device library that shows what the accelerometer measures after a
// shock.

#include "AccDevice/AccDevice.h"
#include "base/Tavbase/TavubufferDynamic.h"
#include "examples/common/EndingSignals.h"
#include "examples/common/Options.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

namespace
{

using Tavbase::Interfaces::IThread;
using Tavdevice::ACC::AccDevice;

constexpr const char* USAGE =
    "usage: shock-monitor [--seconds N] [--log FILE]\n"
    "\n"
    "Shows each batch of samples that the accelerometer on /dev/i2c-1 delivers, as bytes and in g.\n"
    "\n"
    "  --seconds N  end after N seconds\n"
    "  --log FILE   append the device library's log to FILE\n"
    "\n"
    "Exit status: 0 when a batch was received, 1 when not, 2 for a wrong command line.\n";

constexpr int NOTHING_RECEIVED = 1;

constexpr unsigned char ADAPTER = 1;
constexpr unsigned char ADDRESS = 0x1C;
constexpr AccDevice::GForceScale SCALE = AccDevice::GForceScale::Eight;

constexpr std::size_t AXES = 3;

/// A sample of 8 bits in two's complement, in g.
double InG(unsigned char sample)
{
    constexpr double STEPS = 128; // from zero to the full scale
    return static_cast<std::int8_t>(sample) * static_cast<double>(SCALE) / STEPS;
}

class Receiver : public IThread::IThreadDelegate
{
public:
    void ThreadCallback(void* value) override // on the accelerometer's thread
    {
        const auto& batch = *static_cast<const TavubufferDynamic*>(value);
        const std::span bytes(batch.data, static_cast<std::size_t>(batch.length));
        std::printf("batch %u, %zu bytes:", ++batches, bytes.size());
        for (const unsigned char byte : bytes)
        {
            std::printf(" %02X", byte);
        }
        std::printf("\n");
        for (std::size_t i = 0; i + AXES <= bytes.size(); i += AXES)
        {
            const double x = InG(bytes[i]);
            const double y = InG(bytes[i + 1]);
            const double z = InG(bytes[i + 2]);
            const double magnitude = std::sqrt(x * x + y * y + z * z);
            strongest = std::max(strongest, magnitude);
            std::printf("  x %6.2f g   y %6.2f g   z %6.2f g   |a| %5.2f g\n", x, y, z, magnitude);
        }
    }

    unsigned int Batches() const { return batches; }

    double Strongest() const { return strongest; } ///< in g; once the thread has ended

private:
    std::atomic<unsigned int> batches{0};
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
        return NOTHING_RECEIVED;
    }
    if (!accelerometer.Start())
    {
        std::fprintf(stderr, "the accelerometer's thread could not be started\n");
        return NOTHING_RECEIVED;
    }
    std::printf("The accelerometer waits for a shock.\n");
    endingSignals.Await(options.seconds);
    accelerometer.Stop();

    std::printf("batches %u, strongest %.2f g\n", receiver.Batches(), receiver.Strongest());
    return receiver.Batches() > 0 ? EXIT_SUCCESS : NOTHING_RECEIVED;
}
