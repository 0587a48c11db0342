// The functions of the C library that are one system call with a path, an ioctl, a write or a sync.

#include "virtual-unit/calls/HeldNumbers.h"
#include "virtual-unit/preload/Ask.h"
#include "virtual-unit/preload/Environment.h"
#include "virtual-unit/preload/FileTimes.h"
#include "virtual-unit/preload/StandIns.h"
#include "virtual-unit/preload/Status.h"

#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/quota.h>
#include <sys/reboot.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/swap.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <termios.h>
#include <unistd.h>

using namespace VirtualUnit;
using namespace VirtualUnit::Preload;

/// A function whose first argument is a path, and whose others are handed on.
#define OF_PATH(Result, name, parameters, ...)                                                               \
    STAND_IN Result name parameters noexcept                                                                 \
    {                                                                                                        \
        return Either(Ask(SYS_##name, path, ##__VA_ARGS__),                                                  \
                      [&] { return REAL_CALL(name)(path, ##__VA_ARGS__); });                                 \
    }

// Opening ----------------------------------------------------------------------------------------------

namespace
{

bool TakesMode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

/// The mode behind the flags, where there is one.
#define MODE_BEHIND(flags)                                                                                   \
    mode_t mode = 0;                                                                                         \
    if (TakesMode(flags))                                                                                    \
    {                                                                                                        \
        va_list list;                                                                                        \
        va_start(list, flags);                                                                               \
        mode = va_arg(list, mode_t);                                                                         \
        va_end(list);                                                                                        \
    }

}

STAND_IN int open(const char* path, int flags, ...)
{
    MODE_BEHIND(flags)
    return Either(Ask(SYS_openat, AT_FDCWD, path, flags, mode),
                  [&] { return REAL_CALL(open)(path, flags, mode); });
}

STAND_IN int open64(const char* path, int flags, ...)
{
    MODE_BEHIND(flags)
    return open(path, flags | O_LARGEFILE, mode);
}

STAND_IN int openat(int directory, const char* path, int flags, ...)
{
    MODE_BEHIND(flags)
    return Either(Ask(SYS_openat, directory, path, flags, mode),
                  [&] { return REAL_CALL(openat)(directory, path, flags, mode); });
}

STAND_IN int openat64(int directory, const char* path, int flags, ...)
{
    MODE_BEHIND(flags)
    return openat(directory, path, flags | O_LARGEFILE, mode);
}

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names
STAND_IN int __open_2(const char* path, int flags)
{
    return open(path, flags);
}

STAND_IN int __open64_2(const char* path, int flags)
{
    return open64(path, flags);
}

STAND_IN int __openat_2(int directory, const char* path, int flags)
{
    return openat(directory, path, flags);
}

STAND_IN int __openat64_2(int directory, const char* path, int flags)
{
    return openat64(directory, path, flags);
}

// NOLINTEND(bugprone-reserved-identifier)

STAND_IN int creat(const char* path, mode_t mode)
{
    return open(path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

STAND_IN int creat64(const char* path, mode_t mode)
{
    return creat(path, mode);
}

STAND_IN int name_to_handle_at(int directory, const char* path, file_handle* handle, int* mount,
                               int flags) noexcept
{
    return Either(Ask(SYS_name_to_handle_at, directory, path, handle, mount, flags),
                  [&] { return REAL_CALL(name_to_handle_at)(directory, path, handle, mount, flags); });
}

// Looking ----------------------------------------------------------------------------------------------

STAND_IN int fstatat64(int directory, const char* path, struct stat64* status, int flags) noexcept
{
    return StatusOf(directory, path, status, flags,
                    [&] { return REAL_CALL(fstatat64)(directory, path, status, flags); });
}

STAND_IN int stat64(const char* path, struct stat64* status) noexcept
{
    return fstatat64(AT_FDCWD, path, status, 0);
}

STAND_IN int lstat64(const char* path, struct stat64* status) noexcept
{
    return fstatat64(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names, in programs that were built with an older
// one
STAND_IN int __xstat(int, const char* path, struct stat* status) noexcept
{
    return stat(path, status);
}

STAND_IN int __lxstat(int, const char* path, struct stat* status) noexcept
{
    return lstat(path, status);
}

STAND_IN int __fxstatat(int, int directory, const char* path, struct stat* status, int flags) noexcept
{
    return fstatat(directory, path, status, flags);
}

STAND_IN int __xstat64(int, const char* path, struct stat64* status) noexcept
{
    return stat64(path, status);
}

STAND_IN int __lxstat64(int, const char* path, struct stat64* status) noexcept
{
    return lstat64(path, status);
}

STAND_IN int __fxstatat64(int, int directory, const char* path, struct stat64* status, int flags) noexcept
{
    return fstatat64(directory, path, status, flags);
}

// NOLINTEND(bugprone-reserved-identifier)

STAND_IN int statx(int directory, const char* path, int flags, unsigned int mask,
                   struct statx* status) noexcept
{
    return Either(Ask(SYS_statx, directory, path, flags, mask, status),
                  [&] { return REAL_CALL(statx)(directory, path, flags, mask, status); });
}

STAND_IN int statfs64(const char* path, struct statfs64* status) noexcept
{
    return Either(AskVolumeStatus(path, status), [&] { return REAL_CALL(statfs64)(path, status); });
}

STAND_IN int statfs(const char* path, struct statfs* status) noexcept
{
    struct statfs64 wide = {};
    const int result = statfs64(path, &wide);
    if (result == 0)
    {
        *status = {};
        CopyVolumeStatus(wide, *status);
    }
    return result;
}

STAND_IN int faccessat(int directory, const char* path, int mode, int flags) noexcept
{
    return Either(Ask(SYS_faccessat, directory, path, mode, flags),
                  [&] { return REAL_CALL(faccessat)(directory, path, mode, flags); });
}

STAND_IN int euidaccess(const char* path, int mode) noexcept
{
    return faccessat(AT_FDCWD, path, mode, AT_EACCESS);
}

STAND_IN int eaccess(const char* path, int mode) noexcept
{
    return euidaccess(path, mode);
}

STAND_IN ssize_t readlinkat(int directory, const char* path, char* text, size_t size) noexcept
{
    return Either(Ask(SYS_readlinkat, directory, path, static_cast<void*>(text), size),
                  [&] { return REAL_CALL(readlinkat)(directory, path, text, size); });
}

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names
STAND_IN ssize_t __readlink_chk(const char* path, char* text, size_t size, size_t)
{
    return readlink(path, text, size);
}

STAND_IN ssize_t __readlinkat_chk(int directory, const char* path, char* text, size_t size, size_t)
{
    return readlinkat(directory, path, text, size);
}

// NOLINTEND(bugprone-reserved-identifier)

STAND_IN int inotify_add_watch(int fd, const char* path, uint32_t mask) noexcept
{
    return Either(Ask(SYS_inotify_add_watch, fd, path, mask),
                  [&] { return REAL_CALL(inotify_add_watch)(fd, path, mask); });
}

STAND_IN int fanotify_mark(int fd, unsigned int flags, uint64_t mask, int directory,
                           const char* path) noexcept
{
    return Either(Ask(SYS_fanotify_mark, fd, flags, mask, directory, path),
                  [&] { return REAL_CALL(fanotify_mark)(fd, flags, mask, directory, path); });
}

// Extended attributes: the name is no path.

OF_PATH(ssize_t, getxattr, (const char* path, const char* name, void* value, size_t size), name, value, size)
OF_PATH(ssize_t, lgetxattr, (const char* path, const char* name, void* value, size_t size), name, value, size)
OF_PATH(ssize_t, listxattr, (const char* path, char* names, size_t size), names, size)
OF_PATH(ssize_t, llistxattr, (const char* path, char* names, size_t size), names, size)
OF_PATH(int, setxattr, (const char* path, const char* name, const void* value, size_t size, int flags), name,
        value, size, flags)
OF_PATH(int, lsetxattr, (const char* path, const char* name, const void* value, size_t size, int flags), name,
        value, size, flags)
OF_PATH(int, removexattr, (const char* path, const char* name), name)
OF_PATH(int, lremovexattr, (const char* path, const char* name), name)
OF_PATH(int, chdir, (const char* path))
OF_PATH(int, chroot, (const char* path))
OF_PATH(int, swapon, (const char* path, int flags), flags)
OF_PATH(int, swapoff, (const char* path))
OF_PATH(int, acct, (const char* path))

// Changing ---------------------------------------------------------------------------------------------

STAND_IN int mkdirat(int directory, const char* path, mode_t mode) noexcept
{
    return Either(Ask(SYS_mkdirat, directory, path, mode),
                  [&] { return REAL_CALL(mkdirat)(directory, path, mode); });
}

STAND_IN int unlinkat(int directory, const char* path, int flags) noexcept
{
    return Either(Ask(SYS_unlinkat, directory, path, flags),
                  [&] { return REAL_CALL(unlinkat)(directory, path, flags); });
}

STAND_IN int remove(const char* path) noexcept
{
    const int before = errno;
    if (unlink(path) == 0)
    {
        return 0;
    }
    if (errno != EISDIR && errno != EPERM) // EPERM: of a directory, as POSIX has it
    {
        return -1;
    }
    const int error = errno;
    if (rmdir(path) == 0)
    {
        errno = before;
        return 0;
    }
    errno = errno == ENOTDIR ? error : errno;
    return -1;
}

STAND_IN int renameat2(int from, const char* path, int to, const char* newPath, unsigned int flags) noexcept
{
    return Either(Ask(SYS_renameat2, from, path, to, newPath, flags),
                  [&] { return REAL_CALL(renameat2)(from, path, to, newPath, flags); });
}

STAND_IN int renameat(int from, const char* path, int to, const char* newPath) noexcept
{
    return Either(Ask(SYS_renameat2, from, path, to, newPath, 0),
                  [&] { return REAL_CALL(renameat)(from, path, to, newPath); });
}

STAND_IN int truncate(const char* path, off_t size) noexcept
{
    return Either(Ask(SYS_truncate, path, size), [&] { return REAL_CALL(truncate)(path, size); });
}

STAND_IN int truncate64(const char* path, off64_t size) noexcept
{
    return Either(Ask(SYS_truncate, path, size), [&] { return REAL_CALL(truncate64)(path, size); });
}

STAND_IN int fchmodat(int directory, const char* path, mode_t mode, int flags) noexcept
{
    return Either(Ask(SYS_fchmodat, directory, path, mode),
                  [&] { return REAL_CALL(fchmodat)(directory, path, mode, flags); });
}

STAND_IN int lchmod(const char* path, mode_t mode) noexcept
{
    return fchmodat(AT_FDCWD, path, mode, AT_SYMLINK_NOFOLLOW);
}

STAND_IN int fchownat(int directory, const char* path, uid_t user, gid_t group, int flags) noexcept
{
    return Either(Ask(SYS_fchownat, directory, path, user, group, flags),
                  [&] { return REAL_CALL(fchownat)(directory, path, user, group, flags); });
}

STAND_IN int linkat(int from, const char* path, int to, const char* newPath, int flags) noexcept
{
    return Either(Ask(SYS_linkat, from, path, to, newPath, flags),
                  [&] { return REAL_CALL(linkat)(from, path, to, newPath, flags); });
}

STAND_IN int symlinkat(const char* text, int directory, const char* path) noexcept
{
    return Either(Ask(SYS_symlinkat, text, directory, path),
                  [&] { return REAL_CALL(symlinkat)(text, directory, path); });
}

STAND_IN int mknodat(int directory, const char* path, mode_t mode, dev_t device) noexcept
{
    return Either(Ask(SYS_mknodat, directory, path, mode, device),
                  [&] { return REAL_CALL(mknodat)(directory, path, mode, device); });
}

STAND_IN int mknod(const char* path, mode_t mode, dev_t device) noexcept
{
    return mknodat(AT_FDCWD, path, mode, device);
}

STAND_IN int mkfifoat(int directory, const char* path, mode_t mode) noexcept
{
    return mknodat(directory, path, mode | S_IFIFO, 0);
}

STAND_IN int mkfifo(const char* path, mode_t mode) noexcept
{
    return mkfifoat(AT_FDCWD, path, mode);
}

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names, in programs that were built with an older
// one
STAND_IN int __xmknod(int, const char* path, mode_t mode, dev_t* device) noexcept
{
    return mknod(path, mode, *device);
}

STAND_IN int __xmknodat(int, int directory, const char* path, mode_t mode, dev_t* device) noexcept
{
    return mknodat(directory, path, mode, *device);
}

// NOLINTEND(bugprone-reserved-identifier)

// Without a directory: as the C library makes them, so that a refusal is told by the same name. Some
// architectures have only the others.

#ifdef SYS_mkdir

OF_PATH(int, access, (const char* path, int mode), mode)
OF_PATH(ssize_t, readlink, (const char* path, char* text, size_t size), text, size)
OF_PATH(int, mkdir, (const char* path, mode_t mode), mode)
OF_PATH(int, unlink, (const char* path))
OF_PATH(int, rmdir, (const char* path))
OF_PATH(int, rename, (const char* path, const char* newPath), newPath)
OF_PATH(int, chmod, (const char* path, mode_t mode), mode)
OF_PATH(int, chown, (const char* path, uid_t user, gid_t group), user, group)
OF_PATH(int, lchown, (const char* path, uid_t user, gid_t group), user, group)
OF_PATH(int, link, (const char* path, const char* newPath), newPath)

STAND_IN int symlink(const char* text, const char* path) noexcept
{
    return Either(Ask(SYS_symlink, text, path), [&] { return REAL_CALL(symlink)(text, path); });
}

#else

STAND_IN int access(const char* path, int mode) noexcept
{
    return faccessat(AT_FDCWD, path, mode, 0);
}

STAND_IN ssize_t readlink(const char* path, char* text, size_t size) noexcept
{
    return readlinkat(AT_FDCWD, path, text, size);
}

STAND_IN int mkdir(const char* path, mode_t mode) noexcept
{
    return mkdirat(AT_FDCWD, path, mode);
}

STAND_IN int unlink(const char* path) noexcept
{
    return unlinkat(AT_FDCWD, path, 0);
}

STAND_IN int rmdir(const char* path) noexcept
{
    return unlinkat(AT_FDCWD, path, AT_REMOVEDIR);
}

STAND_IN int rename(const char* path, const char* newPath) noexcept
{
    return renameat(AT_FDCWD, path, AT_FDCWD, newPath);
}

STAND_IN int chmod(const char* path, mode_t mode) noexcept
{
    return fchmodat(AT_FDCWD, path, mode, 0);
}

STAND_IN int chown(const char* path, uid_t user, gid_t group) noexcept
{
    return fchownat(AT_FDCWD, path, user, group, 0);
}

STAND_IN int lchown(const char* path, uid_t user, gid_t group) noexcept
{
    return fchownat(AT_FDCWD, path, user, group, AT_SYMLINK_NOFOLLOW);
}

STAND_IN int link(const char* path, const char* newPath) noexcept
{
    return linkat(AT_FDCWD, path, AT_FDCWD, newPath, 0);
}

STAND_IN int symlink(const char* text, const char* path) noexcept
{
    return symlinkat(text, AT_FDCWD, path);
}

#endif

// This machine's mounts and power ------------------------------------------------------------------------

STAND_IN int mount(const char* source, const char* path, const char* type, unsigned long flags,
                   const void* data) noexcept
{
    return Either(Ask(SYS_mount, source, path),
                  [&] { return REAL_CALL(mount)(source, path, type, flags, data); });
}

STAND_IN int umount2(const char* path, int flags) noexcept
{
    return Either(Ask(SYS_umount2, path, flags), [&] { return REAL_CALL(umount2)(path, flags); });
}

STAND_IN int umount(const char* path) noexcept
{
    return umount2(path, 0);
}

STAND_IN int reboot(int command) noexcept
{
    return Either(Ask(SYS_reboot, command), [&] { return REAL_CALL(reboot)(command); });
}

STAND_IN int quotactl(int command, const char* path, int id, caddr_t data) noexcept
{
    return Either(Ask(SYS_quotactl, command, path, id, data),
                  [&] { return REAL_CALL(quotactl)(command, path, id, data); });
}

// Sockets with a path ------------------------------------------------------------------------------------

namespace
{

bool NamesPath(const sockaddr* address, socklen_t size)
{
    return address != nullptr && size > offsetof(sockaddr_un, sun_path) && address->sa_family == AF_UNIX &&
           reinterpret_cast<const sockaddr_un*>(address)->sun_path[0] != '\0';
}

}

STAND_IN int connect(int fd, const sockaddr* address, socklen_t size)
{
    const Reply reply = NamesPath(address, size) ? Ask(SYS_connect, fd, address, size) : Reply();
    return Either(reply, [&] { return REAL_CALL(connect)(fd, address, size); });
}

STAND_IN int bind(int fd, const sockaddr* address, socklen_t size) noexcept
{
    const Reply reply = NamesPath(address, size) ? Ask(SYS_bind, fd, address, size) : Reply();
    return Either(reply, [&] { return REAL_CALL(bind)(fd, address, size); });
}

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
