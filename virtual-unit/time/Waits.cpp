#include "virtual-unit/time/Waits.h"

#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/RealLock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <linux/futex.h>
#include <optional>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <tuple>
#include <unistd.h>

namespace VirtualTime::Waits
{

namespace
{

constexpr int HIGH_DESCRIPTOR = 700; // out of the way of tests that count on low numbers

constinit Board ownBoard;

[[gnu::tls_model("initial-exec")]] thread_local constinit Slot* mine = nullptr;

constexpr std::uint32_t STAND_BITS = 2;
constexpr std::uint32_t STAND_MASK = (1U << STAND_BITS) - 1;

// Plain system calls: the stand-ins and the sanitizers have no part in this. The memory may be shared by
// processes.

long FutexWait(std::atomic<std::uint32_t>& word, std::uint32_t seen, const timespec* limit)
{
    return RawCall(FUTEX, &word, FUTEX_WAIT, seen, limit, nullptr, 0);
}

void FutexWake(std::atomic<std::uint32_t>& word)
{
    RawCall(FUTEX, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

std::uint32_t Next(std::uint32_t stand, Stand becomes)
{
    return (((stand >> STAND_BITS) + 1) << STAND_BITS) | static_cast<std::uint32_t>(becomes);
}

/// Of several that try at the same time one succeeds, and the others need not.
void Change(Slot& slot, Stand from, Stand to)
{
    std::uint32_t present = slot.stand;
    if (StandOf(present) == from)
    {
        slot.stand.compare_exchange_strong(present, Next(present, to));
    }
}

/// The slot's own thread alone.
void Become(Slot& slot, Stand stand)
{
    slot.stand = Next(slot.stand, stand);
}

// The number above the Wake is another one in each wait: nobody ends a later wait in place of an earlier one.

Wake WakeOf(std::uint32_t wake)
{
    return static_cast<Wake>(wake & STAND_MASK);
}

std::uint32_t With(std::uint32_t unwoken, Wake wake)
{
    return unwoken | static_cast<std::uint32_t>(wake);
}

/// @return the value of Slot::wake as long as nobody has woken it
std::uint32_t BeginWait(Slot& slot)
{
    const std::uint32_t unwoken = ((slot.wake >> STAND_BITS) + 1) << STAND_BITS;
    slot.wake = unwoken;
    return unwoken;
}

RealMutex coreMutex = PTHREAD_MUTEX_INITIALIZER;

class TAV_LOCK_HOLDER CoreLock : private RealLock
{
public:
    CoreLock() TAV_TAKES(coreMutex) : RealLock(coreMutex) {}

    ~CoreLock() TAV_GIVES_BACK = default;
    CoreLock(const CoreLock&) = delete;
    CoreLock& operator=(const CoreLock&) = delete;
};

ObjectWait* objectWaits TAV_GUARDED_BY(coreMutex) = nullptr; // in the order in which they came
/// How many wait for the objects at addresses that have something in common: most announcements are for
/// nobody.
std::array<std::atomic<int>, 256> objectWaitCounts{};

std::atomic<int>& CountOf(const void* object)
{
    constexpr unsigned int ALIGNMENT_BITS = 2;
    const auto address = reinterpret_cast<std::uintptr_t>(object) >> ALIGNMENT_BITS;
    return objectWaitCounts[(address ^ (address >> 8)) % objectWaitCounts.size()];
}

std::array<std::atomic<int>, MOST_TERMINALS> terminals{};

bool IsGone(const Slot& slot)
{
    return RawCall(SYS_tgkill, slot.process.load(), slot.thread.load(), 0) != 0 && errno == ESRCH;
}

Slot* ClaimSlot(pid_t thread)
{
    Board& board = *place.board;
    for (std::uint32_t i = 0; i < board.used; ++i)
    {
        if (board.slots[i].thread == thread)
        {
            return &board.slots[i]; // of an earlier thread of that number
        }
    }
    for (std::uint32_t i = 0; i < board.slots.size(); ++i)
    {
        pid_t none = 0;
        if (board.slots[i].thread.compare_exchange_strong(none, thread))
        {
            std::uint32_t used = board.used;
            while (used <= i && !board.used.compare_exchange_weak(used, i + 1))
            {
            }
            return &board.slots[i];
        }
    }
    return nullptr;
}

Wake Park(Slot& slot, std::uint32_t unwoken)
{
    const Waiting waiting(slot, Stand::Parked);
    while (slot.wake == unwoken)
    {
        if (FutexWait(slot.wake, unwoken, nullptr) != 0 && errno == EINTR && slot.wake == unwoken)
        {
            return Wake::Signal; // a handler that runs ends it, as it ends nanosleep and its kin
        }
    }
    const std::uint32_t wake = slot.wake;
    const bool handlerWaited = (wake & ~STAND_MASK) != unwoken;
    return handlerWaited ? Wake::Signal : WakeOf(wake);
}

/// A slot whose deadline counts.
struct Earliest
{
    Slot* slot = nullptr;
    std::uint32_t unwoken = 0;
    std::int64_t deadline = NEVER;
};

Earliest FindEarliest()
{
    Board& board = *place.board;
    Earliest earliest;
    for (std::uint32_t i = 0; i < board.used; ++i)
    {
        Slot& slot = board.slots[i];
        const std::uint32_t wake = slot.wake;
        const std::int64_t deadline = slot.deadline;
        if (deadline != NEVER && WakeOf(wake) == Wake::None &&
            (earliest.slot == nullptr || std::tuple(deadline, slot.thread.load()) <
                                             std::tuple(earliest.deadline, earliest.slot->thread.load())))
        {
            earliest = {&slot, wake, deadline}; // of two with one deadline the older thread comes first
        }
    }
    return earliest;
}

/// Ends the wait of a slot; false when it has ended in another way.
bool Fire(const Earliest& earliest)
{
    Slot& slot = *earliest.slot;
    std::uint32_t unwoken = earliest.unwoken;
    if (!slot.wake.compare_exchange_strong(unwoken, With(unwoken, Wake::Deadline)))
    {
        return false;
    }
    if (slot.event < 0)
    {
        Change(slot, Stand::Parked, Stand::Runs);
        FutexWake(slot.wake);
        return true;
    }
    if (slot.process != getpid())
    {
        return place.wakeCall != nullptr && place.wakeCall(slot);
    }
    EndCall(slot);
    return true;
}

/// The two together, so that no clock is read in between.
void ChangeTime(std::int64_t passed, std::int64_t heldSince)
{
    Time& time = place.board->time;
    ++time.changes;
    time.passed = passed;
    time.heldSince = heldSince;
    ++time.changes;
}

std::int64_t Passed()
{
    const Time& time = place.board->time;
    for (;;)
    {
        const std::uint32_t changes = time.changes;
        const std::int64_t passed = time.passed;
        const std::int64_t heldSince = time.heldSince;
        if (changes % 2 == 0 && changes == time.changes)
        {
            return heldSince == 0 ? passed : passed + RealNow(CLOCK_MONOTONIC) - heldSince;
        }
    }
}

/// The deadline and the event of the calling thread's slot, for the length of a wait.
class Due
{
public:
    Due(Slot& own, std::int64_t deadline, int event = -1) : unwoken(BeginWait(own)), slot(own)
    {
        slot.event = event;
        slot.deadline = deadline;
    }

    ~Due()
    {
        slot.deadline = NEVER;
        if (slot.event < 0)
        {
            return;
        }
        if (place.keepsEvents)
        {
            slot.event = -1; // what is written to it nevertheless, the next wait takes out
            return;
        }
        const CoreLock nobodyWritesToIt;
        slot.event = -1;
    }

    Due(const Due&) = delete;
    Due& operator=(const Due&) = delete;

    const std::uint32_t unwoken;

private:
    Slot& slot;
};

/// By plain system calls from first to last: a sanitizer that saw the descriptor come but not go would take
/// its next owner for a racing one.
class EventDescriptor
{
public:
    EventDescriptor()
    {
        const int low = static_cast<int>(RawCall(SYS_eventfd2, 0, EFD_CLOEXEC | EFD_NONBLOCK));
        const auto high = static_cast<int>(RawCall(SYS_fcntl, low, F_DUPFD_CLOEXEC, HIGH_DESCRIPTOR));
        number = high < 0 ? low : high; // somebody may have lowered the limit
        if (number != low)
        {
            RawCall(SYS_close, low);
        }
    }

    ~EventDescriptor() { RawCall(SYS_close, number); }

    EventDescriptor(const EventDescriptor&) = delete;
    EventDescriptor& operator=(const EventDescriptor&) = delete;

    int Number() const { return number; }

    void Clear() const
    {
        std::uint64_t ignored = 0;
        RawCall(SYS_read, number, &ignored, sizeof ignored);
    }

private:
    int number;
};

/// The calling thread's event, its kept one or a new one.
class Event
{
public:
    Event() : descriptor(place.keepsEvents ? Kept() : own.emplace()) {}

    int Number() const { return descriptor.Number(); }

    void Clear() const
    {
        if (!own)
        {
            descriptor.Clear();
        }
    }

private:
    static const EventDescriptor& Kept()
    {
        thread_local const EventDescriptor kept;
        return kept;
    }

    std::optional<EventDescriptor> own;
    const EventDescriptor& descriptor;
};

}

Stand StandOf(std::uint32_t stand)
{
    return static_cast<Stand>(stand & STAND_MASK);
}

Place place = {&ownBoard, nullptr, nullptr, false, false};

Slot& OwnSlot()
{
    const auto thread = static_cast<pid_t>(RawCall(SYS_gettid));
    if (mine != nullptr && mine->thread == thread)
    {
        return *mine;
    }
    mine = ClaimSlot(thread);
    if (mine == nullptr)
    {
        for (Slot& slot : place.board->slots)
        {
            if (IsGone(slot))
            {
                Free(slot);
            }
        }
        mine = ClaimSlot(thread);
    }
    if (mine == nullptr)
    {
        std::fprintf(stderr, "virtual time: more than %zu threads\n", place.board->slots.size());
        std::abort();
    }
    mine->deadline = NEVER;
    mine->event = -1;
    mine->isAgent = false;
    mine->isProgram = false;
    mine->handle = pthread_self();
    mine->process = getpid();
    Become(*mine, Stand::Runs);
    return *mine;
}

void Free(Slot& slot)
{
    slot.deadline = NEVER;
    slot.event = -1;
    slot.process = 0;
    slot.isAgent = false;
    slot.isProgram = false;
    slot.thread = 0;
}

bool Board::Has(pid_t process) const
{
    return std::any_of(slots.begin(), slots.begin() + used,
                       [process](const Slot& slot) { return slot.process == process && slot.isProgram; });
}

bool IsParked(const Slot& slot)
{
    return StandOf(slot.stand) == Stand::Parked && WakeOf(slot.wake) == Wake::None;
}

void EndCall(Slot& slot)
{
    if (slot.event < 0 || WakeOf(slot.wake) != Wake::Deadline)
    {
        return;
    }
    const CoreLock lock;
    if (const int event = slot.event; event >= 0 && WakeOf(slot.wake) == Wake::Deadline)
    {
        const std::uint64_t one = 1;
        RawCall(SYS_write, event, &one, sizeof one);
    }
}

bool Virtual()
{
    return place.board->time.on.load();
}

std::int64_t Monotonic()
{
    const Time& time = place.board->time;
    return time.on ? time.startMonotonic + Passed() : RealNow(CLOCK_MONOTONIC) + time.leftBehind;
}

std::int64_t Wall()
{
    return place.board->time.wallAtStart + Passed();
}

std::int64_t RealNow(clockid_t clock)
{
    timespec now = {};
    REAL_CALL(clock_gettime)(clock, &now);
    return ToNanoseconds(now);
}

Waiting::Waiting(Slot& own, Stand how, const pollfd* fds, nfds_t count) : slot(own)
{
    Watched& watched = slot.watched;
    const bool isTold = fds != nullptr && count <= watched.files.size();
    watched.count = isTold ? static_cast<std::uint32_t>(count) : Watched::NOT_TOLD;
    for (nfds_t i = 0; isTold && i < count; ++i)
    {
        watched.files[i].descriptor = fds[i].fd;
        watched.files[i].events = fds[i].events;
    }
    Become(slot, place.isEmulated ? Stand::Runs : how);
    Board& board = *place.board;
    ++board.entries;
    if (board.leaderSleeps)
    {
        FutexWake(board.entries);
    }
}

Waiting::~Waiting()
{
    if (StandOf(slot.stand) != Stand::Runs)
    {
        Become(slot, Stand::Runs);
    }
}

Wake SleepUntil(std::int64_t monotonic)
{
    Slot& slot = OwnSlot();
    Wake wake = Wake::None;
    {
        const Due due(slot, monotonic);
        wake = Park(slot, due.unwoken);
    }
    pthread_testcancel();
    return wake;
}

void AwaitTurn()
{
    // In real time: who made the thread may be looking for it without a pause.
    constexpr timespec PATIENCE = {0, 300'000'000};
    if (!Virtual() || place.isEmulated)
    {
        return;
    }
    Slot& slot = OwnSlot();
    const Due due(slot, Monotonic());
    const Waiting waiting(slot, Stand::Parked);
    FutexWait(slot.wake, due.unwoken, &PATIENCE);
}

ObjectWait::ObjectWait(const void* what, std::int64_t monotonic)
    : object(what), slot(OwnSlot()), unwoken(BeginWait(slot))
{
    slot.deadline = monotonic;
    const CoreLock lock;
    ObjectWait** end = &objectWaits;
    while (*end != nullptr)
    {
        end = &(*end)->next;
    }
    *end = this;
    ++CountOf(object);
}

ObjectWait::~ObjectWait()
{
    slot.deadline = NEVER;
    const CoreLock lock;
    ObjectWait** link = &objectWaits;
    while (*link != nullptr && *link != this)
    {
        link = &(*link)->next;
    }
    if (*link == this)
    {
        *link = next;
        --CountOf(object);
    }
}

void ObjectWait::Until(std::int64_t monotonic)
{
    slot.deadline = monotonic;
}

Wake ObjectWait::Wait()
{
    return Park(slot, unwoken);
}

int ObjectWait::Announce(const void* object, int most)
{
    if (CountOf(object) == 0)
    {
        return 0;
    }
    const CoreLock lock;
    int woken = 0;
    for (ObjectWait* wait = objectWaits; wait != nullptr && woken < most; wait = wait->next)
    {
        std::uint32_t unwoken = wait->unwoken;
        if (wait->object == object &&
            wait->slot.wake.compare_exchange_strong(unwoken, With(unwoken, Wake::Event)))
        {
            Change(wait->slot, Stand::Parked, Stand::Runs);
            FutexWake(wait->slot.wake);
            ++woken;
        }
    }
    return woken;
}

void ObjectWait::ForgetAll() TAV_LOCKS_UNSEEN // nobody else is in the child, and who had the mutex is not
{
    objectWaits = nullptr;
    for (std::atomic<int>& waits : objectWaitCounts)
    {
        waits = 0;
    }
}

Wake WaitDescriptors(pollfd* fds, nfds_t count, std::int64_t monotonic, const sigset_t* mask, int& ready)
{
    if (place.beforeCall != nullptr)
    {
        place.beforeCall();
    }
    constexpr nfds_t MOST = 1024;
    std::array<pollfd, MOST + 1> all; // NOLINT(cppcoreguidelines-pro-type-member-init): as much as is used
    if (count > MOST)
    {
        std::fprintf(stderr, "virtual time: a wait for more than %zu descriptors\n", std::size_t{MOST});
        std::abort();
    }
    std::copy_n(fds, count, all.begin()); // none at all: fds may be null
    const Event event;
    all[count] = {event.Number(), POLLIN, 0};

    Slot& slot = OwnSlot();
    int result = 0;
    int error = 0;
    Wake wake = Wake::None;
    {
        const Due due(slot, monotonic, event.Number());
        const Waiting waiting(slot, Stand::InCall, all.data(), count + 1);
        result = REAL_CALL(ppoll)(all.data(), count + 1, nullptr, mask);
        error = errno;
        wake = WakeOf(slot.wake);
    }
    if (result < 0)
    {
        ready = -1;
        errno = error;
        return Wake::Signal;
    }
    if (all[count].revents != 0)
    {
        event.Clear();
        --result;
    }
    std::copy_n(all.begin(), count, fds);
    ready = result;
    return wake == Wake::Deadline ? wake : Wake::Event;
}

bool FireEarliest()
{
    const Earliest earliest = FindEarliest();
    if (earliest.slot == nullptr)
    {
        return false;
    }
    Time& time = place.board->time;
    const std::int64_t due = earliest.deadline - time.startMonotonic;
    if (time.heldSince != 0)
    {
        return due <= Passed() && Fire(earliest);
    }
    const std::int64_t before = time.passed;
    time.passed = std::max(due, before);
    if (!Fire(earliest))
    {
        time.passed = before;
        return false;
    }
    return true;
}

void FireAll()
{
    for (;;)
    {
        const Earliest earliest = FindEarliest();
        if (earliest.slot == nullptr)
        {
            return;
        }
        Fire(earliest);
    }
}

bool SomebodyWaits()
{
    Board& board = *place.board;
    return std::any_of(board.slots.begin(), board.slots.begin() + board.used,
                       [](const Slot& slot) { return slot.deadline != NEVER; });
}

void ForgetWaiters()
{
    coreMutex = PTHREAD_MUTEX_INITIALIZER;
    mine = nullptr;
    ObjectWait::ForgetAll();
}

void Wakeful(Slot& slot, Wake wake)
{
    std::uint32_t unwoken = slot.wake;
    if (WakeOf(unwoken) == Wake::None && slot.wake.compare_exchange_strong(unwoken, With(unwoken, wake)))
    {
        Change(slot, Stand::Parked, Stand::Runs);
        FutexWake(slot.wake);
    }
}

void Interrupt(pthread_t thread)
{
    Board& board = *place.board;
    for (std::uint32_t i = 0; i < board.used; ++i)
    {
        if (board.slots[i].process == getpid() && board.slots[i].handle == thread)
        {
            Wakeful(board.slots[i], Wake::Event);
        }
    }
}

void Disturb(pid_t process)
{
    Board& board = *place.board;
    for (std::uint32_t i = 0; i < board.used; ++i)
    {
        Slot& slot = board.slots[i];
        if (process == 0 || slot.process == process)
        {
            Change(slot, Stand::Parked, Stand::Disturbed);
            Change(slot, Stand::InCall, Stand::Disturbed);
        }
    }
}

void Hold(std::int64_t since)
{
    const Time& time = place.board->time;
    if (time.heldSince == 0)
    {
        ChangeTime(time.passed, since);
    }
}

void LetGo()
{
    if (place.board->time.heldSince != 0)
    {
        ChangeTime(Passed(), 0);
    }
}

void AddTerminal(int fd)
{
    for (auto& terminal : terminals)
    {
        int none = 0;
        if (terminal.compare_exchange_strong(none, fd))
        {
            return;
        }
    }
}

void RemoveTerminal(int fd)
{
    for (auto& terminal : terminals)
    {
        int present = fd;
        terminal.compare_exchange_strong(present, 0);
    }
}

std::size_t ListTerminals(pollfd* looks)
{
    std::size_t count = 0;
    for (auto& terminal : terminals)
    {
        if (const int fd = terminal; fd > 0)
        {
            looks[count++] = {fd, POLLIN, 0};
        }
    }
    return count;
}

void RealPause(std::int64_t nanoseconds)
{
    const timespec pause = {0, static_cast<long>(nanoseconds)};
    RawCall(CLOCK_NANOSLEEP, CLOCK_MONOTONIC, 0, &pause, nullptr);
}

void AwaitEntry(std::uint32_t seen, std::int64_t most)
{
    Board& board = *place.board;
    const timespec limit = {0, static_cast<long>(most)};
    board.leaderSleeps = true;
    FutexWait(board.entries, seen, &limit);
    board.leaderSleeps = false;
}

}
