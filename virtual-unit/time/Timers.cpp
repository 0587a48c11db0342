#include "virtual-unit/time/Timers.h"

#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/RealLock.h"
#include "virtual-unit/time/Waits.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace VirtualTime::Timers
{

namespace
{

using Waits::NEVER;

enum class Kind : std::uint8_t
{
    Free,
    Descriptor,
    Signal, ///< or a thread
    Alarm
};

struct Timer
{
    Kind kind = Kind::Free;
    std::int64_t deadline = NEVER; ///< by the monotonic clock
    std::int64_t interval = 0;
    bool byWallClock = false;
    int fd = -1;
    sigevent event{};
    int overrun = 0;
};

RealMutex mutex = PTHREAD_MUTEX_INITIALIZER;
constexpr std::size_t MOST_TIMERS = 256;
std::array<Timer, MOST_TIMERS> timers TAV_GUARDED_BY(mutex); // the first one is the alarm
std::atomic<std::int64_t> earliest{NEVER};
std::atomic<int> descriptors{0};

/// Whenever a deadline has changed.
void FindEarliest() TAV_REQUIRES(mutex)
{
    earliest = std::ranges::min_element(timers, {}, &Timer::deadline)->deadline;
}

constexpr std::uintptr_t FIRST_ID = 0x40000000; // far from the C library's own

/// What is left; a timer that is due any moment has something left.
std::int64_t Left(const Timer& timer)
{
    return timer.deadline == NEVER ? 0 : std::max<std::int64_t>(timer.deadline - Waits::Monotonic(), 1);
}

void Report(const Timer& timer, itimerspec* value)
{
    if (value != nullptr)
    {
        *value = {ToTimespec(timer.interval), ToTimespec(Left(timer))};
    }
}

Timer* Take(Kind kind, clockid_t clock) TAV_REQUIRES(mutex)
{
    const auto free = std::find_if(timers.begin() + 1, timers.end(),
                                   [](const Timer& timer) { return timer.kind == Kind::Free; });
    if (free == timers.end())
    {
        errno = EAGAIN;
        return nullptr;
    }
    *free = Timer();
    free->kind = kind;
    free->byWallClock = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_ALARM;
    return &*free;
}

bool IsValid(const timespec& time)
{
    return time.tv_sec >= 0 && IsNanosecond(time);
}

/// @return false with errno
bool Arm(Timer& timer, bool absolute, const itimerspec* value, itimerspec* old) TAV_REQUIRES(mutex)
{
    if (value == nullptr || !IsValid(value->it_value) || !IsValid(value->it_interval))
    {
        errno = value == nullptr ? EFAULT : EINVAL;
        return false;
    }
    Report(timer, old);
    const std::int64_t first = ToNanoseconds(value->it_value);
    timer.interval = ToNanoseconds(value->it_interval);
    timer.overrun = 0;
    timer.deadline = NEVER;
    if (first != 0)
    {
        const std::int64_t now = Waits::Monotonic();
        const std::int64_t present = timer.byWallClock ? Waits::Wall() : now;
        timer.deadline = absolute ? std::max(now + first - present, now) : now + first;
    }
    FindEarliest();
    return true;
}

Timer* WithDescriptor(int fd) TAV_REQUIRES(mutex)
{
    const auto timer = std::find_if(timers.begin(), timers.end(), [fd](const Timer& one) {
        return one.kind == Kind::Descriptor && one.fd == fd;
    });
    return timer == timers.end() ? nullptr : &*timer;
}

Timer* WithId(timer_t id) TAV_REQUIRES(mutex)
{
    const auto index = reinterpret_cast<std::uintptr_t>(id) - FIRST_ID;
    return index < timers.size() && timers[index].kind == Kind::Signal ? &timers[index] : nullptr;
}

/// What a thread that a timer starts is to do.
struct Work
{
    void (*function)(sigval);
    sigval value;
};

void* RunWork(void* argument)
{
    const Work work = *static_cast<Work*>(argument);
    delete static_cast<Work*>(argument);
    work.function(work.value);
    return nullptr;
}

void StartThread(const sigevent& event)
{
    auto* const work = new Work{event.sigev_notify_function, event.sigev_value};
    pthread_t thread = {};
    const auto* const attributes = static_cast<const pthread_attr_t*>(event.sigev_notify_attributes);
    if (pthread_create(&thread, attributes, RunWork, work) != 0)
    {
        delete work;
        return;
    }
    pthread_detach(thread); // fails where it was created so
}

void Notify(const Timer& timer, std::int64_t times, int index)
{
    switch (timer.kind)
    {
    case Kind::Descriptor: {
        const auto count = static_cast<std::uint64_t>(times);
        RawCall(SYS_write, timer.fd, &count, sizeof count);
        break;
    }
    case Kind::Alarm:
        Waits::Disturb(getpid());
        RawCall(SYS_kill, getpid(), SIGALRM);
        break;
    case Kind::Signal: {
        if (timer.event.sigev_notify == SIGEV_THREAD)
        {
            StartThread(timer.event);
            break;
        }
        siginfo_t info = {};
        info.si_signo = timer.event.sigev_signo;
        info.si_code = SI_TIMER;
        info.si_timerid = index;
        info.si_overrun = timer.overrun;
        info.si_value = timer.event.sigev_value;
        Waits::Disturb(getpid());
        if (timer.event.sigev_notify == SIGEV_SIGNAL)
        {
            RawCall(SYS_rt_sigqueueinfo, getpid(), info.si_signo, &info);
        }
        else if (timer.event.sigev_notify == SIGEV_THREAD_ID)
        {
            RawCall(SYS_rt_tgsigqueueinfo, getpid(), timer.event._sigev_un._tid, info.si_signo, &info);
        }
        break;
    }
    case Kind::Free:
        break;
    }
}

Alarm* OwnAlarm()
{
    Alarm* const end = place.alarms + place.alarmCount;
    Alarm* const own =
        std::find_if(place.alarms, end, [](const Alarm& alarm) { return alarm.process == getpid(); });
    return own == end ? nullptr : own;
}

/// Where a program that this one executes finds it.
void KeepAlarm(const Timer& alarm)
{
    Alarm* own = OwnAlarm();
    for (std::size_t i = 0; own == nullptr && alarm.deadline != NEVER && i < place.alarmCount; ++i)
    {
        pid_t none = 0;
        if (place.alarms[i].process.compare_exchange_strong(none, getpid()))
        {
            own = &place.alarms[i];
        }
    }
    if (own != nullptr)
    {
        own->deadline = alarm.deadline;
        own->interval = alarm.interval;
        if (alarm.deadline == NEVER)
        {
            own->process = 0;
        }
    }
}

void HaveAgent()
{
    if (place.haveAgent != nullptr)
    {
        place.haveAgent();
    }
}

void TellAgent()
{
    if (place.tellAgent != nullptr)
    {
        place.tellAgent();
    }
}

}

Place place = {nullptr, 0, nullptr, nullptr};

std::int64_t Earliest()
{
    return earliest;
}

void Fire()
{
    if (earliest > Waits::Monotonic())
    {
        return;
    }
    for (std::size_t i = 0; i < MOST_TIMERS; ++i)
    {
        Timer due;
        std::int64_t times = 1;
        {
            const RealLock lock(mutex);
            Timer& timer = timers[i];
            const std::int64_t now = Waits::Monotonic();
            if (timer.deadline > now)
            {
                continue;
            }
            if (timer.interval > 0)
            {
                times += (now - timer.deadline) / timer.interval;
                timer.deadline += times * timer.interval;
            }
            else
            {
                timer.deadline = NEVER;
            }
            timer.overrun = static_cast<int>(times - 1);
            due = timer;
            FindEarliest();
            if (timer.kind == Kind::Alarm)
            {
                KeepAlarm(timer);
            }
        }
        Notify(due, times, static_cast<int>(FIRST_ID + i));
    }
}

void ForgetAll() TAV_LOCKS_UNSEEN // nobody else is in the child, and who had the mutex is not
{
    mutex = PTHREAD_MUTEX_INITIALIZER;
    for (Timer& timer : timers)
    {
        timer.deadline = NEVER; // a descriptor is shared with the parent, which goes on with it
        timer.kind = timer.kind == Kind::Descriptor ? timer.kind : Kind::Free;
    }
    earliest = NEVER;
}

void TakeOverAlarm()
{
    const Alarm* const alarm = OwnAlarm();
    if (alarm == nullptr)
    {
        return;
    }
    const std::int64_t left = std::max<std::int64_t>(alarm->deadline - Waits::Monotonic(), 1000);
    SetAlarm({ToTimeval(alarm->interval), ToTimeval(left)}, nullptr);
}

bool IsVirtual(clockid_t clock)
{
    return Waits::Virtual() &&
           (clock == CLOCK_REALTIME || clock == CLOCK_MONOTONIC || clock == CLOCK_BOOTTIME ||
            clock == CLOCK_REALTIME_ALARM || clock == CLOCK_BOOTTIME_ALARM || clock == CLOCK_TAI);
}

int CreateDescriptor(clockid_t clock, int flags)
{
    HaveAgent();
    const int fd = eventfd(0, ((flags & TFD_NONBLOCK) != 0 ? EFD_NONBLOCK : 0) |
                                  ((flags & TFD_CLOEXEC) != 0 ? EFD_CLOEXEC : 0));
    if (fd < 0)
    {
        return -1;
    }
    const RealLock lock(mutex);
    Timer* const timer = Take(Kind::Descriptor, clock);
    if (timer == nullptr)
    {
        REAL_CALL(close)(fd);
        return -1;
    }
    timer->fd = fd;
    ++descriptors;
    return fd;
}

int SetDescriptor(int fd, int flags, const itimerspec* value, itimerspec* old)
{
    {
        const RealLock lock(mutex);
        Timer* const timer = WithDescriptor(fd);
        if (timer == nullptr)
        {
            errno = EINVAL;
            return -1;
        }
        pollfd expired = {fd, POLLIN, 0};
        std::uint64_t count = 0;
        if (REAL_CALL(poll)(&expired, 1, 0) > 0)
        {
            RawCall(SYS_read, fd, &count, sizeof count); // what has not been read is forgotten
        }
        if (!Arm(*timer, (flags & TFD_TIMER_ABSTIME) != 0, value, old))
        {
            return -1;
        }
    }
    HaveAgent();
    TellAgent();
    return 0;
}

int GetDescriptor(int fd, itimerspec* value)
{
    const RealLock lock(mutex);
    const Timer* const timer = WithDescriptor(fd);
    if (timer == nullptr)
    {
        errno = EINVAL;
        return -1;
    }
    Report(*timer, value);
    return 0;
}

void CloseDescriptor(int fd)
{
    if (descriptors == 0)
    {
        return;
    }
    const RealLock lock(mutex);
    if (Timer* const timer = WithDescriptor(fd); timer != nullptr)
    {
        *timer = Timer();
        --descriptors;
        FindEarliest();
    }
}

bool IsDescriptor(int fd)
{
    if (descriptors == 0)
    {
        return false;
    }
    const RealLock lock(mutex);
    return WithDescriptor(fd) != nullptr;
}

int Create(clockid_t clock, const sigevent* event, timer_t* id)
{
    HaveAgent();
    const RealLock lock(mutex);
    Timer* const timer = Take(Kind::Signal, clock);
    if (timer == nullptr)
    {
        return -1;
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): what an ID is behind its type is the system's own affair
    *id = reinterpret_cast<timer_t>(FIRST_ID + static_cast<std::uintptr_t>(timer - timers.data()));
    if (event != nullptr)
    {
        timer->event = *event;
    }
    else
    {
        timer->event.sigev_notify = SIGEV_SIGNAL;
        timer->event.sigev_signo = SIGALRM;
        timer->event.sigev_value.sival_ptr = *id;
    }
    return 0;
}

bool IsTimer(timer_t timer)
{
    const RealLock lock(mutex);
    return WithId(timer) != nullptr;
}

int Set(timer_t id, int flags, const itimerspec* value, itimerspec* old)
{
    {
        const RealLock lock(mutex);
        Timer* const timer = WithId(id);
        if (!Arm(*timer, (flags & TIMER_ABSTIME) != 0, value, old))
        {
            return -1;
        }
    }
    HaveAgent();
    TellAgent();
    return 0;
}

int Get(timer_t id, itimerspec* value)
{
    const RealLock lock(mutex);
    Report(*WithId(id), value);
    return 0;
}

int Delete(timer_t id)
{
    const RealLock lock(mutex);
    *WithId(id) = Timer();
    FindEarliest();
    return 0;
}

int Overrun(timer_t id)
{
    const RealLock lock(mutex);
    return WithId(id)->overrun;
}

void SetAlarm(const itimerval& value, itimerval* old)
{
    HaveAgent();
    {
        const RealLock lock(mutex);
        Timer& alarm = timers.front();
        if (old != nullptr)
        {
            *old = {ToTimeval(alarm.interval), ToTimeval(Left(alarm))};
        }
        const std::int64_t first = ToNanoseconds(value.it_value);
        alarm = Timer();
        alarm.kind = Kind::Alarm;
        alarm.interval = ToNanoseconds(value.it_interval);
        alarm.deadline = first == 0 ? NEVER : Waits::Monotonic() + first;
        FindEarliest();
        KeepAlarm(alarm);
    }
    TellAgent();
}

void GetAlarm(itimerval& value)
{
    const RealLock lock(mutex);
    const Timer& alarm = timers.front();
    value = {ToTimeval(alarm.interval), ToTimeval(Left(alarm))};
}

}
