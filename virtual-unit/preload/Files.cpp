// The functions of the C library that are one system call with a path, or with a socket's address.

#include "virtual-unit/preload/Ask.h"
#include "virtual-unit/preload/FileTimes.h"
#include "virtual-unit/preload/StandIns.h"
#include "virtual-unit/preload/Status.h"

#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/quota.h>
#include <sys/reboot.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/swap.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

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
