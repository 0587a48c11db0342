// Virtual time for a process and all that it starts: a library to be preloaded. Every thread that waits has a
// slot in memory that all processes share. The first process, which finds the memory empty, leads: a thread
// of it looks whether all threads of all of them wait, moves the time to the earliest deadline among the
// slots, and wakes the one thread that waits for it. A wait for descriptors is ended by a descriptor, which
// only its own process can reach: each process in which there are such waits has an agent, a thread that does
// it when it is told to. The agent also has the timers of its process.
//
// All of them run on one processor: a thread that wakes another one there hands over in a tenth of the time,
// and what happens at one moment happens in one order.

#include "virtual-unit/common/PreloadedLibrary.h"
#include "virtual-unit/time/Idleness.h"
#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/Timers.h"
#include "virtual-unit/time/Vfork.h"
#include "virtual-unit/time/VirtualTime.h"
#include "virtual-unit/time/Waits.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

namespace VirtualTime
{

namespace
{

constexpr std::int64_t MILLISECOND = 1'000'000; // in nanoseconds
constexpr std::int64_t UNANNOUNCED = 200'000;   // between two looks for what nobody has announced
constexpr int LOOKS = 3;                        // at a thread that has announced its wait
constexpr int QUICK_LOOKS = 2;                  // at what the threads say

/// The content of the file that VARIABLE names; all zero at first, and so is what has no place in the board.
struct Shared
{
    Waits::Board board;
    std::atomic<pid_t> leader{0};
    std::array<Timers::Alarm, 64> alarms;
};

Shared* shared = nullptr;
std::atomic<bool> hasAgent{false};
std::atomic<bool> joining{false};
std::atomic<bool> leading{false};

Waits::Slot* AgentOf(pid_t process)
{
    Waits::Board& board = shared->board;
    const auto end = board.slots.begin() + board.used;
    const auto agent = std::find_if(board.slots.begin(), end, [process](const Waits::Slot& slot) {
        return slot.process == process && slot.isAgent;
    });
    return agent == end ? nullptr : &*agent;
}

/// Has the agent of its process end a wait for descriptors.
bool WakeCall(Waits::Slot& slot)
{
    Waits::Slot* const agent = AgentOf(slot.process);
    if (agent != nullptr)
    {
        Waits::Wakeful(*agent, Waits::Wake::Event);
    }
    return agent != nullptr;
}

void EndCalls()
{
    Waits::Board& board = shared->board;
    const pid_t process = getpid();
    for (std::uint32_t i = 0; i < board.used; ++i)
    {
        if (board.slots[i].process == process)
        {
            Waits::EndCall(board.slots[i]);
        }
    }
}

void* Agent(void*)
{
    Waits::Slot& slot = Waits::OwnSlot();
    slot.isAgent = true;
    hasAgent = true;
    for (;;)
    {
        Waits::ObjectWait wait(&slot, Waits::NEVER); // from here on no order is missed
        EndCalls();
        Timers::Fire();
        wait.Until(Timers::Earliest());
        wait.Wait();
    }
}

void StartThread(void* (*work)(void*))
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // it takes no signals
    pthread_attr_t detached;
    pthread_attr_init(&detached);
    pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    pthread_t thread = {};
    if (REAL_CALL(pthread_create)(&thread, &detached, work, nullptr) != 0)
    {
        std::fprintf(stderr, "virtual time: no thread\n");
        std::abort();
    }
    pthread_attr_destroy(&detached);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

/// Tells the agent that it is to look at the timers.
void TellAgent()
{
    if (Waits::Slot* const agent = AgentOf(getpid()); agent != nullptr)
    {
        Waits::Wakeful(*agent, Waits::Wake::Event);
    }
}

/// Before the first wait for descriptors, and the first timer, of this process.
void HaveAgent()
{
    if (hasAgent)
    {
        return;
    }
    if (!joining.exchange(true))
    {
        StartThread(Agent);
    }
    while (!hasAgent)
    {
        sched_yield(); // a sleep would look as if there were nothing more to do
    }
}

/// Tells once for each process that time goes slowly because of it.
void TellOfRealTime(pid_t process)
{
    static std::array<pid_t, 16> told{};
    static std::size_t next = 0;
    if (std::ranges::find(told, process) != told.end())
    {
        return;
    }
    told[next++ % told.size()] = process;
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "/proc/%d/comm", process);
    std::array<char, 32> name{};
    const auto fd = static_cast<int>(RawCall(SYS_openat, AT_FDCWD, path.data(), O_RDONLY | O_CLOEXEC));
    const long length = RawCall(SYS_read, fd, name.data(), name.size() - 1);
    RawCall(SYS_close, fd);
    name[static_cast<std::size_t>(std::max(length, 1L)) - 1] = '\0'; // the line end
    std::array<char, 256> line{};
    const int bytes =
        std::snprintf(line.data(), line.size(),
                      "virtual-unit: %s (process %d) waits in real time, by a system call of its own: time "
                      "goes as slowly as the real one meanwhile\n",
                      name.data(), process);
    RawCall(SYS_write, STDERR_FILENO, line.data(), bytes);
}

class Leader
{
public:
    [[noreturn]] void Lead()
    {
        for (;;)
        {
            const std::uint32_t seen = shared->board.entries;
            if (!AllWait())
            {
                if (Waits::RealNow(CLOCK_MONOTONIC) - lastJudgement > MILLISECOND)
                {
                    Judge(true);
                }
                Waits::AwaitEntry(seen, UNANNOUNCED);
                continue;
            }
            Judge(false);
            if (!Waits::FireEarliest())
            {
                Waits::AwaitEntry(seen, UNANNOUNCED);
                continue;
            }
            sched_yield(); // to the one that was woken
        }
    }

private:
    /// A thread says that it waits a little before it does, and does not say it of each wait.
    bool AllWait()
    {
        for (int look = 0; look < QUICK_LOOKS && !threads.AllSaySo(); ++look)
        {
            sched_yield();
        }
        for (int look = 0; look < LOOKS; ++look)
        {
            if (threads.AllWait())
            {
                return true;
            }
            sched_yield();
        }
        return false;
    }

    void Judge(bool lookAgain)
    {
        const std::int64_t before = lastJudgement;
        const pid_t process = threads.WaitsInRealTime(lookAgain);
        lastJudgement = Waits::RealNow(CLOCK_MONOTONIC);
        if (process == 0)
        {
            Waits::LetGo();
            return;
        }
        Waits::Hold(before); // it may have begun to wait right after the last look
        TellOfRealTime(process);
    }

    Idleness threads{true};
    std::int64_t lastJudgement = Waits::RealNow(CLOCK_MONOTONIC);
};

void* RunLeader(void*)
{
    leading = true;
    static Leader leader; // too large for some stacks
    leader.Lead();
}

void ForgetParent()
{
    hasAgent = false;
    joining = false;
    Waits::place.beforeCall = HaveAgent;
    Waits::place.keepsEvents = false;
    Waits::ForgetWaiters();
    Timers::ForgetAll();
}

/// The shared memory; null: there is none, and time is real.
Shared* Open(const char* path)
{
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    void* const memory = fd >= 0 && ftruncate(fd, sizeof(Shared)) == 0
                             ? mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)
                             : MAP_FAILED;
    close(fd);
    if (memory == MAP_FAILED)
    {
        std::fprintf(stderr, "virtual time: %s cannot be used, time is real\n", path);
        return nullptr;
    }
    return static_cast<Shared*>(memory);
}

/// The descriptor behind a path "/proc/PID/fd/N" is for this process: what it executes opens the file.
void KeepDescriptor(std::string_view path)
{
    int fd = -1;
    std::from_chars(path.data() + path.rfind('/') + 1, path.data() + path.size(), fd);
    fcntl(fd, F_SETFD, FD_CLOEXEC);
}

/// Whether no other run in virtual time of this machine has said before that the processor is its own. It is
/// as long as this process lives.
bool Reserve(int processor)
{
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    const int length = std::snprintf(name.sun_path + 1, sizeof name.sun_path - 1,
                                     "virtual-unit-time-on-processor-%d", processor);
    const int reservation = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const auto size =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<unsigned>(length));
    if (bind(reservation, reinterpret_cast<const sockaddr*>(&name), size) == 0)
    {
        return true;
    }
    close(reservation);
    return false;
}

void StayOnOneProcessor()
{
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    const int count = CPU_COUNT(&allowed);
    int chosen = -1;
    for (int processor = 0, number = 0; processor < CPU_SETSIZE; ++processor)
    {
        if (!CPU_ISSET(processor, &allowed))
        {
            continue;
        }
        if (number++ == getpid() % std::max(count, 1))
        {
            chosen = processor; // if all are taken
        }
        if (Reserve(processor))
        {
            chosen = processor;
            break;
        }
    }
    if (chosen >= 0)
    {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(chosen, &one);
        sched_setaffinity(0, sizeof one, &one);
        // A thread that is woken does not take the processor from the one that wakes it.
        const sched_param none = {};
        sched_setscheduler(0, SCHED_BATCH, &none);
    }
}

__attribute__((constructor)) void Begin()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread
    const char* const preloaded = std::getenv(VirtualUnit::PreloadedLibrary::VARIABLE);
    const char* const path = std::getenv(VARIABLE); // NOLINT(concurrency-mt-unsafe): likewise
    shared = path == nullptr ? nullptr : Open(path);
    if (shared == nullptr)
    {
        return;
    }
    pid_t none = 0;
    const bool leads = shared->leader.compare_exchange_strong(none, getpid());
    Waits::Time& time = shared->board.time;
    if (leads)
    {
        KeepDescriptor(path);
        if (preloaded != nullptr)
        {
            KeepDescriptor(std::string_view(preloaded, std::strcspn(preloaded, ":")));
        }
        for (Waits::Slot& slot : shared->board.slots)
        {
            Waits::Free(slot);
        }
        StayOnOneProcessor();
        time.startMonotonic = Waits::RealNow(CLOCK_MONOTONIC);
        time.wallAtStart = Waits::RealNow(CLOCK_REALTIME);
        time.on = true;
    }
    const pid_t process = getpid();
    for (Waits::Slot& slot : shared->board.slots)
    {
        if (slot.process == process) // of the program that this process was before
        {
            Waits::Free(slot);
        }
    }
    Waits::place.board = &shared->board;
    Waits::place.beforeCall = leads ? nullptr : HaveAgent; // the leader reaches its own process by itself
    Waits::place.wakeCall = WakeCall;
    Waits::place.keepsEvents = leads;
    Waits::place.isEmulated =
        preloaded != nullptr && std::strstr(preloaded, "/vgpreload_") != nullptr; // by valgrind
    Timers::place = {shared->alarms.data(), shared->alarms.size(), HaveAgent, TellAgent};
    Timers::TakeOverAlarm();
    CountVforks(shared->board);
    pthread_atfork(nullptr, nullptr, ForgetParent);
    Waits::OwnSlot().isProgram = true;
    if (leads)
    {
        StartThread(RunLeader);
        while (!leading)
        {
            sched_yield();
        }
    }
}

}

}

STAND_IN bool VirtualUnitTimeIsVirtual()
{
    return VirtualTime::shared != nullptr;
}

STAND_IN bool VirtualUnitTimeHas(pid_t process)
{
    return VirtualTime::shared == nullptr || VirtualTime::shared->board.Has(process);
}

STAND_IN void VirtualUnitTimeExecutes(pid_t thread)
{
    if (VirtualTime::shared != nullptr)
    {
        for (VirtualTime::Waits::Slot& slot : VirtualTime::shared->board.slots)
        {
            if (slot.thread == thread)
            {
                slot.isProgram = false;
            }
        }
    }
}
