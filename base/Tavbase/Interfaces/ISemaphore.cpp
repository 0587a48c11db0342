#include "base/Tavbase/Interfaces/ISemaphore.h"

#include <cerrno>
#include <sched.h>

namespace Tavbase::Interfaces
{

namespace
{

// Counted in turns, not in time: a yield takes some hundreds of nanoseconds while no other thread wants the
// processor, so that the whole search costs about what one sleep and wake-up of a thread does (some 50
// microseconds). It yields almost at once: with more threads than processors the one that is waited for may
// need this one.
constexpr int LOOKS_BEFORE_YIELD = 4;
constexpr int YIELDS_BEFORE_SLEEP = 200;

/// Not by sysconf(), which opens a file: where the application has closed a standard stream, that file has
/// its number, and whatever another thread opens meanwhile may get it next.
bool ManyProcessors()
{
    static const bool many = [] {
        cpu_set_t own;
        return sched_getaffinity(0, sizeof(own), &own) != 0 || CPU_COUNT(&own) > 1;
    }();
    return many;
}

void Relax()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}

}

ISemaphore::ISemaphore(unsigned int count)
{
    sem_init(&semaphore, 0, count);
}

ISemaphore::~ISemaphore()
{
    sem_destroy(&semaphore);
}

void ISemaphore::Notify()
{
    sem_post(&semaphore);
}

void ISemaphore::Wait()
{
    while (sem_wait(&semaphore) != 0 && errno == EINTR)
    {
    }
}

bool ISemaphore::TryWait()
{
    return sem_trywait(&semaphore) == 0;
}

void ISemaphore::WaitBusy()
{
    if (ManyProcessors())
    {
        for (int look = 0; look < LOOKS_BEFORE_YIELD; ++look)
        {
            if (TryWait())
            {
                return;
            }
            Relax();
        }
        for (int turn = 0; turn < YIELDS_BEFORE_SLEEP; ++turn)
        {
            if (TryWait())
            {
                return;
            }
            sched_yield();
        }
    }
    Wait();
}

}
