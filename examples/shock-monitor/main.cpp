// shock-monitor: an application of the device library that shows what the accelerometer measures after a
// shock.

#include "AccDevice/AccDevice.h"
#include "base/Tavbase/TavubufferDynamic.h"
#include "examples/common/EndingSignals.h"
#include "examples/common/Options.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <vector>

namespace
{

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

constexpr std::size_t AXES = 3;
constexpr double SHOCK_G = 2.0;

/// A sample of 8 bits in two's complement, in g.
double InG(unsigned char sample)
{
    constexpr double STEPS = 128; // from zero to the full scale
    return static_cast<std::int8_t>(sample) * static_cast<double>(SCALE) / STEPS;
}

struct Sample
{
    explicit Sample(std::span<const unsigned char, AXES> bytes)
        : x(InG(bytes[0])), y(InG(bytes[1])), z(InG(bytes[2]))
    {
    }

    double Magnitude() const { return std::sqrt(x * x + y * y + z * z); }

    double x, y, z; ///< in g
};

class Receiver : public IThread::IThreadDelegate
{
public:
    void ThreadCallback(void* value) override // on the accelerometer's thread
    {
        const auto& batch = *static_cast<const TavubufferDynamic*>(value);
        const std::span<const unsigned char> bytes(batch.data, static_cast<std::size_t>(batch.length));
        ++batches;
        std::vector<Sample> samples;
        double magnitude = 0;
        for (std::size_t i = 0; i + AXES <= bytes.size(); i += AXES)
        {
            samples.emplace_back(bytes.subspan(i).first<AXES>());
            magnitude = std::max(magnitude, samples.back().Magnitude());
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
