#include "virtual-unit/calls/InterceptedCalls.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <seccomp.h>
#include <string_view>
#include <utility>

namespace VirtualUnit
{

namespace
{

using Kind = InterceptedCall::Kind;
using Size = InterceptedCall::Size;
constexpr int NONE = InterceptedCall::NONE;

/// What a call is whose structures are narrower than this process' own on a 32-bit machine. The C libraries
/// of today use it there in no case.
constexpr Kind Narrow(Kind elsewhere)
{
    return sizeof(long) == sizeof(std::uint64_t) ? elsewhere : Kind::Other;
}

// A name that an architecture does not have is left out there.
constexpr InterceptedCall CALLS[] = {
    {"open", Kind::Open, {NONE, 0}, 1},
    {"openat", Kind::Open, {0, 1}, 2},
    {"openat2", Kind::OpenHow, {0, 1}, 2},
    {"creat", Kind::Create, {NONE, 0}, 1},
    {"access", Kind::Access, {NONE, 0}, 1},
    {"faccessat", Kind::Access, {0, 1}, 2},
    {"faccessat2", Kind::Access, {0, 1}, 2},
    {"oldstat", Kind::Other, {NONE, 0}},
    {"oldlstat", Kind::Other, {NONE, 0}},
    {"stat", Narrow(Kind::Status), {NONE, 0}, 1},
    {"lstat", Narrow(Kind::Status), {NONE, 0}, 1},
    {"newfstatat", Kind::Status, {0, 1}, 2},
    {"stat64", Kind::Other, {NONE, 0}}, // as the two above it on a 32-bit machine, which has statx()
    {"lstat64", Kind::Other, {NONE, 0}},
    {"fstatat64", Kind::Other, {0, 1}},
    {"statx", Kind::StatusX, {0, 1}, 3},
    {"statfs", Narrow(Kind::VolumeStatus), {NONE, 0}, 1},
    {"statfs64", Kind::VolumeStatus, {NONE, 0}, 2},
    {"readlink", Kind::ReadLink, {NONE, 0}},
    {"readlinkat", Kind::ReadLink, {0, 1}},
    {"getxattr", Kind::Attribute, {NONE, 0}},
    {"lgetxattr", Kind::Attribute, {NONE, 0}},
    {"getxattrat", Kind::Attribute, {0, 1}},
    {"listxattr", Kind::Attribute, {NONE, 0}},
    {"llistxattr", Kind::Attribute, {NONE, 0}},
    {"listxattrat", Kind::Attribute, {0, 1}},
    {"setxattr", Kind::Attribute, {NONE, 0}},
    {"lsetxattr", Kind::Attribute, {NONE, 0}},
    {"setxattrat", Kind::Attribute, {0, 1}},
    {"removexattr", Kind::Attribute, {NONE, 0}},
    {"lremovexattr", Kind::Attribute, {NONE, 0}},
    {"removexattrat", Kind::Attribute, {0, 1}},
    {"mkdir", Kind::MakeDirectory, {NONE, 0}, 1},
    {"mkdirat", Kind::MakeDirectory, {0, 1}, 2},
    {"rmdir", Kind::RemoveDirectory, {NONE, 0}},
    {"unlink", Kind::Remove, {NONE, 0}},
    {"unlinkat", Kind::Remove, {0, 1}, 2},
    {"rename", Kind::Rename, {NONE, 0}, NONE, {NONE, 1}},
    {"renameat", Kind::Rename, {0, 1}, NONE, {2, 3}},
    {"renameat2", Kind::Rename, {0, 1}, 4, {2, 3}},
    {"truncate", Kind::Truncate, {NONE, 0}, 1},
    {"truncate64", Kind::Truncate, {NONE, 0}, 1, {}, Size::AlignedPair},
    {"chmod", Kind::ChangeMode, {NONE, 0}, 1},
    {"fchmodat", Kind::ChangeMode, {0, 1}, 2},
    {"fchmodat2", Kind::ChangeMode, {0, 1}, 2},
    {"chown", Kind::ChangeOwner, {NONE, 0}, 1},
    {"lchown", Kind::ChangeOwner, {NONE, 0}, 1},
    {"chown32", Kind::ChangeOwner, {NONE, 0}, 1},
    {"lchown32", Kind::ChangeOwner, {NONE, 0}, 1},
    {"fchownat", Kind::ChangeOwner, {0, 1}, 2},
    {"utimensat", Narrow(Kind::ChangeTimes), {0, 1}, 2},
    {"utimensat_time64", Kind::ChangeTimes, {0, 1}, 2},
    {"link", Kind::MakeNode, {NONE, 0}, NONE, {NONE, 1}},
    {"linkat", Kind::MakeNode, {0, 1}, NONE, {2, 3}},
    {"symlink", Kind::MakeNode, {NONE, 1}}, // what it leads to is a text, no file that it touches
    {"symlinkat", Kind::MakeNode, {1, 2}},
    {"mknod", Kind::MakeNode, {NONE, 0}},
    {"mknodat", Kind::MakeNode, {0, 1}},
    {"chdir", Kind::ChangeDirectory, {NONE, 0}},
    {"execve", Kind::Execute, {NONE, 0}},
    {"execveat", Kind::Execute, {0, 1}},
    {"bind", Kind::Socket, {NONE, 1}},
    {"connect", Kind::Socket, {NONE, 1}},
    {"utime", Kind::Other, {NONE, 0}},
    {"utimes", Kind::Other, {NONE, 0}},
    {"futimesat", Kind::Other, {0, 1}},
    {"chroot", Kind::Other, {NONE, 0}},
    {"pivot_root", Kind::Other, {NONE, 0}, NONE, {NONE, 1}},
    {"mount", Kind::Other, {NONE, 0}, NONE, {NONE, 1}},
    {"move_mount", Kind::Other, {0, 1}, NONE, {2, 3}},
    {"mount_setattr", Kind::Other, {0, 1}},
    {"open_tree", Kind::Other, {0, 1}},
    {"open_tree_attr", Kind::Other, {0, 1}},
    {"fspick", Kind::Other, {0, 1}},
    {"name_to_handle_at", Kind::Other, {0, 1}},
    {"file_getattr", Kind::Other, {0, 1}},
    {"file_setattr", Kind::Other, {0, 1}},
    {"inotify_add_watch", Kind::Other, {NONE, 1}},
    {"fanotify_mark", Kind::Other, {3, 4}},
    {"quotactl", Kind::Other, {NONE, 1}},
    {"swapon", Kind::Other, {NONE, 0}},
    {"swapoff", Kind::Other, {NONE, 0}},
    {"acct", Kind::Other, {NONE, 0}},
    {"uselib", Kind::Other, {NONE, 0}},
    {"ioctl", Kind::Ioctl, {}, 0},
    {"write", Kind::Write, {}, 0},
    {"pwrite64", Kind::WriteAt, {}, 0, {}, Size::AlignedPair},
    {"writev", Kind::WriteVector, {}, 0},
    {"pwritev", Kind::WriteVectorAt, {}, 0, {}, Size::Pair},
    {"pwritev2", Kind::WriteVectorAt, {}, 0, {}, Size::Pair},
    {"ftruncate", Kind::Resize, {}, 0},
    {"ftruncate64", Kind::Resize, {}, 0, {}, Size::AlignedPair},
    {"fallocate", Kind::Fill, {}, 0},
    {"sendfile", Kind::Fill, {}, 0},
    {"sendfile64", Kind::Fill, {}, 0},
    {"copy_file_range", Kind::Fill, {}, 2},
    {"fsync", Kind::Sync, {}, 0},
    {"fdatasync", Kind::Sync, {}, 0},
    {"syncfs", Kind::SyncVolume, {}, 0},
    {"sync", Kind::SyncVolume},
    {"msync", Kind::SyncMapping, {}, 0},
    {"umount", Kind::Unmount, {NONE, 0}},
    {"umount2", Kind::Unmount, {NONE, 0}, 1},
    {"reboot", Kind::Forbidden},
};

/// Calls that libseccomp 2.5 does not know; their numbers are the same on all architectures.
constexpr std::pair<std::string_view, int> NEWER_CALLS[] = {
    {"fchmodat2", 452},     {"setxattrat", 463},     {"getxattrat", 464},   {"listxattrat", 465},
    {"removexattrat", 466}, {"open_tree_attr", 467}, {"file_getattr", 468}, {"file_setattr", 469}};

int NumberOf(const char* name)
{
    const auto newer = std::ranges::find(NEWER_CALLS, name, &std::pair<std::string_view, int>::first);
    return newer == std::end(NEWER_CALLS) ? seccomp_syscall_resolve_name(name) : newer->second;
}

}

InterceptedCalls::InterceptedCalls()
{
    for (const InterceptedCall& call : CALLS)
    {
        if (const int number = NumberOf(call.name); number >= 0)
        {
            calls.push_back({number, &call});
        }
    }
}

const InterceptedCall* InterceptedCalls::Find(int number) const
{
    const auto found = std::ranges::find(calls, number, &Numbered::number);
    return found == calls.end() ? nullptr : found->call;
}

}
