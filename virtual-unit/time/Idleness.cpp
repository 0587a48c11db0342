#include "virtual-unit/time/Idleness.h"

#include "virtual-unit/time/Mapping.h"
#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/Waits.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <linux/futex.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
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
        RawCall(SYS_close, fd);
    }
}

int Open(int directory, const char* path, int flags = 0)
{
    const auto low = static_cast<int>(RawCall(SYS_openat, directory, path, O_RDONLY | O_CLOEXEC | flags));
    const auto high = static_cast<int>(RawCall(SYS_fcntl, low, F_DUPFD_CLOEXEC, HIGH_DESCRIPTOR));
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
    const long length = RawCall(SYS_pread64, fd, text.data(), text.size() - 1, 0, 0, 0); // two more: 32 bits
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

/// A directory of threads has a link for each; 0 when there is none (any more).
unsigned long LinksOf(int directory)
{
#if VIRTUAL_TIME_LONG_NAMES // the kernel does not know this structure
    struct statx status = {};
    return RawCall(SYS_statx, directory, "", AT_EMPTY_PATH, STATX_NLINK, &status) == 0 ? status.stx_nlink : 0;
#else
    struct stat status = {};
    return RawCall(SYS_fstat, directory, &status) == 0 ? status.st_nlink : 0;
#endif
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
    : descendants(alsoOfDescendants), own(static_cast<pid_t>(RawCall(SYS_gettid))), ownProcess(getpid())
{
}

Idleness::~Idleness()
{
    Forget();
    VirtualTime::Close(load);
}

bool Idleness::AllWait()
{
    if (latestThread == NOT_KNOWN || created != Waits::place.board->created)
    {
        List();
        complete = false;
    }
    if (!FirstLook() || !LookAtFiles())
    {
        return false;
    }
    if (!complete && List())
    {
        // A thread that was just being created may not have been listed: a second list, of the same threads,
        // with nobody having run in between, is complete.
        return false;
    }
    if (!SecondLook())
    {
        return false;
    }
    if (IsListStale())
    {
        latestThread = NOT_KNOWN;
        return false;
    }
    complete = true;
    return true;
}

bool Idleness::AllSaySo() const
{
    return std::all_of(threads.begin(), threads.begin() + static_cast<std::ptrdiff_t>(count),
                       [](const Thread& thread) { return thread.slot == nullptr || IsAccountedFor(thread); });
}

bool Idleness::IsListStale()
{
    const Waits::Board& board = *Waits::place.board;
    if (created != board.created)
    {
        return true;
    }
    // Whoever counts nothing is found by what the machine counts; a runtime library may create a thread
    // behind its program's back.
    return !descendants || strangers || board.creators > 0 ? latestThread != LatestThread()
                                                           : HasOtherThreads();
}

bool Idleness::HasOtherThreads() const
{
    return std::any_of(processes.begin(), processes.begin() + static_cast<std::ptrdiff_t>(processCount),
                       [](const Process& process) { return LinksOf(process.task) != process.threads; });
}

bool Idleness::FirstLook()
{
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::size_t index = (lastBusy + i) % count;
        Thread& thread = threads[index];
        if (thread.id == own)
        {
            continue;
        }
        if (thread.slot == nullptr)
        {
            FindSlots(); // it may have waited for the first time
        }
        if (thread.slot != nullptr)
        {
            thread.stand = thread.slot->stand;
            if (IsAccountedFor(thread))
            {
                continue;
            }
        }
        Text text{};
        if (!Read(thread.turns, text))
        {
            latestThread = NOT_KNOWN; // it has ended, and somebody may be about to notice
            return false;
        }
        thread.turnsThen = LastNumber(text);
        // One that is on a processor now may sleep at the second look with no turn more.
        if (!Sleeps(thread))
        {
            lastBusy = index;
            return false;
        }
    }
    return true;
}

/// Delivers what is on its way through the terminals, and finds the threads in a call of this process that
/// have nothing to return for. No signal handler runs in this process, if it looks after descendants.
bool Idleness::LookAtFiles()
{
    std::size_t used = Waits::ListTerminals(looks.data());
    const std::size_t terminals = used;
    for (std::size_t i = 0; i < count; ++i)
    {
        Thread& thread = threads[i];
        thread.waitsForWatched = false;
        if (!descendants || thread.process != ownProcess || thread.slot == nullptr ||
            Waits::StandOf(thread.stand) != Waits::Stand::InCall)
        {
            continue;
        }
        const Waits::Watched& watched = thread.slot->watched;
        const std::uint32_t files = watched.count;
        if (files > watched.files.size() || files > looks.size() - used)
        {
            continue;
        }
        for (std::uint32_t file = 0; file < files; ++file)
        {
            looks[used + file] = {watched.files[file].descriptor, watched.files[file].events, 0};
        }
        if (thread.slot->stand != thread.stand)
        {
            return false; // what was read may be of two calls
        }
        used += files;
        thread.waitsForWatched = true;
    }
    if (used > 0)
    {
        REAL_CALL(poll)(looks.data(), used, 0);
    }
    for (std::size_t i = 0; i < terminals; ++i)
    {
        // What is there was not waited for, and the kernel may be about to wake who waits for it: asked how
        // much there is, it finishes that first.
        if (int bytes = 0; (looks[i].revents & POLLIN) != 0)
        {
            RawCall(SYS_ioctl, looks[i].fd, FIONREAD, &bytes);
        }
    }
    const auto begin = looks.begin();
    return std::none_of(begin + static_cast<std::ptrdiff_t>(terminals),
                        begin + static_cast<std::ptrdiff_t>(used),
                        [](const pollfd& look) { return look.revents != 0; });
}

bool Idleness::SecondLook()
{
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::size_t index = (lastBusy + i) % count;
        Thread& thread = threads[index];
        if (thread.id == own || thread.waitsForWatched ||
            (thread.slot != nullptr && Waits::IsParked(*thread.slot)))
        {
            continue;
        }
        Text text{};
        if (!Sleeps(thread) ||
            (!IsAccountedFor(thread) && (!Read(thread.turns, text) || LastNumber(text) != thread.turnsThen)))
        {
            lastBusy = index;
            return false;
        }
    }
    // Whoever was woken meanwhile, and has gone to sleep again, has another number.
    return std::all_of(
        threads.begin(), threads.begin() + static_cast<std::ptrdiff_t>(count),
        [](const Thread& thread) { return thread.slot == nullptr || thread.slot->stand == thread.stand; });
}

bool Idleness::IsAccountedFor(const Thread& thread)
{
    return thread.slot != nullptr &&
           (Waits::IsParked(*thread.slot) || Waits::StandOf(thread.slot->stand) == Waits::Stand::InCall);
}

pid_t Idleness::WaitsInRealTime(bool lookAgain)
{
    pid_t found = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        Thread& thread = threads[i];
        if (thread.slot == nullptr)
        {
            FindSlots();
        }
        if (thread.id == own || IsAccountedFor(thread))
        {
            continue;
        }
        if (Text text{}; lookAgain && Read(thread.turns, text))
        {
            thread.turnsThen = LastNumber(text);
        }
        if (thread.turnsThen != thread.judged)
        {
            thread.inRealTime = Sleeps(thread) && JudgeRealTime(thread);
            thread.judged = Sleeps(thread) ? thread.turnsThen : NOT_KNOWN;
        }
        found = thread.inRealTime ? thread.process : found;
    }
    return found;
}

bool Idleness::IsAlive(pid_t process)
{
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "/proc/%d/stat", process);
    const int fd = Open(AT_FDCWD, path.data());
    Text text{};
    const bool alive = Read(fd, text) && State(text) != ZOMBIE && State(text) != DEAD;
    VirtualTime::Close(fd);
    return alive;
}

bool Idleness::Sleeps(Thread& thread)
{
    // Where in the kernel a thread waits is told when it has really left its processor, while the state says
    // so a little before.
    constexpr char STILL_RUNNING[] = "0";
    Text place{};
    if (!Read(thread.place, place) || std::strcmp(place.data(), STILL_RUNNING) == 0)
    {
        if (placesAreTold && thread.id != thread.process) // of those that ended only a first thread is listed
        {
            return false;
        }
        const char state = StateOf(thread);
        return state == ZOMBIE || (state == SLEEPING && !placesAreTold); // a kernel that tells of nobody
    }
    placesAreTold = true;
    // Uninterrupted waits are for disks and the like, but for calls that a supervisor answers.
    constexpr std::string_view HELD = "seccomp_";
    const std::string_view where = place.data();
    const std::uint64_t hash = std::hash<std::string_view>()(where);
    if (hash == thread.sleepsIn || where.starts_with(HELD))
    {
        return true;
    }
    if (!IsSeenSleepingAt(where, thread))
    {
        return false;
    }
    thread.sleepsIn = hash;
    return true;
}

/// The place and the state are told one after the other: they belong together if the thread had no turn in
/// between. Else a place where the kernel works for it might count as one where it sleeps from then on.
bool Idleness::IsSeenSleepingAt(std::string_view place, const Thread& thread)
{
    Text turnsBefore{};
    Text placeNow{};
    Text turnsBehind{};
    return Read(thread.turns, turnsBefore) && Read(thread.place, placeNow) && placeNow.data() == place &&
           StateOf(thread) == SLEEPING && Read(thread.turns, turnsBehind) &&
           LastNumber(turnsBefore) == LastNumber(turnsBehind);
}

namespace
{

/// Opens a file of a thread.
int OpenOf(pid_t process, pid_t thread, const char* name)
{
    std::array<char, 80> path{};
    std::snprintf(path.data(), path.size(), "/proc/%d/task/%d/%s", process, thread, name);
    return Open(AT_FDCWD, path.data());
}

/// The system call that a thread is in, with its arguments.
struct Call
{
    long number = -1; ///< none
    std::array<unsigned long, 6> arguments{};
    unsigned long from = 0; ///< the address behind it
};

Call CallOf(pid_t process, pid_t thread)
{
    Text text{};
    const int fd = OpenOf(process, thread, "syscall");
    const bool told = Read(fd, text);
    const bool secret = !told && (errno == EPERM || errno == EACCES);
    Close(fd);
    Call call;
    if (secret)
    {
        call.number = SYS_clock_nanosleep; // it might be
        return call;
    }
    char* at = text.data();
    char* end = nullptr;
    if (!told || (call.number = std::strtol(at, &end, 10), end == at)) // "running"
    {
        call.number = -1;
        return call;
    }
    at = end;
    for (unsigned long& argument : call.arguments)
    {
        argument = std::strtoul(at, &at, 16);
    }
    std::strtoul(at, &at, 16); // the stack
    call.from = std::strtoul(at, &at, 16);
    return call;
}

bool FutexHasTimeout(const Call& call)
{
    switch (call.arguments[1] & FUTEX_CMD_MASK)
    {
    case FUTEX_WAIT:
    case FUTEX_WAIT_BITSET:
    case FUTEX_LOCK_PI:
    case FUTEX_WAIT_REQUEUE_PI:
    case 13: // FUTEX_LOCK_PI2
        return call.arguments[3] != 0;
    default:
        return false;
    }
}

bool HasTimeout(const Call& call)
{
    constexpr long EPOLL_PWAIT2 = 441;
    constexpr long FUTEX_WAITV = 449;
    switch (call.number)
    {
#ifdef SYS_nanosleep
    case SYS_nanosleep:
#endif
    case SYS_clock_nanosleep:
    case SYS_restart_syscall: // of one of those, behind a stop
        return true;
#ifdef SYS_poll
    case SYS_poll:
        return static_cast<int>(call.arguments[2]) > 0;
#endif
#ifdef SYS_epoll_wait
    case SYS_epoll_wait:
#endif
    case SYS_epoll_pwait:
        return static_cast<int>(call.arguments[3]) > 0;
    case SYS_ppoll:
    case SYS_rt_sigtimedwait:
        return call.arguments[2] != 0;
#ifdef SYS_semtimedop
    case SYS_semtimedop:
#endif
    case EPOLL_PWAIT2:
    case FUTEX_WAITV:
        return call.arguments[3] != 0;
#ifdef SYS_select
    case SYS_select:
#endif
    case SYS_pselect6:
    case SYS_mq_timedsend:
    case SYS_mq_timedreceive:
    case SYS_io_getevents:
    case SYS_recvmmsg:
        return call.arguments[4] != 0;
    case SYS_futex:
        return FutexHasTimeout(call);
    default:
        return false;
    }
}

/// Whether an address lies in the library of a sanitizer, whose own thread naps all the time.
bool IsInSanitizer(pid_t process, unsigned long address)
{
    MappingText mapping{};
    return FindMapping(process, address, mapping) && std::strstr(mapping.data(), "/libtsan.so") != nullptr;
}

}

char Idleness::StateOf(const Thread& thread)
{
    const int fd = OpenOf(thread.process, thread.id, "stat");
    Text text{};
    const char state = Read(fd, text) ? State(text) : DEAD;
    VirtualTime::Close(fd);
    return state;
}

bool Idleness::JudgeRealTime(const Thread& thread)
{
    const Call call = CallOf(thread.process, thread.id);
    const bool ownThread = thread.slot == nullptr && thread.id != thread.process;
    return HasTimeout(call) && !(ownThread && IsInSanitizer(thread.process, call.from));
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

/// @return true when there are other threads than before
bool Idleness::List()
{
    created = Waits::place.board->created;
    latestThread = LatestThread();
    for (std::size_t i = 0; i < count; ++i)
    {
        threads[i].listed = false;
    }
    ForgetProcesses();
    bool changed = ListProcess(getpid());
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        if (!threads[i].listed)
        {
            Close(threads[i]);
            changed = true;
            continue;
        }
        if (kept != i)
        {
            threads[kept] = threads[i];
        }
        ++kept;
    }
    count = kept;
    lastBusy = lastBusy < count ? lastBusy : 0;
    if (changed)
    {
        FindSlots();
    }
    const Waits::Board& board = *Waits::place.board;
    strangers = std::any_of(threads.begin(), threads.begin() + static_cast<std::ptrdiff_t>(count),
                            [&board](const Thread& thread) { return !board.Has(thread.process); });
    return changed;
}

void Idleness::FindSlots()
{
    const Waits::Board& board = *Waits::place.board;
    for (std::size_t i = 0; i < count; ++i)
    {
        Thread& thread = threads[i];
        if (thread.slot != nullptr && thread.slot->thread == thread.id)
        {
            continue;
        }
        thread.slot = nullptr;
        for (std::uint32_t slot = 0; slot < board.used && thread.slot == nullptr; ++slot)
        {
            if (board.slots[slot].thread == thread.id)
            {
                thread.slot = &board.slots[slot];
                thread.stand = ~thread.slot->stand;
            }
        }
    }
}

bool Idleness::Add(pid_t process, pid_t id, int task)
{
    const auto end = threads.begin() + static_cast<std::ptrdiff_t>(count);
    const auto known = std::find_if(threads.begin(), end, [&](const Thread& thread) {
        return thread.id == id && thread.process == process;
    });
    if (known != end)
    {
        known->listed = true;
        return false;
    }
    if (count == threads.size())
    {
        return false;
    }
    std::array<char, 64> path{};
    const auto open = [&](const char* file) {
        std::snprintf(path.data(), path.size(), "%d/%s", id, file);
        return Open(task, path.data());
    };
    Thread& thread = threads[count++];
    thread = Thread();
    thread.id = id;
    thread.process = process;
    thread.turns = open("schedstat");
    thread.place = open("wchan");
    thread.listed = true;
    return true;
}

bool Idleness::ListProcess(pid_t process)
{
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "/proc/%d/task", process);
    const int task = Open(AT_FDCWD, path.data(), O_DIRECTORY);
    alignas(8) std::array<char, 4096> entries{};
    long bytes = 0;
    bool changed = false;
    while (task >= 0 && (bytes = RawCall(SYS_getdents64, task, entries.data(), entries.size())) > 0)
    {
        for (long at = 0; at < bytes;)
        {
            std::uint16_t size = 0;
            std::memcpy(&size, entries.data() + at + 16, sizeof size);
            const char* const name = entries.data() + at + 19;
            at += size;
            if (name[0] == '.')
            {
                continue;
            }
            changed = Add(process, static_cast<pid_t>(Number(name)), task) || changed;
            changed = (descendants && ListChildren(task, name)) || changed;
        }
    }
    if (task >= 0 && processCount < processes.size())
    {
        processes[processCount++] = {task, LinksOf(task)};
        return changed;
    }
    VirtualTime::Close(task);
    return changed;
}

bool Idleness::ListChildren(int task, const char* thread)
{
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "%s/children", thread);
    const int children = Open(task, path.data());
    Text text{};
    bool changed = false;
    if (Read(children, text))
    {
        char* at = text.data();
        for (long child = std::strtol(at, &at, 10); child != 0; child = std::strtol(at, &at, 10))
        {
            changed = ListProcess(static_cast<pid_t>(child)) || changed;
        }
    }
    VirtualTime::Close(children);
    return changed;
}

void Idleness::Close(Thread& thread)
{
    VirtualTime::Close(thread.turns);
    VirtualTime::Close(thread.place);
}

void Idleness::ForgetProcesses()
{
    for (std::size_t i = 0; i < processCount; ++i)
    {
        VirtualTime::Close(processes[i].task);
    }
    processCount = 0;
}

void Idleness::Forget()
{
    ForgetProcesses();
    for (std::size_t i = 0; i < count; ++i)
    {
        Close(threads[i]);
    }
    count = 0;
    lastBusy = 0;
}

}
