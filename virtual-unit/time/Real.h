#ifndef VIRTUAL_UNIT_TIME_REAL_H
#define VIRTUAL_UNIT_TIME_REAL_H

#include <algorithm>
#include <array>
#include <dlfcn.h>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

namespace VirtualTime
{

/// On a 32-bit machine whose times and file sizes are built with 64 bits all the same, the C library's
/// headers give its functions other names.
#if __SIZEOF_POINTER__ == 4 && defined(_TIME_BITS) && _TIME_BITS == 64
#define VIRTUAL_TIME_LONG_NAMES 1
constexpr std::string_view LONG_NAMES[][2] = {
    {"aio_suspend", "__aio_suspend_time64"},
    {"clock_gettime", "__clock_gettime64"},
    {"clock_nanosleep", "__clock_nanosleep_time64"},
    {"cnd_timedwait", "__cnd_timedwait64"},
    {"epoll_pwait2", "__epoll_pwait2_time64"},
    {"fcntl", "__fcntl_time64"},
    {"fopen", "fopen64"},
    {"fstat", "__fstat64_time64"},
    {"fstatat", "__fstatat64_time64"},
    {"ftruncate", "ftruncate64"},
    {"futimesat", "__futimesat64"},
    {"getitimer", "__getitimer64"},
    {"getsockopt", "__getsockopt64"},
    {"gettimeofday", "__gettimeofday64"},
    {"ioctl", "__ioctl_time64"},
    {"localtime_r", "__localtime64_r"},
    {"lseek", "lseek64"},
    {"lstat", "__lstat64_time64"},
    {"mq_timedreceive", "__mq_timedreceive_time64"},
    {"mq_timedsend", "__mq_timedsend_time64"},
    {"mtx_timedlock", "__mtx_timedlock64"},
    {"nanosleep", "__nanosleep64"},
    {"open", "open64"},
    {"openat", "openat64"},
    {"ppoll", "__ppoll64"},
    {"pselect", "__pselect64"},
    {"pthread_clockjoin_np", "__pthread_clockjoin_np64"},
    {"pthread_cond_clockwait", "__pthread_cond_clockwait64"},
    {"pthread_cond_timedwait", "__pthread_cond_timedwait64"},
    {"pthread_mutex_clocklock", "__pthread_mutex_clocklock64"},
    {"pthread_mutex_timedlock", "__pthread_mutex_timedlock64"},
    {"pthread_rwlock_clockrdlock", "__pthread_rwlock_clockrdlock64"},
    {"pthread_rwlock_clockwrlock", "__pthread_rwlock_clockwrlock64"},
    {"pthread_rwlock_timedrdlock", "__pthread_rwlock_timedrdlock64"},
    {"pthread_rwlock_timedwrlock", "__pthread_rwlock_timedwrlock64"},
    {"pthread_timedjoin_np", "__pthread_timedjoin_np64"},
    {"recvmmsg", "__recvmmsg64"},
    {"recvmsg", "__recvmsg64"},
    {"select", "__select64"},
    {"sem_clockwait", "__sem_clockwait64"},
    {"sem_timedwait", "__sem_timedwait64"},
    {"semtimedop", "__semtimedop64"},
    {"sendmsg", "__sendmsg64"},
    {"setitimer", "__setitimer64"},
    {"setsockopt", "__setsockopt64"},
    {"sigtimedwait", "__sigtimedwait64"},
    {"stat", "__stat64_time64"},
    {"thrd_sleep", "__thrd_sleep64"},
    {"time", "__time64"},
    {"timer_gettime", "__timer_gettime64"},
    {"timer_settime", "__timer_settime64"},
    {"timerfd_gettime", "__timerfd_gettime64"},
    {"timerfd_settime", "__timerfd_settime64"},
    {"timespec_get", "__timespec_get64"},
    {"utimensat", "__utimensat64"},
};
#else
#define VIRTUAL_TIME_LONG_NAMES 0
constexpr std::array<std::array<std::string_view, 2>, 0> LONG_NAMES{};
#endif

struct FunctionName
{
    consteval FunctionName(const char* name) // NOLINT(google-explicit-constructor): a text in angle brackets
    {
        std::string_view symbol = name;
        for (const auto& each : LONG_NAMES)
        {
            if (each[0] == name)
            {
                symbol = each[1];
            }
        }
        std::copy(symbol.begin(), symbol.end(), text);
    }

    char text[40]{};
};

/// The C library's own function of that name, or the sanitizer's in front of it. It is looked for when the
/// program begins: a signal handler must not be the first to do it.
template <FunctionName NAME>
class RealFunction
{
public:
    /// Also before constructors have run.
    static void* Get()
    {
        void* found = __atomic_load_n(&address, __ATOMIC_RELAXED);
        if (found == nullptr)
        {
            found = dlsym(RTLD_NEXT, NAME.text);
            __atomic_store_n(&address, found, __ATOMIC_RELAXED);
        }
        return found;
    }

    static inline const bool IS_THERE = Get() != nullptr;

private:
    static inline constinit void* address = nullptr;
};

}

/// Begins the definition of a function of the C library that is called in place of the real one.
#define STAND_IN extern "C" __attribute__((visibility("default")))

/// Within a stand-in: calls the real function.
#define REAL_CALL(name)                                                                                      \
    (static_cast<void>(&VirtualTime::RealFunction<#name>::IS_THERE),                                         \
     reinterpret_cast<decltype(&::name)>(VirtualTime::RealFunction<#name>::Get()))

namespace VirtualTime
{

/// A system call as such: the stand-ins and the sanitizers have no part in it. As syscall().
template <class... Arguments>
long RawCall(long number, Arguments... arguments)
{
    return REAL_CALL(syscall)(number, arguments...);
}

// The system calls that take the times of this build.
#if VIRTUAL_TIME_LONG_NAMES
constexpr long FUTEX = SYS_futex_time64;
constexpr long CLOCK_NANOSLEEP = SYS_clock_nanosleep_time64;
constexpr long CLOCK_GETTIME = SYS_clock_gettime64;
#else
constexpr long FUTEX = SYS_futex;
constexpr long CLOCK_NANOSLEEP = SYS_clock_nanosleep;
constexpr long CLOCK_GETTIME = SYS_clock_gettime;
#endif

}

#endif
