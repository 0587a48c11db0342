#ifndef VIRTUAL_UNIT_PRELOAD_STATUS_H
#define VIRTUAL_UNIT_PRELOAD_STATUS_H

#include "virtual-unit/preload/Ask.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

/// Asking about the status of a file, for programs whose structures for it differ.
namespace VirtualUnit::Preload
{

/// @return as fstatat() @param real makes the call, where it goes on
template <class Status, class Real>
int StatusOf(int directory, const char* path, [[maybe_unused]] Status* status, int flags, Real real)
{
#ifdef SYS_newfstatat
    // On a 64-bit machine there is one structure.
    static_assert(sizeof(Status) == sizeof(struct stat));
    return Either(Ask(SYS_newfstatat, directory, path, status, flags), real);
#else
    struct statx all = {};
    const Reply reply = Ask(SYS_statx, directory, path, flags, STATX_BASIC_STATS, &all);
    if (reply.goesOn)
    {
        return real();
    }
    if (!reply.Succeeded())
    {
        return -1;
    }
    *status = {};
    status->st_dev = makedev(all.stx_dev_major, all.stx_dev_minor);
    status->st_ino = static_cast<decltype(status->st_ino)>(all.stx_ino);
    status->st_mode = all.stx_mode;
    status->st_nlink = all.stx_nlink;
    status->st_uid = all.stx_uid;
    status->st_gid = all.stx_gid;
    status->st_rdev = makedev(all.stx_rdev_major, all.stx_rdev_minor);
    status->st_size = static_cast<decltype(status->st_size)>(all.stx_size);
    status->st_blksize = static_cast<decltype(status->st_blksize)>(all.stx_blksize);
    status->st_blocks = static_cast<decltype(status->st_blocks)>(all.stx_blocks);
    const auto time = [](const statx_timestamp& from, auto& to) {
        to.tv_sec = static_cast<decltype(to.tv_sec)>(from.tv_sec);
        to.tv_nsec = static_cast<decltype(to.tv_nsec)>(from.tv_nsec);
    };
    time(all.stx_atime, status->st_atim);
    time(all.stx_mtime, status->st_mtim);
    time(all.stx_ctime, status->st_ctim);
    return 0;
#endif
}

inline Reply AskVolumeStatus(const char* path, struct statfs64* status)
{
#ifdef SYS_statfs64
    return Ask(SYS_statfs64, path, sizeof(*status), status);
#else
    return Ask(SYS_statfs, path, status);
#endif
}

/// What statfs() and its like have in common. Each field has the widths of its own structure.
template <class From, class To>
void CopyVolumeStatus(const From& from, To& to)
{
    to.f_type = static_cast<decltype(to.f_type)>(from.f_type);
    to.f_bsize = static_cast<decltype(to.f_bsize)>(from.f_bsize);
    to.f_blocks = static_cast<decltype(to.f_blocks)>(from.f_blocks);
    to.f_bfree = static_cast<decltype(to.f_bfree)>(from.f_bfree);
    to.f_bavail = static_cast<decltype(to.f_bavail)>(from.f_bavail);
    to.f_files = static_cast<decltype(to.f_files)>(from.f_files);
    to.f_ffree = static_cast<decltype(to.f_ffree)>(from.f_ffree);
    to.f_fsid = from.f_fsid;
    to.f_namelen = static_cast<decltype(to.f_namelen)>(from.f_namelen);
    to.f_frsize = static_cast<decltype(to.f_frsize)>(from.f_frsize);
    to.f_flags = static_cast<decltype(to.f_flags)>(from.f_flags);
}

}

#endif
