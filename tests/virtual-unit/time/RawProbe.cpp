// What a test of virtual time runs on the virtual unit: a wait of SECONDS by the instruction itself, which no
// library can stand in for, beside a thread that sleeps in steps of 100 ms.
// usage: PROBE SECONDS
// Prints how long it took by the clock of the C library and by the kernel's own, in milliseconds.

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace
{

long Call(long number, long first, long second)
{
#if defined(__x86_64__)
    long result = 0;
    asm volatile("syscall" : "=a"(result) : "a"(number), "D"(first), "S"(second) : "rcx", "r11", "memory");
    return result;
#else
    return syscall(number, first, second);
#endif
}

long Milliseconds(const timespec& begin, const timespec& end)
{
    return (end.tv_sec - begin.tv_sec) * 1000 + (end.tv_nsec - begin.tv_nsec) / 1'000'000;
}

timespec Kernel()
{
    timespec now = {};
    Call(SYS_clock_gettime, CLOCK_MONOTONIC, reinterpret_cast<long>(&now));
    return now;
}

}

int main(int, char** arguments)
{
    const timespec duration = {std::atoi(arguments[1]), 0};
    std::thread beside([&] {
        for (int i = 0; i < 10 * duration.tv_sec; ++i)
        {
            usleep(100'000);
        }
    });
    timespec begin = {};
    timespec end = {};
    const timespec kernelBegin = Kernel();
    clock_gettime(CLOCK_MONOTONIC, &begin);
    Call(SYS_nanosleep, reinterpret_cast<long>(&duration), 0);
    clock_gettime(CLOCK_MONOTONIC, &end);
    const timespec kernelEnd = Kernel();
    beside.join();
    std::printf("%ld %ld\n", Milliseconds(begin, end), Milliseconds(kernelBegin, kernelEnd));
}
