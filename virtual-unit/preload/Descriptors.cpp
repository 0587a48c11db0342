// The functions of the C library that are one system call with a descriptor: an ioctl, a write or a sync; and
// syscall(), which is any.

#include "virtual-unit/calls/HeldNumbers.h"
#include "virtual-unit/preload/Ask.h"
#include "virtual-unit/preload/Environment.h"
#include "virtual-unit/preload/StandIns.h"

#include <cstdarg>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <termios.h>
#include <unistd.h>

using namespace VirtualUnit;
using namespace VirtualUnit::Preload;

// Drivers ------------------------------------------------------------------------------------------------

namespace
{

Reply AskAboutIoctl(int fd, unsigned long request, void* argument)
{
    return IsHeldIoctl(request) ? Ask(SYS_ioctl, fd, request, argument) : Reply();
}

/// What may make a file grow is asked about for the descriptors that are placed for it.
template <class... Each>
Reply AskAboutGrowth(int fd, long number, Each... each)
{
    return IsHeldDescriptor(static_cast<std::uint32_t>(fd)) ? Ask(number, each...) : Reply();
}

}

STAND_IN int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list list;
    va_start(list, request);
    void* const argument = va_arg(list, void*);
    va_end(list);
    return Either(AskAboutIoctl(fd, request, argument),
                  [&] { return REAL_CALL(ioctl)(fd, request, argument); });
}

STAND_IN int tcdrain(int fd)
{
    constexpr long WITHOUT_BREAK = 1;
    return Either(Ask(SYS_ioctl, fd, TCSBRK, WITHOUT_BREAK), [&] { return REAL_CALL(tcdrain)(fd); });
}

STAND_IN int tcsendbreak(int fd, int duration) noexcept
{
    return Either(Ask(SYS_ioctl, fd, TCSBRK, 0), [&] { return REAL_CALL(tcsendbreak)(fd, duration); });
}

// A place in a file, as the system calls have it.
#if __SIZEOF_LONG__ == 8
#define LOWER(at) at
#define UPPER(at) 0
#define WORDS_OF_ALIGNED(at) at
#else
#define LOWER(at) static_cast<std::uint32_t>(at)
#define UPPER(at) static_cast<std::uint32_t>(static_cast<std::int64_t>(at) >> 32)
#ifdef __arm__ // at an even argument
#define WORDS_OF_ALIGNED(at) 0, LOWER(at), UPPER(at)
#else
#define WORDS_OF_ALIGNED(at) LOWER(at), UPPER(at)
#endif
#endif

// Writing and syncing ------------------------------------------------------------------------------------

STAND_IN ssize_t write(int fd, const void* bytes, size_t count)
{
    return Either(AskAboutGrowth(fd, SYS_write, fd, bytes, count),
                  [&] { return REAL_CALL(write)(fd, bytes, count); });
}

STAND_IN ssize_t pwrite(int fd, const void* bytes, size_t count, off_t at)
{
    return Either(AskAboutGrowth(fd, SYS_pwrite64, fd, bytes, count, WORDS_OF_ALIGNED(at)),
                  [&] { return REAL_CALL(pwrite)(fd, bytes, count, at); });
}

STAND_IN ssize_t writev(int fd, const iovec* pieces, int count)
{
    return Either(AskAboutGrowth(fd, SYS_writev, fd, pieces, count),
                  [&] { return REAL_CALL(writev)(fd, pieces, count); });
}

STAND_IN ssize_t pwritev(int fd, const iovec* pieces, int count, off_t at)
{
    return Either(AskAboutGrowth(fd, SYS_pwritev, fd, pieces, count, LOWER(at), UPPER(at)),
                  [&] { return REAL_CALL(pwritev)(fd, pieces, count, at); });
}

STAND_IN ssize_t pwritev2(int fd, const iovec* pieces, int count, off_t at, int flags)
{
    return Either(AskAboutGrowth(fd, SYS_pwritev2, fd, pieces, count, LOWER(at), UPPER(at), flags),
                  [&] { return REAL_CALL(pwritev2)(fd, pieces, count, at, flags); });
}

STAND_IN int ftruncate(int fd, off_t size) noexcept
{
    return Either(AskAboutGrowth(fd, SYS_ftruncate, fd, size),
                  [&] { return REAL_CALL(ftruncate)(fd, size); });
}

STAND_IN int fallocate(int fd, int mode, off_t at, off_t size)
{
    return Either(AskAboutGrowth(fd, SYS_fallocate, fd, mode, at, size),
                  [&] { return REAL_CALL(fallocate)(fd, mode, at, size); });
}

STAND_IN int posix_fallocate(int fd, off_t at, off_t size)
{
    const Reply reply = AskAboutGrowth(fd, SYS_fallocate, fd, 0, at, size);
    return reply.goesOn ? REAL_CALL(posix_fallocate)(fd, at, size) : static_cast<int>(-reply.value);
}

STAND_IN ssize_t sendfile(int to, int from, off_t* at, size_t count) noexcept
{
    return Either(AskAboutGrowth(to, SYS_sendfile, to, from, at, count),
                  [&] { return REAL_CALL(sendfile)(to, from, at, count); });
}

STAND_IN ssize_t copy_file_range(int from, off64_t* at, int to, off64_t* toAt, size_t count,
                                 unsigned int flags)
{
    return Either(AskAboutGrowth(to, SYS_copy_file_range, from, at, to, toAt, count, flags),
                  [&] { return REAL_CALL(copy_file_range)(from, at, to, toAt, count, flags); });
}

STAND_IN ssize_t pwrite64(int fd, const void* bytes, size_t count, off64_t at)
{
    return Either(AskAboutGrowth(fd, SYS_pwrite64, fd, bytes, count, WORDS_OF_ALIGNED(at)),
                  [&] { return REAL_CALL(pwrite64)(fd, bytes, count, at); });
}

STAND_IN ssize_t pwritev64(int fd, const iovec* pieces, int count, off64_t at)
{
    return Either(AskAboutGrowth(fd, SYS_pwritev, fd, pieces, count, LOWER(at), UPPER(at)),
                  [&] { return REAL_CALL(pwritev64)(fd, pieces, count, at); });
}

STAND_IN ssize_t pwritev64v2(int fd, const iovec* pieces, int count, off64_t at, int flags)
{
    return Either(AskAboutGrowth(fd, SYS_pwritev2, fd, pieces, count, LOWER(at), UPPER(at), flags),
                  [&] { return REAL_CALL(pwritev64v2)(fd, pieces, count, at, flags); });
}

STAND_IN int ftruncate64(int fd, off64_t size) noexcept
{
    return Either(AskAboutGrowth(fd, SYS_ftruncate, fd, size),
                  [&] { return REAL_CALL(ftruncate64)(fd, size); });
}

STAND_IN int fallocate64(int fd, int mode, off64_t at, off64_t size)
{
    return Either(AskAboutGrowth(fd, SYS_fallocate, fd, mode, at, size),
                  [&] { return REAL_CALL(fallocate64)(fd, mode, at, size); });
}

STAND_IN int posix_fallocate64(int fd, off64_t at, off64_t size)
{
    const Reply reply = AskAboutGrowth(fd, SYS_fallocate, fd, 0, at, size);
    return reply.goesOn ? REAL_CALL(posix_fallocate64)(fd, at, size) : static_cast<int>(-reply.value);
}

STAND_IN ssize_t sendfile64(int to, int from, off64_t* at, size_t count) noexcept
{
    return Either(AskAboutGrowth(to, SYS_sendfile, to, from, at, count),
                  [&] { return REAL_CALL(sendfile64)(to, from, at, count); });
}

STAND_IN int fsync(int fd)
{
    return Either(Ask(SYS_fsync, fd), [&] { return REAL_CALL(fsync)(fd); });
}

STAND_IN int fdatasync(int fd)
{
    return Either(Ask(SYS_fdatasync, fd), [&] { return REAL_CALL(fdatasync)(fd); });
}

STAND_IN int syncfs(int fd) noexcept
{
    return Either(Ask(SYS_syncfs, fd), [&] { return REAL_CALL(syncfs)(fd); });
}

STAND_IN void sync() noexcept
{
    if (Ask(SYS_sync).goesOn)
    {
        REAL_CALL(sync)();
    }
}

STAND_IN int msync(void* address, size_t size, int flags)
{
    return Either(Ask(SYS_msync, address, size, flags),
                  [&] { return REAL_CALL(msync)(address, size, flags); });
}

// Any ----------------------------------------------------------------------------------------------------

/// It takes six arguments whether they were given or not, as the C library's own does: to the address
/// sanitizer the last one is beyond the caller's.
STAND_IN __attribute__((no_sanitize("address"))) long syscall(long number, ...) noexcept
{
    va_list list;
    va_start(list, number);
    Arguments arguments{};
    for (std::uint64_t& argument : arguments)
    {
        argument = va_arg(list, unsigned long); // NOLINT(clang-analyzer-valist.Uninitialized): it is, above
    }
    va_end(list);
    const bool held =
        IsHeldCall(number) || (number == SYS_ioctl && IsHeldIoctl(arguments[1])) ||
        (MayGrowFile(number) &&
         IsHeldDescriptor(static_cast<std::uint32_t>(arguments[number == SYS_copy_file_range ? 2 : 0])));
    if (number == SYS_io_uring_setup && IsOnUnit()) // it would open files past the unit
    {
        errno = ENOSYS;
        return -1;
    }
    return Either(held ? AskAbout(number, arguments, {-1, -1}) : Reply(), [&] {
        return VirtualTime::RawCall(number, arguments[0], arguments[1], arguments[2], arguments[3],
                                    arguments[4], arguments[5]);
    });
}
