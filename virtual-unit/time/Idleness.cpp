#include "virtual-unit/time/Idleness.h"

#include "virtual-unit/time/Waits.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace VirtualTime
{

namespace
{

using Text = std::array<char, 512>;

constexpr int HIGH_DESCRIPTOR = 720;

// Plain system calls: the stand-ins and the sanitizers have no part in this.

void Close(int fd)
{
    if (fd >= 0)
    {
        syscall(SYS_close, fd);
    }
}

int Open(int directory, const char* path, int flags = 0)
{
    const auto low = static_cast<int>(syscall(SYS_openat, directory, path, O_RDONLY | O_CLOEXEC | flags));
    const auto high = static_cast<int>(syscall(SYS_fcntl, low, F_DUPFD_CLOEXEC, HIGH_DESCRIPTOR));
    if (high < 0) // a test may have lowered the limit
    {
        return low;
    }
    Close(low);
    return high;
}

/// @return false when there is nothing (any more)
bool Read(int fd, Text& text)
{
    const long length = syscall(SYS_pread64, fd, text.data(), text.size() - 1, 0);
    text[static_cast<std::size_t>(std::max(length, 0L))] = '\0';
    return length > 0;
}

constexpr long NO_NUMBER = -1;

long Number(const char* text)
{
    char* end = nullptr;
    const long number = std::strtol(text, &end, 10);
    return end == text ? NO_NUMBER : number;
}

long LastNumber(const Text& text)
{
    const char* const space = std::strrchr(text.data(), ' ');
    return space == nullptr ? NO_NUMBER : Number(space);
}

constexpr char SLEEPING = 'S';
constexpr char UNINTERRUPTED = 'D';
constexpr char ZOMBIE = 'Z'; // has ended, and stays so until its parent cares
constexpr char DEAD = 'X';

char State(const Text& stat)
{
    const char* const name = std::strrchr(stat.data(), ')');
    return name != nullptr && name[1] == ' ' ? name[2] : DEAD;
}

}

Idleness::Idleness(bool alsoOfDescendants)
    : descendants(alsoOfDescendants), own(static_cast<pid_t>(syscall(SYS_gettid)))
{
}

Idleness::~Idleness()
{
    Forget();
    Close(load);
}

bool Idleness::AllWait()
{
    if (latestThread == NOT_KNOWN || latestThread != LatestThread())
    {
        List();
        complete = false;
    }
    const std::int64_t before = Turns();
    if (before < 0)
    {
        return false;
    }
    VirtualTime::Waits::DeliverTerminals();
    if (!complete)
    {
        // A thread that was just being created may not have been listed: a second list, of the same threads,
        // with nobody having run in between, is complete.
        const std::int64_t listed = SumOfIds();
        List();
        if (SumOfIds() != listed)
        {
            return false;
        }
    }
    complete = Turns() == before && latestThread == LatestThread();
    return complete;
}

bool Idleness::IsAlive(pid_t process)
{
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "/proc/%d/stat", process);
    const int fd = Open(AT_FDCWD, path.data());
    Text text{};
    const bool alive = Read(fd, text) && State(text) != ZOMBIE && State(text) != DEAD;
    Close(fd);
    return alive;
}

/**
 * How often the threads have been put on a processor so far.
 * @return -1 when one of them runs, or is about to
 */
std::int64_t Idleness::Turns()
{
    std::int64_t turns = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::size_t index = (lastBusy + i) % count;
        const Thread& thread = threads[index];
        if (thread.id == own)
        {
            continue;
        }
        Text text{};
        if (!Read(thread.state, text))
        {
            latestThread = NOT_KNOWN; // it has ended, and somebody may be about to notice
            return -1;
        }
        const char state = State(text);
        if (state != ZOMBIE && !Waits(thread, state))
        {
            lastBusy = index;
            return -1;
        }
        turns += Read(thread.turns, text) ? LastNumber(text) : 0;
    }
    return turns;
}

bool Idleness::Waits(const Thread& thread, char state)
{
    // Where in the kernel a thread waits is told when it has really left its processor, while the state says
    // so a little before. Uninterrupted waits are for disks and the like, but for calls that a supervisor
    // answers.
    constexpr char STILL_RUNNING[] = "0";
    constexpr char HELD[] = "seccomp_";
    Text place{};
    if (Read(thread.place, place) && std::strcmp(place.data(), STILL_RUNNING) != 0)
    {
        placesAreTold = true;
        return state == SLEEPING ||
               (state == UNINTERRUPTED && std::strncmp(place.data(), HELD, sizeof HELD - 1) == 0);
    }
    return state == SLEEPING && !placesAreTold; // a kernel that tells of nobody: the state has to do
}

/// The ID that was given last to any process or thread of this machine.
long Idleness::LatestThread()
{
    if (load < 0)
    {
        load = Open(AT_FDCWD, "/proc/loadavg");
    }
    Text text{};
    Read(load, text);
    return LastNumber(text);
}

void Idleness::List()
{
    Forget();
    latestThread = LatestThread();
    ListProcess(getpid());
}

std::int64_t Idleness::SumOfIds() const
{
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        sum += threads[i].id;
    }
    return sum;
}

void Idleness::ListProcess(pid_t process)
{
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "/proc/%d/task", process);
    const int task = Open(AT_FDCWD, path.data(), O_DIRECTORY);
    alignas(8) std::array<char, 4096> entries{};
    long bytes = 0;
    while (task >= 0 && (bytes = syscall(SYS_getdents64, task, entries.data(), entries.size())) > 0)
    {
        for (long at = 0; at < bytes;)
        {
            std::uint16_t size = 0;
            std::memcpy(&size, entries.data() + at + 16, sizeof size);
            const char* const name = entries.data() + at + 19;
            at += size;
            if (name[0] == '.' || count == threads.size())
            {
                continue;
            }
            const auto open = [&](const char* file) {
                std::snprintf(path.data(), path.size(), "%s/%s", name, file);
                return Open(task, path.data());
            };
            threads[count++] = {static_cast<pid_t>(Number(name)), open("stat"), open("schedstat"),
                                open("wchan")};
            if (descendants)
            {
                ListChildren(task, name);
            }
        }
    }
    Close(task);
}

void Idleness::ListChildren(int task, const char* thread)
{
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "%s/children", thread);
    const int children = Open(task, path.data());
    Text text{};
    if (Read(children, text))
    {
        char* at = text.data();
        for (long child = std::strtol(at, &at, 10); child != 0; child = std::strtol(at, &at, 10))
        {
            ListProcess(static_cast<pid_t>(child));
        }
    }
    Close(children);
}

void Idleness::Forget()
{
    for (std::size_t i = 0; i < count; ++i)
    {
        Close(threads[i].state);
        Close(threads[i].turns);
        Close(threads[i].place);
    }
    count = 0;
    lastBusy = 0;
}

}
