// The functions of the C library that the test program defines in place of the real ones. Nothing in them
// allocates, but for what Output gathers: they are called from everywhere, early and late.

#include "tests/kit/System.h"

#include "tests/kit/Leaks.h"
#include "tests/kit/MessageDevice.h"
#include "tests/kit/Output.h"
#include "tests/kit/OutputQueue.h"
#include "virtual-unit/time/Calls.h"
#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/Waits.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace Kit
{

namespace
{

namespace Calls = VirtualTime::Calls;

constexpr std::size_t PATH_BYTES = 160;
constexpr int MOST_DESCRIPTORS = 4096;

using PathText = std::array<char, PATH_BYTES>;

class Spin
{
public:
    Spin()
    {
        while (flag.test_and_set(std::memory_order_acquire))
        {
        }
    }

    ~Spin() { flag.clear(std::memory_order_release); }

    Spin(const Spin&) = delete;
    Spin& operator=(const Spin&) = delete;

private:
    static std::atomic_flag flag;
};

std::atomic_flag Spin::flag = ATOMIC_FLAG_INIT;

struct Redirection
{
    PathText from{};
    PathText to{};
};

struct Order
{
    std::array<char, 24> function{};
    int error = 0;
    int skip = 0;
    int times = 0;
    long result = -1;
    bool whenDone = false;  ///< the call is made before it fails
    bool shortened = false; ///< it does not fail, but concerns one byte alone
};

struct RawCall
{
    const char* function = nullptr;
    PathText path{};
    int fd = -1;
    long argument = 0;
    long result = 0;
    int error = 0;
};

// All under Spin.
std::array<Redirection, 32> redirections{};
std::array<Order, 16> orders{};
std::array<RawCall, 8192> calls{};
std::size_t callCount = 0;
std::array<PathText, MOST_DESCRIPTORS> descriptorPaths{}; // empty: not one of the kit's
struct termios lastSettings = {};
struct termios reportedSettings = {};
bool settingsReported = false;
int lastStatusFlags = -1;
int failures = 0;
bool unmountsAnswered = false;
std::atomic<bool> reached{false};

/// An order for any function is none for this one: it has no path, and no descriptor of the kit.
constexpr const char* CREATION = "pthread_create";
std::atomic<bool> threadsCounted{false};

void Copy(PathText& to, const char* from)
{
    std::snprintf(to.data(), to.size(), "%s", from);
}

/// The unit's own places, which a test must never find on the machine that it runs on.
constexpr std::array<const char*, 9> UNIT_PATHS = {"/dev/ttymxc", "/dev/ttyUSB",        "/dev/serial/",
                                                   "/dev/i2c-",   "/dev/hidraw",        "/dev/tav_event",
                                                   "/mnt/sdcard", "/sys/class/thermal", "/proc/self/mounts"};

/// Any log line may look for it, at its own time: unless redirected it is not recorded, and no order to fail
/// is spent on it.
constexpr const char* LOGGED_TEMPERATURE = "/sys/class/thermal";

bool StartsWith(const char* text, const char* start)
{
    return std::strncmp(text, start, std::strlen(start)) == 0;
}

enum class Place : std::uint8_t
{
    Outside, ///< not the kit's business
    Kit,     ///< redirected
    Nowhere  ///< one of the unit's, and not redirected
};

/// Where a path leads; `to` receives the redirected path.
Place Resolve(const char* path, PathText& to)
{
    if (path == nullptr)
    {
        return Place::Outside;
    }
    const Spin lock;
    for (const Redirection& redirection : redirections)
    {
        const std::size_t length = std::strlen(redirection.from.data());
        if (length != 0 && std::strncmp(path, redirection.from.data(), length) == 0 &&
            (path[length] == '\0' || path[length] == '/' || redirection.from[length - 1] == '/'))
        {
            std::snprintf(to.data(), to.size(), "%s%s", redirection.to.data(), path + length);
            return Place::Kit;
        }
    }
    return std::any_of(UNIT_PATHS.begin(), UNIT_PATHS.end(),
                       [&](const char* unit) { return StartsWith(path, unit); })
               ? Place::Nowhere
               : Place::Outside;
}

void Record(const char* function, const char* path, int fd, long argument, long result)
{
    const int error = errno;
    {
        const Spin lock;
        if (callCount < calls.size())
        {
            RawCall& call = calls[callCount++];
            call.function = function;
            if (path != nullptr)
            {
                Copy(call.path, path);
            }
            else
            {
                call.path = fd >= 0 && fd < MOST_DESCRIPTORS ? descriptorPaths[static_cast<std::size_t>(fd)]
                                                             : PathText{};
            }
            call.fd = fd;
            call.argument = argument;
            call.result = result;
            call.error = result == -1 ? error : 0;
        }
    }
    errno = error;
}

bool IsKitDescriptor(int fd)
{
    const Spin lock;
    return fd >= 0 && fd < MOST_DESCRIPTORS && descriptorPaths[static_cast<std::size_t>(fd)][0] != '\0';
}

void SetDescriptor(int fd, const char* path)
{
    if (fd >= 0 && fd < MOST_DESCRIPTORS)
    {
        const Spin lock;
        Copy(descriptorPaths[static_cast<std::size_t>(fd)], path);
    }
}

/// What a descriptor was opened by; empty when it is not one of the kit's.
PathText PathOf(int fd)
{
    PathText path{};
    if (fd >= 0 && fd < MOST_DESCRIPTORS)
    {
        const Spin lock;
        path = descriptorPaths[static_cast<std::size_t>(fd)];
    }
    return path;
}

/// The message device that a descriptor was opened on, if it was one.
const MessageDevice* DeviceOf(int fd)
{
    const PathText path = PathOf(fd);
    return path[0] == '\0' ? nullptr : MessageDevice::At(path.data());
}

OutputQueue* QueueOf(int fd)
{
    return OutputQueue::Of(PathOf(fd).data());
}

/// Takes the order for a call of this function, if there is one whose turn it is.
bool TakeOrder(const char* function, bool shortened, Order& taken)
{
    const Spin lock;
    for (Order& order : orders)
    {
        if (order.times == 0 || order.shortened != shortened ||
            (order.function[0] != '*' && std::strcmp(order.function.data(), function) != 0))
        {
            continue;
        }
        if (order.skip > 0)
        {
            --order.skip;
            continue;
        }
        --order.times;
        ++failures;
        taken = order;
        return true;
    }
    return false;
}

/// @return what the call returns, by order or as it is made
template <class Call>
long CallOrFail(const char* function, Call call)
{
    const Leaks::NotRefused ours;
    Order order;
    if (!TakeOrder(function, false, order))
    {
        return call();
    }
    if (order.whenDone)
    {
        static_cast<void>(call());
    }
    if (order.error != 0)
    {
        errno = order.error;
    }
    return order.result;
}

/// How many bytes a call concerns: all, or one by order.
std::size_t BytesOf(const char* function, int fd, std::size_t count)
{
    Order order;
    return count > 1 && IsKitDescriptor(fd) && TakeOrder(function, true, order) ? 1 : count;
}

/// A call that takes a path: fault, redirection, record. `call` makes the real call on a path.
template <class Call>
long OnPath(const char* function, const char* path, long argument, Call call)
{
    PathText redirected;
    const Place place = Resolve(path, redirected);
    if (place == Place::Outside)
    {
        return call(path);
    }
    if (place == Place::Nowhere && StartsWith(path, LOGGED_TEMPERATURE))
    {
        errno = ENOENT;
        return -1;
    }
    reached = true;
    const long result = CallOrFail(function, [&]() -> long {
        if (place == Place::Nowhere)
        {
            errno = ENOENT;
            return -1;
        }
        return call(redirected.data());
    });
    Record(function, path, -1, argument, result);
    return result;
}

/// A call that takes a descriptor: fault, record.
template <class Call>
long OnDescriptor(const char* function, int fd, long argument, Call call)
{
    if (!IsKitDescriptor(fd))
    {
        return call();
    }
    const long result = CallOrFail(function, [&]() -> long { return call(); });
    Record(function, nullptr, fd, argument, result);
    return result;
}

int OpenWith(const char* path, int flags, mode_t mode, auto real)
{
    const auto fd = static_cast<int>(OnPath("open", path, flags, [&](const char* where) {
        const MessageDevice* const device = path == nullptr ? nullptr : MessageDevice::At(path);
        return device != nullptr ? device->Open(flags) : real(where, flags, mode);
    }));
    PathText redirected;
    if (fd >= 0 && Resolve(path, redirected) == Place::Kit)
    {
        SetDescriptor(fd, path);
    }
    return fd;
}

ssize_t ReadWith(int fd, std::size_t count, auto real)
{
    return OnDescriptor("read", fd, static_cast<long>(count), [&]() -> long {
        return IsKitDescriptor(fd) && Calls::ReadTimesOut(fd) ? 0 : real();
    });
}

int Unmount(const char* function, const char* path, int flags)
{
    {
        const Spin lock;
        if (!unmountsAnswered)
        {
            std::fprintf(stderr, "kit: the test reached a real %s(\"%s\"); ended\n", function, path);
            std::abort();
        }
    }
    reached = true;
    const long result = CallOrFail(function, [] { return 0L; });
    Record(function, path, -1, flags, result);
    return static_cast<int>(result);
}

// Standard output, while an Output lives.
std::atomic<bool> outputTaken{false};
std::string* output = nullptr; // under Spin

}

Output::Output()
{
    const Spin lock;
    output = new std::string();
    outputTaken = true;
}

Output::~Output()
{
    const Spin lock;
    outputTaken = false;
    delete output;
    output = nullptr;
}

std::string Output::Text()
{
    const Spin lock;
    return *output;
}

void System::Redirect(const std::string& from, const std::string& to)
{
    Unredirect(from);
    const Spin lock;
    for (Redirection& redirection : redirections)
    {
        if (redirection.from[0] == '\0')
        {
            Copy(redirection.from, from.c_str());
            Copy(redirection.to, to.c_str());
            return;
        }
    }
    std::abort();
}

void System::Unredirect(const std::string& from)
{
    const Spin lock;
    for (Redirection& redirection : redirections)
    {
        if (from == redirection.from.data())
        {
            redirection = {};
        }
    }
}

namespace
{

void Give(const char* function, Order wanted)
{
    const Spin lock;
    for (Order& order : orders)
    {
        if (order.times == 0)
        {
            order = wanted;
            std::snprintf(order.function.data(), order.function.size(), "%s", function);
            return;
        }
    }
    std::abort();
}

}

void System::Fail(const char* function, int error, int nth, int times, long result)
{
    Give(function, {.error = error, .skip = nth - 1, .times = times, .result = result});
}

void System::FailWhenDone(const char* function, int error, int nth, int times)
{
    Give(function, {.error = error, .skip = nth - 1, .times = times, .whenDone = true});
}

void System::RefuseThreads(int nth, int times)
{
    Give(CREATION, {.error = EAGAIN, .skip = nth - 1, .times = times});
    threadsCounted = true;
}

void System::Shorten(const char* function, int nth, int times)
{
    Give(function, {.skip = nth - 1, .times = times, .shortened = true});
}

void System::ForgetOrders()
{
    const Spin lock;
    orders = {};
    threadsCounted = false;
}

int System::FailuresDone()
{
    const Spin lock;
    return failures;
}

std::vector<System::Call> System::Calls()
{
    std::size_t count = 0;
    {
        const Spin lock;
        count = callCount;
    }
    std::vector<Call> list;
    list.reserve(count);
    for (std::size_t at = 0; at < count; ++at)
    {
        RawCall call;
        {
            const Spin lock;
            call = calls[at];
        }
        list.push_back({call.function, call.path.data(), call.fd, call.argument, call.result, call.error});
    }
    return list;
}

std::vector<System::Call> System::CallsOf(const std::string& function)
{
    std::vector<Call> list = Calls();
    std::erase_if(list, [&](const Call& call) { return function != call.function; });
    return list;
}

void System::ForgetCalls()
{
    const Spin lock;
    callCount = 0;
}

struct termios System::LastSettings()
{
    const Spin lock;
    return lastSettings;
}

int System::LastStatusFlags()
{
    const Spin lock;
    return lastStatusFlags;
}

void System::ReportSettings(const struct termios& settings)
{
    const Spin lock;
    reportedSettings = settings;
    settingsReported = true;
}

std::vector<std::chrono::microseconds> System::Sleeps()
{
    std::vector<std::chrono::microseconds> sleeps;
    for (const Call& call : Calls())
    {
        const std::string function = call.function;
        if (function == "usleep" || function == "sleep" || function == "nanosleep" ||
            function == "clock_nanosleep")
        {
            sleeps.emplace_back(call.argument);
        }
    }
    return sleeps;
}

void System::AnswerUnmounts()
{
    const Spin lock;
    unmountsAnswered = true;
}

bool System::Reached()
{
    return reached;
}

void System::Reset()
{
    const Spin lock;
    redirections = {};
    orders = {};
    callCount = 0;
    failures = 0;
    unmountsAnswered = false;
    reached = false;
    threadsCounted = false;
    lastSettings = {};
    lastStatusFlags = -1;
    settingsReported = false;
}

}

using namespace Kit;
using namespace VirtualTime;

// The real declarations carry attributes that a definition elsewhere does not repeat.
#pragma GCC diagnostic ignored "-Wattributes"
#pragma GCC diagnostic ignored "-Wignored-attributes"
#pragma GCC diagnostic ignored "-Wnonnull-compare"

// Paths ------------------------------------------------------------------------------------------------

#define MODE_OF(flags)                                                                                       \
    mode_t mode = 0;                                                                                         \
    if (((flags) & (O_CREAT | O_TMPFILE)) != 0)                                                              \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, flags);                                                                          \
        mode = va_arg(arguments, mode_t);                                                                    \
        va_end(arguments);                                                                                   \
    }

STAND_IN int open(const char* path, int flags, ...)
{
    MODE_OF(flags)
    return OpenWith(path, flags, mode, REAL_CALL(open));
}

#if !VIRTUAL_TIME_LONG_NAMES // there it is what the header makes of open()
STAND_IN int open64(const char* path, int flags, ...)
{
    MODE_OF(flags)
    return OpenWith(path, flags, mode, REAL_CALL(open));
}
#endif

STAND_IN int __open_2(const char* path, int flags)
{
    return OpenWith(path, flags, 0, REAL_CALL(open));
}

STAND_IN int __open64_2(const char* path, int flags)
{
    return OpenWith(path, flags, 0, REAL_CALL(open));
}

STAND_IN int openat(int directory, const char* path, int flags, ...)
{
    MODE_OF(flags)
    return OpenWith(path, flags, mode, [&](const char* where, int how, mode_t rights) {
        return REAL_CALL(openat)(directory, where, how, rights);
    });
}

namespace
{

/// A call that returns a pointer, null on failure.
template <class Pointer, class Call>
Pointer PointerOnPath(const char* function, const char* path, Call call)
{
    const long result =
        OnPath(function, path, 0, [&](const char* where) { return reinterpret_cast<long>(call(where)); });
    return result == -1 ? nullptr : reinterpret_cast<Pointer>(result);
}

}

STAND_IN FILE* fopen(const char* path, const char* mode)
{
    return PointerOnPath<FILE*>("fopen", path,
                                [&](const char* where) { return REAL_CALL(fopen)(where, mode); });
}

#if !VIRTUAL_TIME_LONG_NAMES // likewise
STAND_IN FILE* fopen64(const char* path, const char* mode)
{
    return PointerOnPath<FILE*>("fopen", path,
                                [&](const char* where) { return REAL_CALL(fopen)(where, mode); });
}
#endif

STAND_IN int access(const char* path, int mode) noexcept
{
    return static_cast<int>(
        OnPath("access", path, mode, [&](const char* where) { return REAL_CALL(access)(where, mode); }));
}

STAND_IN int unlink(const char* path) noexcept
{
    return static_cast<int>(
        OnPath("unlink", path, 0, [](const char* where) { return REAL_CALL(unlink)(where); }));
}

STAND_IN int remove(const char* path) noexcept
{
    return static_cast<int>(
        OnPath("remove", path, 0, [](const char* where) { return REAL_CALL(remove)(where); }));
}

STAND_IN int rename(const char* from, const char* to) noexcept
{
    PathText redirected;
    const bool kit = Resolve(to, redirected) == Place::Kit;
    return static_cast<int>(OnPath("rename", from, 0, [&](const char* where) {
        return REAL_CALL(rename)(where, kit ? redirected.data() : to);
    }));
}

STAND_IN int mkdir(const char* path, mode_t mode) noexcept
{
    return static_cast<int>(
        OnPath("mkdir", path, mode, [&](const char* where) { return REAL_CALL(mkdir)(where, mode); }));
}

STAND_IN int stat(const char* path, struct stat* status) noexcept
{
    return static_cast<int>(
        OnPath("stat", path, 0, [&](const char* where) { return REAL_CALL(stat)(where, status); }));
}

STAND_IN int lstat(const char* path, struct stat* status) noexcept
{
    return static_cast<int>(
        OnPath("lstat", path, 0, [&](const char* where) { return REAL_CALL(lstat)(where, status); }));
}

STAND_IN DIR* opendir(const char* path)
{
    return PointerOnPath<DIR*>("opendir", path, [](const char* where) { return REAL_CALL(opendir)(where); });
}

STAND_IN int umount(const char* path) noexcept
{
    return Unmount("umount", path, 0);
}

STAND_IN int umount2(const char* path, int flags) noexcept
{
    return Unmount("umount2", path, flags);
}

STAND_IN int reboot(int) noexcept
{
    std::fprintf(stderr, "kit: the test reached a real reboot(); ended\n");
    std::abort();
}

// Threads ----------------------------------------------------------------------------------------------

STAND_IN int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                            void* argument)
{
    Order order;
    if (threadsCounted && TakeOrder(CREATION, false, order))
    {
        return order.error;
    }
    return REAL_CALL(pthread_create)(thread, attributes, routine, argument);
}

// Descriptors ------------------------------------------------------------------------------------------

STAND_IN int close(int fd)
{
    const bool kit = IsKitDescriptor(fd);
    bool closed = false; // whatever is told of it
    const auto result = static_cast<int>(OnDescriptor("close", fd, 0, [&] {
        if (OutputQueue* const queue = QueueOf(fd); queue != nullptr)
        {
            queue->Close(fd);
        }
        const int done = REAL_CALL(close)(fd);
        closed = done == 0;
        return done;
    }));
    if (kit && closed)
    {
        SetDescriptor(fd, "");
    }
    return result;
}

namespace
{

int FcntlWith(int fd, int command, long argument)
{
    if (command == F_SETFL && IsKitDescriptor(fd))
    {
        const Spin lock;
        lastStatusFlags = static_cast<int>(argument);
    }
    if (command != F_DUPFD && command != F_DUPFD_CLOEXEC)
    {
        return REAL_CALL(fcntl)(fd, command, argument);
    }
    const auto copy = static_cast<int>(
        OnDescriptor("fcntl", fd, command, [&] { return REAL_CALL(fcntl)(fd, command, argument); }));
    if (copy >= 0 && IsKitDescriptor(fd))
    {
        SetDescriptor(copy, PathOf(fd).data());
    }
    return copy;
}

}

STAND_IN int fcntl(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    return FcntlWith(fd, command, argument);
}

#if !VIRTUAL_TIME_LONG_NAMES // likewise
STAND_IN int fcntl64(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    return FcntlWith(fd, command, argument);
}
#endif

STAND_IN ssize_t read(int fd, void* bytes, size_t count)
{
    count = BytesOf("read", fd, count);
    return ReadWith(fd, count, [&] { return REAL_CALL(read)(fd, bytes, count); });
}

STAND_IN ssize_t __read_chk(int fd, void* bytes, size_t count, size_t room)
{
    if (count > room)
    {
        std::fprintf(stderr, "kit: a read of %zu bytes into room for %zu\n", count, room);
        std::abort();
    }
    count = BytesOf("read", fd, count);
    return ReadWith(fd, count, [&] { return REAL_CALL(read)(fd, bytes, count); });
}

STAND_IN ssize_t write(int fd, const void* bytes, size_t count)
{
    if (fd == STDOUT_FILENO && outputTaken)
    {
        const Spin lock;
        if (output != nullptr)
        {
            output->append(static_cast<const char*>(bytes), count);
            return static_cast<ssize_t>(count);
        }
    }
    count = BytesOf("write", fd, count);
    return OnDescriptor("write", fd, static_cast<long>(count), [&] {
        OutputQueue* const queue = QueueOf(fd);
        if (queue == nullptr)
        {
            return REAL_CALL(write)(fd, bytes, count);
        }
        queue->Write(fd, {static_cast<const char*>(bytes), count});
        return static_cast<ssize_t>(count);
    });
}

STAND_IN int ftruncate(int fd, off_t length) noexcept
{
    return static_cast<int>(OnDescriptor("ftruncate", fd, static_cast<long>(length),
                                         [&] { return REAL_CALL(ftruncate)(fd, length); }));
}

STAND_IN int fdatasync(int fd)
{
    return static_cast<int>(OnDescriptor("fdatasync", fd, 0, [&] { return REAL_CALL(fdatasync)(fd); }));
}

STAND_IN int fstat(int fd, struct stat* status) noexcept
{
    return static_cast<int>(OnDescriptor("fstat", fd, 0, [&] { return REAL_CALL(fstat)(fd, status); }));
}

STAND_IN off_t lseek(int fd, off_t offset, int whence) noexcept
{
    return OnDescriptor("lseek", fd, static_cast<long>(offset),
                        [&] { return static_cast<long>(REAL_CALL(lseek)(fd, offset, whence)); });
}

STAND_IN int isatty(int fd) noexcept
{
    return static_cast<int>(OnDescriptor("isatty", fd, 0, [&] { return REAL_CALL(isatty)(fd); }));
}

STAND_IN int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return static_cast<int>(OnDescriptor("ioctl", fd, static_cast<long>(request), [&] {
        if (OutputQueue* const queue = QueueOf(fd); queue != nullptr && queue->Answers(request))
        {
            return queue->Ioctl(fd, request, argument);
        }
        const MessageDevice* const device = DeviceOf(fd);
        return device != nullptr ? device->Ioctl(request, argument) : REAL_CALL(ioctl)(fd, request, argument);
    }));
}

STAND_IN int tcgetattr(int fd, struct termios* settings) noexcept
{
    return static_cast<int>(OnDescriptor("tcgetattr", fd, 0, [&] {
        const int result = REAL_CALL(tcgetattr)(fd, settings);
        const Spin lock;
        if (result == 0 && settingsReported)
        {
            *settings = reportedSettings;
        }
        return result;
    }));
}

STAND_IN int tcsetattr(int fd, int when, const struct termios* settings) noexcept
{
    if (IsKitDescriptor(fd))
    {
        const Spin lock;
        lastSettings = *settings;
        settingsReported = false;
    }
    return static_cast<int>(
        OnDescriptor("tcsetattr", fd, when, [&] { return REAL_CALL(tcsetattr)(fd, when, settings); }));
}

STAND_IN int tcflush(int fd, int queue) noexcept
{
    return static_cast<int>(
        OnDescriptor("tcflush", fd, queue, [&] { return REAL_CALL(tcflush)(fd, queue); }));
}

STAND_IN int tcdrain(int fd)
{
    return static_cast<int>(OnDescriptor("tcdrain", fd, 0, [&] {
        if (OutputQueue* const queue = QueueOf(fd); queue != nullptr)
        {
            queue->Drain(fd);
        }
        return REAL_CALL(tcdrain)(fd);
    }));
}

// Waiting for descriptors ------------------------------------------------------------------------------

STAND_IN int poll(pollfd* fds, nfds_t count, int milliseconds)
{
    return static_cast<int>(OnDescriptor("poll", count > 0 ? fds[0].fd : -1, milliseconds,
                                         [&] { return Calls::Poll(fds, count, milliseconds); }));
}

STAND_IN int __poll_chk(pollfd* fds, nfds_t count, int milliseconds, size_t)
{
    return poll(fds, count, milliseconds);
}

STAND_IN int ppoll(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* mask)
{
    return static_cast<int>(OnDescriptor("ppoll", count > 0 ? fds[0].fd : -1, 0,
                                         [&] { return Calls::Ppoll(fds, count, limit, mask); }));
}

namespace
{

int FirstOf(int count, const fd_set* set)
{
    for (int fd = 0; set != nullptr && fd < count && fd < FD_SETSIZE; ++fd)
    {
        if (FD_ISSET(fd, set))
        {
            return fd;
        }
    }
    return -1;
}

}

STAND_IN int select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* limit)
{
    const auto microseconds =
        static_cast<long>(limit == nullptr ? -1 : limit->tv_sec * 1'000'000 + limit->tv_usec);
    return static_cast<int>(OnDescriptor("select", FirstOf(count, in), microseconds,
                                         [&] { return Calls::Select(count, in, out, except, limit); }));
}

STAND_IN int pselect(int count, fd_set* in, fd_set* out, fd_set* except, const timespec* limit,
                     const sigset_t* mask)
{
    return static_cast<int>(OnDescriptor("pselect", FirstOf(count, in), 0, [&] {
        return Calls::Pselect(count, in, out, except, limit, mask);
    }));
}

// Sleeps -----------------------------------------------------------------------------------------------

namespace
{

void RecordSleep(const char* function, long microseconds)
{
    if (Waits::Virtual())
    {
        Record(function, nullptr, -1, microseconds, 0);
    }
}

}

STAND_IN int usleep(useconds_t microseconds)
{
    RecordSleep("usleep", microseconds);
    return Calls::Usleep(microseconds);
}

STAND_IN unsigned int sleep(unsigned int seconds)
{
    RecordSleep("sleep", seconds * 1'000'000L);
    return Calls::Sleep(seconds);
}

STAND_IN int nanosleep(const timespec* duration, timespec* left)
{
    RecordSleep("nanosleep", static_cast<long>(Calls::Duration(CLOCK_MONOTONIC, 0, *duration) / 1000));
    return Calls::Nanosleep(duration, left);
}

STAND_IN int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left)
{
    RecordSleep("clock_nanosleep", static_cast<long>(Calls::Duration(clock, flags, *time) / 1000));
    return Calls::ClockNanosleep(clock, flags, time, left);
}
