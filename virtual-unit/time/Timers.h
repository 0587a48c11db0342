#ifndef VIRTUAL_UNIT_TIME_TIMERS_H
#define VIRTUAL_UNIT_TIME_TIMERS_H

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <sys/time.h>
#include <sys/types.h>

/// The timers of this process in virtual time: descriptors, timers that send signals, and the alarm.
namespace VirtualTime::Timers
{

/// The alarm of a process, which outlasts the program that it executes.
struct Alarm
{
    std::atomic<pid_t> process{0}; ///< 0: free
    std::atomic<std::int64_t> deadline{0};
    std::atomic<std::int64_t> interval{0};
};

struct Place
{
    Alarm* alarms;
    std::size_t alarmCount;
    void (*haveAgent)(); ///< somebody who calls Fire() when the earliest deadline has come
    void (*tellAgent)(); ///< that the earliest deadline may be another one
};

extern Place place;

std::int64_t Earliest(); ///< deadline, of the monotonic clock in nanoseconds; Waits::NEVER: none
void Fire();             ///< those whose deadline has come
void ForgetAll();        ///< in the child of a fork
void TakeOverAlarm();    ///< in a program that was executed

// As the functions of like names. -1 with errno EINVAL for what is no timer of this time.

bool IsVirtual(clockid_t clock);
int CreateDescriptor(clockid_t clock, int flags);
int SetDescriptor(int fd, int flags, const itimerspec* value, itimerspec* old);
int GetDescriptor(int fd, itimerspec* value);
void CloseDescriptor(int fd);
bool IsDescriptor(int fd);

int Create(clockid_t clock, const sigevent* event, timer_t* timer);
bool IsTimer(timer_t timer);
int Set(timer_t timer, int flags, const itimerspec* value, itimerspec* old);
int Get(timer_t timer, itimerspec* value);
int Delete(timer_t timer);
int Overrun(timer_t timer);

void SetAlarm(const itimerval& value, itimerval* old);
void GetAlarm(itimerval& value);

}

#endif
