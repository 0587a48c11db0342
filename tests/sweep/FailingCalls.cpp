// Preloaded into an application on the virtual unit: one of its calls on the unit's devices and files fails,
// or all from there on. TAV_FAILING_CALL="FUNCTION NTH TIMES ERRNO" says which; TAV_COUNTED_CALLS=FILE has
// the numbers of all calls written at the end, a line "FUNCTION NUMBER" each. tools/scenarios does both.

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

namespace
{

constexpr std::array FUNCTIONS = {"open",   "close",     "read",      "write",   "ioctl",  "poll",
                                  "select", "tcgetattr", "tcsetattr", "tcflush", "tcdrain"};

enum Which
{
    Open,
    Close,
    Read,
    Write,
    Ioctl,
    Poll,
    Select,
    Tcgetattr,
    Tcsetattr,
    Tcflush,
    Tcdrain,
    Ended ///< no function
};

using Counts = std::array<std::atomic<std::int64_t>, FUNCTIONS.size() + 1>;

Counts& TheCounts();

constexpr int MOST_DESCRIPTORS = 1024;
std::array<std::atomic<bool>, MOST_DESCRIPTORS> ofTheUnit;

struct Order
{
    int function = -1;
    long nth = 0;
    long times = 0;
    int error = 0;

    Order()
    {
        const char* const text = std::getenv("TAV_FAILING_CALL");
        std::array<char, 16> name{};
        if (text == nullptr || std::sscanf(text, "%15s %ld %ld %d", name.data(), &nth, &times, &error) != 4)
        {
            return;
        }
        for (std::size_t i = 0; i < FUNCTIONS.size(); ++i)
        {
            if (std::strcmp(FUNCTIONS[i], name.data()) == 0)
            {
                function = static_cast<int>(i);
            }
        }
    }
};

const Order& TheOrder()
{
    static const Order order;
    return order;
}

/// Whether this call is to fail, with errno set.
bool Fails(Which which)
{
    const std::int64_t number = ++TheCounts()[which];
    const Order& order = TheOrder();
    if (order.function != which || number < order.nth || number - order.nth >= order.times)
    {
        return false;
    }
    errno = order.error;
    return true;
}

bool OfTheUnit(int fd)
{
    return fd >= 0 && fd < MOST_DESCRIPTORS && ofTheUnit[static_cast<std::size_t>(fd)];
}

bool OfTheUnit(const char* path)
{
    const std::string_view name = path == nullptr ? "" : path;
    return (name.starts_with("/dev/") && name != "/dev/null") || name.starts_with("/mnt/sdcard/") ||
           name.starts_with("/sys/class/");
}

int Opened(int fd, const char* path)
{
    if (fd >= 0 && fd < MOST_DESCRIPTORS)
    {
        ofTheUnit[static_cast<std::size_t>(fd)] = OfTheUnit(path);
    }
    return fd;
}

template <class Call>
Call* Next(Call*, const char* name)
{
    return reinterpret_cast<Call*>(dlsym(RTLD_NEXT, name));
}

#define NEXT(name)                                                                                           \
    [] {                                                                                                     \
        static auto* const next = Next(static_cast<decltype(&::name)>(nullptr), #name);                      \
        return next;                                                                                         \
    }()

/// In the file, or, where that cannot be, in memory.
Counts& TheCounts()
{
    static Counts& counts = *[] {
        static Counts own;
        const char* const path = std::getenv("TAV_COUNTED_CALLS");
        const int fd = path == nullptr ? -1 : NEXT(open)(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        void* place = MAP_FAILED;
        if (fd >= 0 && ftruncate(fd, sizeof(Counts)) == 0)
        {
            place = mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        }
        NEXT(close)(fd);
        return place == MAP_FAILED ? &own : static_cast<Counts*>(place);
    }();
    return counts;
}

[[gnu::destructor]] void NoteEnd()
{
    TheCounts()[Ended] = 1;
}

}

// The real declarations carry attributes that a definition elsewhere does not repeat.
#pragma GCC diagnostic ignored "-Wattributes"

#define STAND_IN extern "C" __attribute__((visibility("default")))

STAND_IN int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (OfTheUnit(path) && Fails(Open))
    {
        return -1;
    }
    return Opened(NEXT(open)(path, flags, mode), path);
}

STAND_IN int close(int fd)
{
    if (!OfTheUnit(fd))
    {
        return NEXT(close)(fd);
    }
    ofTheUnit[static_cast<std::size_t>(fd)] = false;
    const bool fails = Fails(Close);
    const int error = errno;
    const int result = NEXT(close)(fd); // one that fails has closed all the same
    errno = fails ? error : errno;
    return fails ? -1 : result;
}

STAND_IN ssize_t read(int fd, void* bytes, size_t count)
{
    return OfTheUnit(fd) && Fails(Read) ? -1 : NEXT(read)(fd, bytes, count);
}

STAND_IN ssize_t write(int fd, const void* bytes, size_t count)
{
    return OfTheUnit(fd) && Fails(Write) ? -1 : NEXT(write)(fd, bytes, count);
}

STAND_IN int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return OfTheUnit(fd) && Fails(Ioctl) ? -1 : NEXT(ioctl)(fd, request, argument);
}

STAND_IN int poll(pollfd* events, nfds_t count, int timeout)
{
    return count > 0 && OfTheUnit(events[0].fd) && Fails(Poll) ? -1 : NEXT(poll)(events, count, timeout);
}

STAND_IN int select(int count, fd_set* in, fd_set* out, fd_set* special, timeval* timeout)
{
    return count > 0 && OfTheUnit(count - 1) && Fails(Select)
               ? -1
               : NEXT(select)(count, in, out, special, timeout);
}

STAND_IN int tcgetattr(int fd, termios* settings) noexcept
{
    return OfTheUnit(fd) && Fails(Tcgetattr) ? -1 : NEXT(tcgetattr)(fd, settings);
}

STAND_IN int tcsetattr(int fd, int when, const termios* settings) noexcept
{
    return OfTheUnit(fd) && Fails(Tcsetattr) ? -1 : NEXT(tcsetattr)(fd, when, settings);
}

STAND_IN int tcflush(int fd, int queue) noexcept
{
    return OfTheUnit(fd) && Fails(Tcflush) ? -1 : NEXT(tcflush)(fd, queue);
}

STAND_IN int tcdrain(int fd)
{
    return OfTheUnit(fd) && Fails(Tcdrain) ? -1 : NEXT(tcdrain)(fd);
}
