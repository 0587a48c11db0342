// What the tests of virtual time run on the virtual unit: each way to wait, by name.
// usage: PROBE WAY SECONDS [beside]   beside: another thread sleeps in steps of a millisecond meanwhile
// Prints how long it took by the steady clock and by the wall clock, in milliseconds.

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <future>
#include <linux/futex.h>
#include <map>
#include <mqueue.h>
#include <mutex>
#include <poll.h>
#include <semaphore.h>
#include <semaphore>
#include <shared_mutex>
#include <string>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <threads.h>
#include <unistd.h>

namespace
{

int SECONDS = 0; // even
timespec DURATION = {};

timespec At(clockid_t clock)
{
    timespec then = {};
    clock_gettime(clock, &then);
    then.tv_sec += SECONDS;
    return then;
}

void Require(bool condition)
{
    if (!condition)
    {
        std::perror("the wait did not end as it should");
        std::_Exit(EXIT_FAILURE);
    }
}

/// A mutex (of any kind) that another thread holds all the while.
template <class Mutex>
void WaitForMutex(const std::function<bool(Mutex&)>& tryToLock)
{
    Mutex mutex;
    mutex.lock();
    std::thread([&] { Require(!tryToLock(mutex)); }).join();
    mutex.unlock();
}

std::atomic<int> alarms{0};

void CountAlarm(int)
{
    ++alarms;
}

/// A signal that a timer sends.
void AwaitAlarm(const std::function<void()>& set)
{
    struct sigaction action = {};
    action.sa_handler = CountAlarm;
    sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm;
    sigset_t before;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    sigprocmask(SIG_BLOCK, &alarm, &before);
    set();
    while (alarms == 0)
    {
        sigsuspend(&before);
    }
}

void WaitForTimerDescriptor()
{
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    const itimerspec value = {{1, 0}, {SECONDS - 1, 0}};
    timerfd_settime(timer, 0, &value, nullptr);
    std::uint64_t expirations = 0;
    Require(read(timer, &expirations, sizeof expirations) == sizeof expirations && expirations == 1);
    pollfd input = {timer, POLLIN, 0};
    Require(poll(&input, 1, -1) == 1);
    itimerspec left = {};
    timerfd_gettime(timer, &left);
    Require(left.it_interval.tv_sec == 1);
    close(timer);
}

void WaitForTimer(bool thread)
{
    sigevent event = {};
    static std::binary_semaphore done{0};
    event.sigev_notify = thread ? SIGEV_THREAD : SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    event.sigev_notify_function = [](sigval) { done.release(); };
    timer_t timer = {};
    Require(timer_create(CLOCK_REALTIME, &event, &timer) == 0);
    const auto set = [&] {
        const itimerspec value = {{0, 0}, DURATION};
        timer_settime(timer, 0, &value, nullptr);
    };
    if (thread)
    {
        set();
        done.acquire();
    }
    else
    {
        AwaitAlarm(set);
    }
    timer_delete(timer);
}

void WaitForSocket(const std::function<ssize_t(int)>& receive)
{
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data());
    const timeval limit = {SECONDS, 0};
    setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    Require(receive(ends[0]) == -1 && errno == EAGAIN);
    close(ends[0]);
    close(ends[1]);
}

void WaitForRoomInSocket()
{
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data());
    const timeval limit = {SECONDS, 0};
    setsockopt(ends[0], SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    const std::string bytes(4096, 'x');
    while (send(ends[0], bytes.data(), bytes.size(), MSG_DONTWAIT) > 0)
    {
    }
    Require(send(ends[0], bytes.data(), bytes.size(), 0) == -1 && errno == EAGAIN);
    close(ends[0]);
    close(ends[1]);
}

/// A queue for one message.
mqd_t OpenQueue()
{
    const std::string name = "/tav-time-probe-" + std::to_string(getpid());
    mq_attr attributes = {};
    attributes.mq_maxmsg = 1;
    attributes.mq_msgsize = 1;
    const mqd_t queue = mq_open(name.c_str(), O_CREAT | O_RDWR, 0600, &attributes);
    Require(queue != -1);
    mq_unlink(name.c_str());
    return queue;
}

void WaitForMessage()
{
    const mqd_t queue = OpenQueue();
    char byte = 0;
    const timespec then = At(CLOCK_REALTIME);
    Require(mq_timedreceive(queue, &byte, 1, nullptr, &then) == -1 && errno == ETIMEDOUT);
    mq_close(queue);
}

void WaitForRoomInQueue()
{
    const mqd_t queue = OpenQueue();
    const timespec then = At(CLOCK_REALTIME);
    Require(mq_timedsend(queue, "1", 1, 0, &then) == 0);
    Require(mq_timedsend(queue, "2", 1, 0, &then) == -1 && errno == ETIMEDOUT);
    mq_close(queue);
}

void WaitForSystemVSemaphore()
{
    const int set = semget(IPC_PRIVATE, 1, 0600);
    sembuf operation = {0, -1, 0};
    const bool inVain = semtimedop(set, &operation, 1, &DURATION) == -1 && errno == EAGAIN;
    semctl(set, 0, IPC_RMID);
    Require(inVain);
}

void WaitForThread()
{
    std::atomic<bool> end{false};
    std::thread other([&] { end.wait(false); });
    const timespec then = At(CLOCK_REALTIME);
    Require(pthread_timedjoin_np(other.native_handle(), nullptr, &then) == ETIMEDOUT);
    end = true;
    end.notify_all();
    other.join();
}

/// For a thread that ends in time.
void JoinInTime()
{
    pthread_t other = {};
    pthread_create(
        &other, nullptr,
        [](void*) -> void* {
            sleep(static_cast<unsigned>(SECONDS));
            return nullptr;
        },
        nullptr);
    timespec then = At(CLOCK_REALTIME);
    then.tv_sec += 1000;
    Require(pthread_timedjoin_np(other, nullptr, &then) == 0);
}

void WaitForSemaphore(bool monotonic, bool posted)
{
    sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    std::thread poster([&] {
        if (posted)
        {
            sleep(static_cast<unsigned>(SECONDS));
            sem_post(&semaphore);
        }
    });
    timespec then = At(monotonic ? CLOCK_MONOTONIC : CLOCK_REALTIME);
    then.tv_sec += posted ? 1000 : 0;
    const int result =
        monotonic ? sem_clockwait(&semaphore, CLOCK_MONOTONIC, &then) : sem_timedwait(&semaphore, &then);
    Require(posted ? result == 0 : result == -1 && errno == ETIMEDOUT);
    poster.join();
}

void WaitForFutex()
{
    std::uint32_t word = 7;
    Require(syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, 7, &DURATION, nullptr, 0) == -1 &&
            errno == ETIMEDOUT);
}

/// The condition's mutex is held by another thread when the time is over.
void WaitForConditionWhoseMutexIsHeld()
{
    std::mutex access;
    std::condition_variable never;
    std::unique_lock lock(access);
    std::thread holder([&] {
        const std::lock_guard held(access);
        sleep(static_cast<unsigned>(SECONDS));
    });
    never.wait_for(lock, std::chrono::milliseconds(500));
    lock.unlock();
    holder.join();
}

void WaitWithC11()
{
    cnd_t condition;
    mtx_t mutex;
    cnd_init(&condition);
    mtx_init(&mutex, mtx_timed);
    mtx_lock(&mutex);
    timespec then = {};
    timespec_get(&then, TIME_UTC);
    then.tv_sec += SECONDS / 2;
    Require(cnd_timedwait(&condition, &mutex, &then) == thrd_timedout);
    const timespec rest = {SECONDS / 2, 0};
    thrd_sleep(&rest, nullptr);
}

/// Another thread has the mutex for half the time, and signals at the end of all of it.
void WaitWithC11ForAnother()
{
    cnd_t condition;
    mtx_t mutex;
    cnd_init(&condition);
    mtx_init(&mutex, mtx_timed);
    std::atomic<bool> taken{false};
    bool come = false;
    std::thread other([&] {
        mtx_lock(&mutex);
        taken = true;
        sleep(static_cast<unsigned>(SECONDS) / 2);
        mtx_unlock(&mutex);
        sleep(static_cast<unsigned>(SECONDS) - static_cast<unsigned>(SECONDS) / 2);
        mtx_lock(&mutex);
        come = true;
        cnd_signal(&condition);
        cnd_broadcast(&condition);
        mtx_unlock(&mutex);
    });
    while (!taken)
    {
        sched_yield();
    }
    timespec then = {};
    timespec_get(&then, TIME_UTC);
    then.tv_sec += SECONDS;
    Require(mtx_timedlock(&mutex, &then) == thrd_success);
    while (!come)
    {
        Require(cnd_wait(&condition, &mutex) == thrd_success);
    }
    mtx_unlock(&mutex);
    other.join();
}

/// A timer tells halfway what is left, and afterwards that it was not late.
void LookAtTimer()
{
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    timer_t timer = {};
    Require(timer_create(CLOCK_MONOTONIC, &event, &timer) == 0);
    AwaitAlarm([&] {
        const itimerspec value = {{0, 0}, DURATION};
        timer_settime(timer, 0, &value, nullptr);
        sleep(static_cast<unsigned>(SECONDS) / 2);
        itimerspec left = {};
        Require(timer_gettime(timer, &left) == 0 && left.it_value.tv_sec == SECONDS - SECONDS / 2);
    });
    Require(timer_getoverrun(timer) == 0);
    timer_delete(timer);
}

/// The alarm tells halfway what is left.
void LookAtAlarm()
{
    AwaitAlarm([] {
        const itimerval value = {{0, 0}, {SECONDS, 0}};
        setitimer(ITIMER_REAL, &value, nullptr);
        sleep(static_cast<unsigned>(SECONDS) / 2);
        itimerval left = {};
        Require(getitimer(ITIMER_REAL, &left) == 0 && left.it_value.tv_sec == SECONDS - SECONDS / 2);
    });
}

/// An alarm each half second.
void CountAlarms()
{
    struct sigaction action = {};
    action.sa_handler = CountAlarm;
    sigaction(SIGALRM, &action, nullptr);
    ualarm(500'000, 500'000);
    while (alarms < 2 * SECONDS)
    {
        pause();
    }
    ualarm(0, 0);
}

void WaitForConnection()
{
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX; // the kernel chooses a name that is no file's
    Require(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address.sun_family) == 0 &&
            listen(listener, 1) == 0);
    socklen_t length = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    std::thread caller([&] {
        sleep(static_cast<unsigned>(SECONDS));
        const int end = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        Require(connect(end, reinterpret_cast<const sockaddr*>(&address), length) == 0);
        close(end);
    });
    const int accepted = accept(listener, nullptr, nullptr);
    Require(accepted >= 0);
    caller.join();
    close(accepted);
    close(listener);
}

void WaitByLock(const std::function<int(pthread_rwlock_t*, const timespec*)>& wait)
{
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    pthread_rwlock_wrlock(&lock);
    std::thread([&] {
        const timespec then = At(CLOCK_REALTIME);
        Require(wait(&lock, &then) == ETIMEDOUT);
    }).join();
}

/// A thread that is cancelled in its wait, after all the time.
void BeCancelled()
{
    std::mutex access;
    std::condition_variable never;
    std::thread waiter([&] {
        std::unique_lock lock(access);
        never.wait_for(lock, std::chrono::hours(100));
    });
    sleep(static_cast<unsigned>(SECONDS));
    pthread_cancel(waiter.native_handle());
    waiter.join();
}

void WaitForCondition(
    const std::function<void(std::condition_variable&, std::unique_lock<std::mutex>&)>& wait)
{
    std::mutex access;
    std::condition_variable never;
    std::unique_lock lock(access);
    wait(never, lock);
}

void WaitForSignal()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    sigtimedwait(&signals, nullptr, &DURATION);
}

void AwaitSignalOfThread()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    std::thread sender([] {
        sleep(static_cast<unsigned>(SECONDS));
        kill(getpid(), SIGUSR1);
    });
    int signal = 0;
    sigwait(&signals, &signal);
    Require(signal == SIGUSR1);
    sender.join();
}

void AwaitSignalOfThreadAndItsSender()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    std::thread sender([] {
        sleep(static_cast<unsigned>(SECONDS));
        kill(getpid(), SIGUSR1);
    });
    siginfo_t info = {};
    Require(sigwaitinfo(&signals, &info) == SIGUSR1 && info.si_pid == getpid());
    sender.join();
}

void SleepBehindThreadWhoseBeginWasLookedFor()
{
    std::atomic<bool> begun{false};
    std::thread other([&begun] { begun = true; });
    while (!begun)
    {
        sched_yield();
    }
    other.join();
    sleep(static_cast<unsigned>(SECONDS));
}

void SleepUntilThen()
{
    timespec then = {};
    clock_gettime(CLOCK_MONOTONIC, &then);
    then.tv_sec += SECONDS;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &then, nullptr);
}

void WaitForEpoll()
{
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event = {};
    epoll_wait(epoll, &event, 1, SECONDS * 1000);
    close(epoll);
}

/// Reads from a terminal, whose time-out is at most 25.5 seconds.
void ReadFromSilentPort()
{
    const int port = open("/dev/ttymxc2", O_RDWR | O_NOCTTY);
    termios settings = {};
    tcgetattr(port, &settings);
    cfmakeraw(&settings);
    settings.c_cc[VMIN] = 0;
    const int step = std::min(SECONDS, 10);
    settings.c_cc[VTIME] = static_cast<cc_t>(10 * step);
    tcsetattr(port, TCSANOW, &settings);
    char byte = 0;
    for (int i = 0; i < SECONDS / step; ++i)
    {
        if (read(port, &byte, 1) != 0)
        {
            std::exit(EXIT_FAILURE);
        }
    }
    close(port);
}

void SleepInThreads()
{
    std::thread shorter([] { sleep(static_cast<unsigned>(SECONDS) / 2); });
    std::thread longer([] { sleep(static_cast<unsigned>(SECONDS)); });
    shorter.join();
    longer.join();
}

/// A child that goes on with this program.
void SleepInChild()
{
    const pid_t child = fork();
    if (child == 0)
    {
        sleep(static_cast<unsigned>(SECONDS));
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

/// A sleep that a signal ends after half the time, and the rest of it.
void SleepInterrupted()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR2, &action, nullptr);
    const pthread_t sleeper = pthread_self();
    std::thread waker([sleeper] {
        sleep(static_cast<unsigned>(SECONDS) / 2);
        pthread_kill(sleeper, SIGUSR2);
    });
    timespec left = {};
    if (nanosleep(&DURATION, &left) != -1 || left.tv_sec != SECONDS / 2)
    {
        std::exit(EXIT_FAILURE);
    }
    nanosleep(&left, nullptr);
    waker.join();
}

const std::map<std::string, std::function<void()>> WAYS = {
    {"usleep", [] { usleep(static_cast<useconds_t>(SECONDS) * 1'000'000); }},
    {"sleep", [] { sleep(static_cast<unsigned>(SECONDS)); }},
    {"nanosleep", [] { nanosleep(&DURATION, nullptr); }},
    {"clock_nanosleep", [] { clock_nanosleep(CLOCK_REALTIME, 0, &DURATION, nullptr); }},
    {"clock_nanosleep-until", SleepUntilThen},
    {"poll", [] { poll(nullptr, 0, SECONDS * 1000); }},
    {"ppoll", [] { ppoll(nullptr, 0, &DURATION, nullptr); }},
    {"select",
     [] {
         timeval limit = {SECONDS, 0};
         select(0, nullptr, nullptr, nullptr, &limit);
     }},
    {"pselect", [] { pselect(0, nullptr, nullptr, nullptr, &DURATION, nullptr); }},
    {"epoll_wait", WaitForEpoll},
    {"sigtimedwait", WaitForSignal},
    {"sigwait", AwaitSignalOfThread},
    {"condition",
     [] {
         WaitForCondition(
             [](auto& never, auto& lock) { never.wait_for(lock, std::chrono::seconds(SECONDS)); });
     }},
    {"condition-until",
     [] {
         WaitForCondition([](auto& never, auto& lock) {
             never.wait_until(lock, std::chrono::system_clock::now() + std::chrono::seconds(SECONDS));
         });
     }},
    {"terminal", ReadFromSilentPort},
    {"threads", SleepInThreads},
    {"thread-begun", SleepBehindThreadWhoseBeginWasLookedFor},
    {"child", SleepInChild},
    {"interrupted", SleepInterrupted},
    {"future",
     [] {
         std::promise<void> never;
         never.get_future().wait_for(std::chrono::seconds(SECONDS));
     }},
    {"counting_semaphore",
     [] { Require(!std::counting_semaphore<>(0).try_acquire_for(std::chrono::seconds(SECONDS))); }},
    {"timed_mutex",
     [] {
         WaitForMutex<std::timed_mutex>(
             [](auto& mutex) { return mutex.try_lock_for(std::chrono::seconds(SECONDS)); });
     }},
    {"timed_mutex-until",
     [] {
         WaitForMutex<std::timed_mutex>([](auto& mutex) {
             return mutex.try_lock_until(std::chrono::system_clock::now() + std::chrono::seconds(SECONDS));
         });
     }},
    {"shared_timed_mutex",
     [] {
         WaitForMutex<std::shared_timed_mutex>(
             [](auto& mutex) { return mutex.try_lock_shared_for(std::chrono::seconds(SECONDS)); });
     }},
    {"timedrdlock", [] { WaitByLock(pthread_rwlock_timedrdlock); }},
    {"timedwrlock", [] { WaitByLock(pthread_rwlock_timedwrlock); }},
    {"sem_timedwait", [] { WaitForSemaphore(false, false); }},
    {"sem_clockwait", [] { WaitForSemaphore(true, false); }},
    {"sem_timedwait-posted", [] { WaitForSemaphore(false, true); }},
    {"futex", WaitForFutex},
    {"syscall-nanosleep", [] { syscall(SYS_nanosleep, &DURATION, nullptr); }},
    {"condition-held", WaitForConditionWhoseMutexIsHeld},
    {"timerfd", WaitForTimerDescriptor},
    {"timer_create", [] { WaitForTimer(false); }},
    {"timer_create-thread", [] { WaitForTimer(true); }},
    {"alarm", [] { AwaitAlarm([] { alarm(static_cast<unsigned>(SECONDS)); }); }},
    {"setitimer",
     [] {
         AwaitAlarm([] {
             const itimerval value = {{0, 0}, {SECONDS, 0}};
             setitimer(ITIMER_REAL, &value, nullptr);
         });
     }},
    {"recv",
     [] {
         WaitForSocket([](int fd) {
             char byte;
             return recv(fd, &byte, 1, 0);
         });
     }},
    {"read-socket",
     [] {
         WaitForSocket([](int fd) {
             char byte;
             return read(fd, &byte, 1);
         });
     }},
    {"epoll_pwait2",
     [] {
         const int epoll = epoll_create1(EPOLL_CLOEXEC);
         epoll_event event = {};
         epoll_pwait2(epoll, &event, 1, &DURATION, nullptr);
         close(epoll);
     }},
    {"send", WaitForRoomInSocket},
    {"mq_timedreceive", WaitForMessage},
    {"mq_timedsend", WaitForRoomInQueue},
    {"semtimedop", WaitForSystemVSemaphore},
    {"timedjoin", WaitForThread},
    {"timedjoin-ended", JoinInTime},
    {"c11", WaitWithC11},
    {"c11-another", WaitWithC11ForAnother},
    {"sigwaitinfo", AwaitSignalOfThreadAndItsSender},
    {"timer_gettime", LookAtTimer},
    {"getitimer", LookAtAlarm},
    {"ualarm", CountAlarms},
    {"accept", WaitForConnection},
    {"recvfrom",
     [] {
         WaitForSocket([](int fd) {
             char byte;
             return recvfrom(fd, &byte, 1, 0, nullptr, nullptr);
         });
     }},
    {"recvmmsg",
     [] {
         WaitForSocket([](int fd) {
             char byte;
             iovec piece = {&byte, 1};
             mmsghdr message = {};
             message.msg_hdr.msg_iov = &piece;
             message.msg_hdr.msg_iovlen = 1;
             return static_cast<ssize_t>(recvmmsg(fd, &message, 1, 0, nullptr));
         });
     }},
    {"cancelled", BeCancelled},
};

template <class Clock>
long Milliseconds(typename Clock::duration duration)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

}

int main(int count, char** arguments)
{
    using Steady = std::chrono::steady_clock;
    using Wall = std::chrono::system_clock;
    const auto way = WAYS.find(arguments[1]);
    if (count < 3 || way == WAYS.end())
    {
        return EXIT_FAILURE;
    }
    SECONDS = std::atoi(arguments[2]);
    DURATION = {SECONDS, 0};
    std::atomic<bool> done{false};
    std::thread beside([&] {
        while (count > 3 && !done)
        {
            usleep(1000);
        }
    });
    const Steady::time_point steady = Steady::now();
    const Wall::time_point wall = Wall::now();
    way->second();
    std::printf("%ld %ld\n", Milliseconds<Steady>(Steady::now() - steady),
                Milliseconds<Wall>(Wall::now() - wall));
    done = true;
    beside.join();
    return EXIT_SUCCESS;
}
