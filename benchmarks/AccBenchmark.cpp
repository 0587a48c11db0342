// The accelerometer's thread while nothing happens, beside a bare loop of the same two system calls, and what
// a batch of samples allocates. The bus is stood in for: its transfers cost a real system call that does
// nothing.

#include "AccDevice/AccDevice.h"
#include "benchmarks/Allocations.h"
#include "benchmarks/Run.h"
#include "benchmarks/UnitPath.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

using Tavbase::Interfaces::IThread;
using Tavdevice::ACC::AccDevice;

constexpr const char* ADAPTER_PATH = "/dev/i2c-1";
constexpr unsigned char ADAPTER = 1;
constexpr unsigned char ADDRESS = 0x1C;

constexpr unsigned char INT_SOURCE = 0x0C;
constexpr unsigned char WHO_AM_I = 0x0D;
constexpr unsigned char IDENTITY = 0x1A;
constexpr unsigned char FIFO_FLAG = 0x40;

constexpr long POLL_NANOSECONDS = 20'000'000;

bool fifoFlag = false; ///< what the stand-in answers

int Answer(unsigned long request, void* argument)
{
    if (request != I2C_SMBUS)
    {
        return 0;
    }
    auto& transfer = *static_cast<i2c_smbus_ioctl_data*>(argument);
    if (transfer.read_write == I2C_SMBUS_READ && transfer.size == I2C_SMBUS_BYTE_DATA)
    {
        transfer.data->byte = transfer.command == WHO_AM_I                 ? IDENTITY
                              : transfer.command == INT_SOURCE && fifoFlag ? FIFO_FLAG
                                                                           : 0;
    }
    return 0;
}

}

// The library is shared: its calls of ioctl() come here.
extern "C" __attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    syscall(SYS_ioctl, fd, request, argument); // refused by /dev/null
    return Answer(request, argument);
}

namespace
{

class Receiver : public IThread::IThreadDelegate
{
public:
    void ThreadCallback(void* value) override { benchmark::DoNotOptimize(value); }
};

/// Time: processor time of `poll`.
template <class Poll>
void Measure(benchmark::State& state, Poll poll)
{
    const std::uint64_t before = Benchmarks::Allocations();
    for (auto _ : state)
    {
        const double start = Benchmarks::ThreadSeconds();
        poll();
        state.SetIterationTime(Benchmarks::ThreadSeconds() - start);
    }
    state.counters["allocations"] =
        static_cast<double>(Benchmarks::Allocations() - before) / static_cast<double>(state.iterations());
}

/// Calls Run() of a device that is ready, on this thread.
void Step(benchmark::State& state, bool withBatch)
{
    const Benchmarks::UnitPath path(ADAPTER_PATH, "/dev/null");
    Receiver receiver;
    IThread::IThreadDelegate* delegate = &receiver;
    AccDevice device(ADAPTER, ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100);
    if (!device.Prepare(delegate) || device.RunBefore() == 0)
    {
        state.SkipWithError(device.GetErrorMessage().c_str());
        return;
    }
    fifoFlag = withBatch;
    Measure(state, [&] { device.Run(); });
    device.RunAfter();
}

void IdlePoll(benchmark::State& state)
{
    Step(state, false);
}

void Batch(benchmark::State& state)
{
    Step(state, true);
}

void BareIdlePoll(benchmark::State& state)
{
    const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    fifoFlag = false;
    Measure(state, [fd] {
        i2c_smbus_data data = {};
        i2c_smbus_ioctl_data transfer = {I2C_SMBUS_READ, INT_SOURCE, I2C_SMBUS_BYTE_DATA, &data};
        ioctl(fd, I2C_SMBUS, &transfer);
        benchmark::DoNotOptimize(data);
        const timespec pause = {0, POLL_NANOSECONDS};
        nanosleep(&pause, nullptr);
    });
    close(fd);
}

BENCHMARK(IdlePoll)->UseManualTime()->Iterations(20);
BENCHMARK(BareIdlePoll)->UseManualTime()->Iterations(20);
BENCHMARK(Batch)->UseManualTime();

}

int main(int argc, char** argv)
{
    return Benchmarks::Run(argc, argv);
}
