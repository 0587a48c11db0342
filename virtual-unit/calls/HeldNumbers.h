#ifndef VIRTUAL_UNIT_CALLS_HELDNUMBERS_H
#define VIRTUAL_UNIT_CALLS_HELDNUMBERS_H

#include <cstdint>
#include <sys/ioctl.h>
#include <sys/syscall.h>

namespace VirtualUnit
{

/// Writes to descriptors from there on are held up, all others are not: what a device or a file is written to
/// goes past the supervisor at full speed, unless it places the descriptor up there.
constexpr unsigned int FIRST_HELD_DESCRIPTOR = 960;

constexpr unsigned int END_OF_HELD_DESCRIPTORS = 1020; ///< select() knows no more than 1024

constexpr bool IsHeldDescriptor(std::uint32_t number)
{
    return number >= FIRST_HELD_DESCRIPTOR && number <= INT32_MAX;
}

/// The requests of the unit's drivers, as a mask and what it leaves. All other ioctls are not held up.
struct HeldRequests
{
    std::uint64_t mask;
    std::uint64_t value;
};

constexpr std::uint64_t LOW_WORD = 0xFFFFFFFF;
constexpr HeldRequests HELD_REQUESTS[] = {{LOW_WORD, TIOCOUTQ}, // serial lines that are stuck
                                          {LOW_WORD, TCSBRK},     {0xFFFFFF00, 0x0700}, // i2c-dev
                                          {0x0000FF00, 'H' << 8},                       // hidraw
                                          {LOW_WORD, 100},        {LOW_WORD, 101},      {LOW_WORD, 102},
                                          {LOW_WORD, 103}, // event driver: its pins
                                          {LOW_WORD, 104},        {LOW_WORD, 105},      {LOW_WORD, 106}};

/// Whether a system call is held up whatever its arguments, as InterceptedCalls has it. A number stands in
/// place of a name that is newer than the headers may be.
constexpr bool IsHeldCall(long number)
{
    switch (number)
    {
#ifdef SYS_open
    case SYS_open:
#endif
#ifdef SYS_creat
    case SYS_creat:
#endif
#ifdef SYS_access
    case SYS_access:
#endif
#ifdef SYS_stat
    case SYS_stat:
#endif
#ifdef SYS_lstat
    case SYS_lstat:
#endif
#ifdef SYS_newfstatat
    case SYS_newfstatat:
#endif
#ifdef SYS_oldstat
    case SYS_oldstat:
#endif
#ifdef SYS_oldlstat
    case SYS_oldlstat:
#endif
#ifdef SYS_stat64
    case SYS_stat64:
#endif
#ifdef SYS_lstat64
    case SYS_lstat64:
#endif
#ifdef SYS_fstatat64
    case SYS_fstatat64:
#endif
#ifdef SYS_statfs64
    case SYS_statfs64:
#endif
#ifdef SYS_truncate64
    case SYS_truncate64:
#endif
#ifdef SYS_chown32
    case SYS_chown32:
#endif
#ifdef SYS_lchown32
    case SYS_lchown32:
#endif
#ifdef SYS_utimensat
    case SYS_utimensat:
#endif
#ifdef SYS_utimensat_time64
    case SYS_utimensat_time64:
#endif
#ifdef SYS_umount
    case SYS_umount:
#endif
#ifdef SYS_readlink
    case SYS_readlink:
#endif
#ifdef SYS_mkdir
    case SYS_mkdir:
#endif
#ifdef SYS_rmdir
    case SYS_rmdir:
#endif
#ifdef SYS_unlink
    case SYS_unlink:
#endif
#ifdef SYS_rename
    case SYS_rename:
#endif
#ifdef SYS_renameat
    case SYS_renameat:
#endif
#ifdef SYS_chmod
    case SYS_chmod:
#endif
#ifdef SYS_chown
    case SYS_chown:
#endif
#ifdef SYS_lchown
    case SYS_lchown:
#endif
#ifdef SYS_link
    case SYS_link:
#endif
#ifdef SYS_symlink
    case SYS_symlink:
#endif
#ifdef SYS_mknod
    case SYS_mknod:
#endif
#ifdef SYS_utime
    case SYS_utime:
#endif
#ifdef SYS_utimes
    case SYS_utimes:
#endif
#ifdef SYS_futimesat
    case SYS_futimesat:
#endif
#ifdef SYS_uselib
    case SYS_uselib:
#endif
    case SYS_openat:
    case SYS_openat2:
    case SYS_faccessat:
    case SYS_faccessat2:
    case SYS_statx:
    case SYS_statfs:
    case SYS_readlinkat:
    case SYS_getxattr:
    case SYS_lgetxattr:
    case SYS_listxattr:
    case SYS_llistxattr:
    case SYS_setxattr:
    case SYS_lsetxattr:
    case SYS_removexattr:
    case SYS_lremovexattr:
    case SYS_mkdirat:
    case SYS_unlinkat:
    case SYS_renameat2:
    case SYS_truncate:
    case SYS_fchmodat:
    case SYS_fchownat:
    case SYS_linkat:
    case SYS_symlinkat:
    case SYS_mknodat:
    case SYS_chdir:
    case SYS_execve:
    case SYS_execveat:
    case SYS_bind:
    case SYS_connect:
    case SYS_chroot:
    case SYS_pivot_root:
    case SYS_mount:
    case SYS_move_mount:
    case SYS_mount_setattr:
    case SYS_open_tree:
    case SYS_fspick:
    case SYS_name_to_handle_at:
    case SYS_inotify_add_watch:
    case SYS_fanotify_mark:
    case SYS_quotactl:
    case SYS_swapon:
    case SYS_swapoff:
    case SYS_acct:
    case SYS_fsync:
    case SYS_fdatasync:
    case SYS_syncfs:
    case SYS_sync:
    case SYS_msync:
    case SYS_umount2:
    case SYS_reboot:
    case 452: // fchmodat2
    case 463: // setxattrat
    case 464: // getxattrat
    case 465: // listxattrat
    case 466: // removexattrat
    case 467: // open_tree_attr
    case 468: // file_getattr
    case 469: // file_setattr
        return true;
    default:
        return false;
    }
}

/// Whether a system call is held up for the descriptors that are: the first argument, or the third one of
/// copy_file_range().
constexpr bool MayGrowFile(long number)
{
    switch (number)
    {
    case SYS_write:
    case SYS_pwrite64:
    case SYS_writev:
    case SYS_pwritev:
    case SYS_pwritev2:
    case SYS_ftruncate:
#ifdef SYS_ftruncate64
    case SYS_ftruncate64:
#endif
#ifdef SYS_sendfile64
    case SYS_sendfile64:
#endif
    case SYS_fallocate:
    case SYS_sendfile:
    case SYS_copy_file_range:
        return true;
    default:
        return false;
    }
}

constexpr bool IsHeldIoctl(std::uint64_t request)
{
    for (const HeldRequests& requests : HELD_REQUESTS)
    {
        if ((request & requests.mask) == requests.value)
        {
            return true;
        }
    }
    return false;
}

}

#endif
